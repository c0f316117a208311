#include "session/SelectionCopier.h"

#include "log/LogCategories.h"
#include "platform/Platform.h"

#include <QClipboard>
#include <QDebug>
#include <QGuiApplication>

namespace {

// How long the synthetic copy may take to reach the clipboard before the clipboard's own text is used.
constexpr int kCopyWaitMs = 150;
// How long after a restore a late copy of the other application is still undone. Long enough for a slow
// application to answer the keystroke, short enough not to meet a copy the user makes on purpose.
constexpr int kRestoreGuardMs = 1000;

bool sameSnapshot(const ClipboardService::Snapshot &a, const ClipboardService::Snapshot &b)
{
    return a.formats == b.formats && a.dataByFormat == b.dataByFormat;
}

} // namespace

SelectionCopier::SelectionCopier(ClipboardService *clipboard, QObject *parent)
    : QObject(parent)
    , m_clipboard(clipboard)
{
    m_restoreGuardTimer.setSingleShot(true);
    m_restoreGuardTimer.setTimerType(Qt::PreciseTimer);
    connect(&m_restoreGuardTimer, &QTimer::timeout, this, &SelectionCopier::stopRestoreGuard);
}

SelectionCopier::~SelectionCopier()
{
    abandon();
    stopRestoreGuard();
}

void SelectionCopier::setSelectedTextProvider(ISelectedTextProvider *provider,
                                              std::function<bool()> preferProvider)
{
    m_provider = provider;
    m_preferProvider = std::move(preferProvider);
}

bool SelectionCopier::readsProvider() const
{
    if (m_preferProvider)
        return m_preferProvider();
    return m_platform && m_platform->focusedWindowIsTerminal();
}

bool SelectionCopier::start()
{
    abandon();
    const quint64 generation = ++m_generation;

    if (m_provider && readsProvider()) {
        m_active = true;
        m_readingProvider = true;
        // Reported from the event loop, as the copy's outcome is, so callers meet one order of events.
        QMetaObject::invokeMethod(
            this,
            [this, generation] {
                if (!m_active || generation != m_generation)
                    return;
                m_active = false;
                const QString selected = m_provider->selectedText();
                if (!selected.isEmpty()) {
                    emit finished(selected, SelectedText);
                    return;
                }
                const QString text = clipboardText();
                emit finished(text, text.isEmpty() ? Nothing : Clipboard);
            },
            Qt::QueuedConnection);
        return true;
    }
    if (!m_clipboard)
        return false;

    // A guard of an earlier restore would undo this copy.
    stopRestoreGuard();
    m_readingProvider = false;
    m_snapshot = m_clipboard->snapshot();
    m_active = true;
    m_copyLanded = connect(m_clipboard, &ClipboardService::clipboardChanged, this,
                           [this, generation] { finish(generation); });
    qCInfo(lcSession).noquote() << "SelectionCopier: copy starting, generation =" << generation;

    if (!m_platform || !m_platform->sendCopyKeystroke()) {
        qCWarning(lcSession).noquote() << "SelectionCopier: the copy keystroke could not be sent";
        disconnect(m_copyLanded);
        m_active = false;
        m_clipboard->restore(m_snapshot);
        return false;
    }
    QTimer::singleShot(kCopyWaitMs, Qt::PreciseTimer, this, [this, generation] { finish(generation); });
    return true;
}

void SelectionCopier::abandon()
{
    if (!m_active)
        return;
    qCInfo(lcSession).noquote() << "SelectionCopier: copy replaced, restoring clipboard, generation ="
                                << m_generation;
    ++m_generation;
    m_active = false;
    if (m_readingProvider)
        return; // the provider's read touches no clipboard
    disconnect(m_copyLanded);
    m_clipboard->restore(m_snapshot);
    startRestoreGuard();
}

QString SelectionCopier::clipboardText() const
{
    return m_clipboard && m_clipboard->hasText() ? m_clipboard->getText() : QString();
}

void SelectionCopier::finish(quint64 generation)
{
    if (!m_active || generation != m_generation)
        return;
    disconnect(m_copyLanded);
    m_active = false;

    const QString newText = m_clipboard->getText().trimmed();
    QString previousText;
    for (const QString &format : std::as_const(m_snapshot.formats)) {
        if (format.startsWith(QLatin1String("text/plain"))) {
            previousText = QString::fromUtf8(m_snapshot.dataByFormat.value(format)).trimmed();
            break;
        }
    }
    m_clipboard->restore(m_snapshot);
    qCInfo(lcSession).noquote() << "SelectionCopier: copy fallback restored clipboard, text length ="
                                << newText.length();
    startRestoreGuard();

    if (!newText.isEmpty() && newText != previousText) {
        emit finished(newText, SelectedText);
        return;
    }
    // Nothing new arrived: nothing was selected, and the clipboard's own text (as the user copied it) is
    // used.
    const QString text = clipboardText();
    emit finished(text, text.isEmpty() ? Nothing : Clipboard);
}

void SelectionCopier::startRestoreGuard()
{
    disconnect(m_restoreGuardConnection);
    m_restoreGuardConnection = connect(m_clipboard, &ClipboardService::clipboardChanged, this,
                                       &SelectionCopier::onClipboardChangedAfterRestore);
    m_restoreGuardTimer.start(kRestoreGuardMs);
}

void SelectionCopier::stopRestoreGuard()
{
    m_restoreGuardTimer.stop();
    disconnect(m_restoreGuardConnection);
}

void SelectionCopier::onClipboardChangedAfterRestore()
{
    // Our own restore reports a change too, and so does a copy from one of our windows: only a change made
    // by another application that left a different clipboard is a late copy. (Platforms that cannot tell the
    // owner answer false, and then the contents decide.)
    if (QGuiApplication::clipboard()->ownsClipboard())
        return;
    if (sameSnapshot(m_clipboard->snapshot(), m_snapshot))
        return;
    qCInfo(lcSession).noquote() << "SelectionCopier: late copy replaced the clipboard, restoring again";
    // Once only: one keystroke makes one copy, and a later change is the user's own.
    stopRestoreGuard();
    m_clipboard->restore(m_snapshot);
}
