#include "session/SelectionCopier.h"

#include "log/LogCategories.h"
#include "platform/Platform.h"

#include <QClipboard>
#include <QDebug>
#include <QGuiApplication>

namespace {

// How long the synthetic copy may take to reach the clipboard before the clipboard's own text is used.
constexpr int kCopyWaitMs = 150;
// How long after the keystroke a late copy of the other application is still undone. Long enough for a slow
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

bool SelectionCopier::start(quint64 tag)
{
    abandon();
    const quint64 generation = ++m_generation;
    m_tag = tag;

    if (m_provider && readsProvider()) {
        m_active = true;
        m_readingProvider = true;
        // Reported from the event loop, as the copy's outcome is, so callers meet one order of events.
        QMetaObject::invokeMethod(
            this,
            [this, generation, tag] {
                if (!m_active || generation != m_generation)
                    return;
                m_active = false;
                const QString selected = m_provider->selectedText();
                if (!selected.isEmpty()) {
                    emit finished(tag, selected, SelectedText);
                    return;
                }
                const QString text = clipboardText();
                emit finished(tag, text, text.isEmpty() ? Nothing : Clipboard);
            },
            Qt::QueuedConnection);
        return true;
    }
    if (!m_clipboard || !m_platform)
        return false;

    // While this read waits, a change is its copy (or one owed by an earlier keystroke): the guard rests.
    // Copies owed since long ago are not coming any more.
    if (m_sinceKeystroke.isValid() && m_sinceKeystroke.elapsed() >= kRestoreGuardMs)
        stopRestoreGuard();
    disarmRestoreGuard();
    m_readingProvider = false;
    m_snapshot = m_clipboard->snapshot();
    m_active = true;
    m_copyLanded = connect(m_clipboard, &ClipboardService::clipboardChanged, this,
                           [this, generation] { finish(generation, true); });
    qCInfo(lcSession).noquote() << "SelectionCopier: copy starting, generation =" << generation;

    // Counted before it goes: the copy may land while the keystroke is being sent.
    ++m_copiesOwed;
    const QElapsedTimer before = m_sinceKeystroke;
    m_sinceKeystroke.start();
    if (!m_platform->sendCopyKeystroke()) {
        // Nothing was sent, so nothing can have changed the clipboard: it is left alone, not rewritten.
        qCWarning(lcSession).noquote() << "SelectionCopier: the copy keystroke could not be sent";
        disconnect(m_copyLanded);
        m_active = false;
        --m_copiesOwed;
        m_sinceKeystroke = before;
        startRestoreGuard();
        return false;
    }
    QTimer::singleShot(kCopyWaitMs, Qt::PreciseTimer, this,
                       [this, generation] { finish(generation, false); });
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
    // Where the toolkit sees the clipboard only while one of our windows has the focus (Wayland), the
    // system reads it another way if it can.
    if (m_platform) {
        if (const std::optional<QString> text = m_platform->unfocusedClipboardText())
            return *text;
    }
    return m_clipboard && m_clipboard->hasText() ? m_clipboard->getText() : QString();
}

void SelectionCopier::finish(quint64 generation, bool changed)
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
    const bool newSelection = !newText.isEmpty() && newText != previousText;
    // A copy that landed is one keystroke answered, even when it brought the text the clipboard held.
    if ((changed || newSelection) && m_copiesOwed > 0)
        --m_copiesOwed;
    if (newSelection)
        m_copiedText = newText;
    m_clipboard->restore(m_snapshot);
    qCInfo(lcSession).noquote() << "SelectionCopier: copy fallback restored clipboard, text length ="
                                << newText.length();
    startRestoreGuard();

    const quint64 tag = m_tag;
    if (newSelection) {
        emit finished(tag, newText, SelectedText);
        return;
    }
    // Nothing new arrived: nothing was selected, and the clipboard's own text (as the user copied it) is
    // used.
    const QString text = clipboardText();
    emit finished(tag, text, text.isEmpty() ? Nothing : Clipboard);
}

void SelectionCopier::startRestoreGuard()
{
    disarmRestoreGuard();
    const qint64 left = m_sinceKeystroke.isValid() ? kRestoreGuardMs - m_sinceKeystroke.elapsed() : 0;
    // Every keystroke answered, or the last one long ago: whatever changes the clipboard now is the user's.
    if (m_copiesOwed <= 0 || left <= 0) {
        stopRestoreGuard();
        return;
    }
    // A late copy can be told from the user's own only by bringing again a selection our keystrokes copied.
    // Without one (nothing was selected, or the application is slow from the start) a change is left alone:
    // better the selection on the clipboard than the user's next copy undone.
    if (m_copiedText.isEmpty())
        return;
    m_restoreGuardConnection = connect(m_clipboard, &ClipboardService::clipboardChanged, this,
                                       &SelectionCopier::onClipboardChangedAfterRestore);
    m_restoreGuardTimer.start(static_cast<int>(left));
}

void SelectionCopier::disarmRestoreGuard()
{
    m_restoreGuardTimer.stop();
    disconnect(m_restoreGuardConnection);
}

void SelectionCopier::stopRestoreGuard()
{
    // A copy owed this long is not coming; a later change is the user's.
    disarmRestoreGuard();
    m_copiesOwed = 0;
    m_copiedText.clear();
}

void SelectionCopier::onClipboardChangedAfterRestore()
{
    // Our own restore reports a change too, and so does a copy from one of our windows: only a change made
    // by another application that left a different clipboard can be a late copy. (Platforms that cannot tell
    // the owner answer false, and then the contents decide.)
    if (QGuiApplication::clipboard()->ownsClipboard())
        return;
    if (sameSnapshot(m_clipboard->snapshot(), m_snapshot))
        return;
    if (m_clipboard->getText().trimmed() != m_copiedText) {
        // Something else than the selection: the user copied it, and it stays.
        stopRestoreGuard();
        return;
    }
    qCInfo(lcSession).noquote() << "SelectionCopier: late copy replaced the clipboard, restoring again";
    // One keystroke makes one copy: once each owed copy has come, a later change is the user's own.
    if (--m_copiesOwed <= 0)
        stopRestoreGuard();
    m_clipboard->restore(m_snapshot);
}
