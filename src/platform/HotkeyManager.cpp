#include "platform/HotkeyManager.h"

#include "log/LogCategories.h"

#include <QDebug>

namespace {

constexpr int slotIndex(int id)
{
    return id - 1;
}

} // namespace

HotkeyManager::HotkeyManager(std::unique_ptr<IHotkeyBackend> backend, QObject *parent)
    : QObject(parent)
    , m_backend(std::move(backend))
{
    // Queued even on the GUI thread: receivers must not run inside the native event callback. The backend
    // dies with the manager, so a press still queued then is dropped with it.
    connect(
        m_backend.get(), &IHotkeyBackend::pressed, this,
        [this](int hotkeyId, quint64 timestamp) {
            qCInfo(lcPlatform).noquote()
                << logPrefix() << "hotkey event received, status =" << 0 << ", id =" << hotkeyId;
            emit hotkeyTriggered(hotkeyId, timestamp);
        },
        Qt::QueuedConnection);
    connect(m_backend.get(), &IHotkeyBackend::bindingConfirmed, this, [this] {
        if (!m_registered)
            return;
        m_awaitingAnswer = false;
        qCInfo(lcPlatform).noquote() << logPrefix() << "the system granted the hotkeys";
        emit registrationConfirmed();
    });
    connect(m_backend.get(), &IHotkeyBackend::bindingRefused, this, [this](const QString &error) {
        qCWarning(lcPlatform).noquote() << logPrefix() << "registerHotkeys failed:" << error;
        teardown();
        m_lastError = error;
        emit registrationFailed(error);
    });
}

HotkeyManager::~HotkeyManager()
{
    teardown();
}

QKeySequence HotkeyManager::defaultCaptureHotkey()
{
    return QKeySequence(QKeyCombination(Qt::MetaModifier | Qt::ShiftModifier, Qt::Key_1));
}

QKeySequence HotkeyManager::defaultClipboardTextHotkey()
{
    return QKeySequence(QKeyCombination(Qt::MetaModifier | Qt::ShiftModifier, Qt::Key_2));
}

QString HotkeyManager::logPrefix() const
{
    return QStringLiteral("HotkeyManager(%1):").arg(m_backend->platformTag());
}

bool HotkeyManager::registerHotkeys()
{
    return registerHotkeys(defaultCaptureHotkey(), defaultClipboardTextHotkey());
}

void HotkeyManager::teardown()
{
    for (int id = CaptureHotkey; id <= ClipboardTextHotkey; ++id) {
        if (m_slots[slotIndex(id)]) {
            m_backend->unregisterHotkey(id);
            m_slots[slotIndex(id)] = false;
        }
    }
    if (m_handlerInstalled) {
        m_backend->removeHandler();
        m_handlerInstalled = false;
    }
    m_registered = false;
    m_awaitingAnswer = false;
}

void HotkeyManager::unregisterHotkeys()
{
    teardown();
}

bool HotkeyManager::registerHotkeys(const QKeySequence &capture, const QKeySequence &clipboardText)
{
    m_lastError = QString();
    if (m_registered)
        teardown();

    const QString prefix = logPrefix();
    qCInfo(lcPlatform).noquote() << prefix << "registering hotkeys:"
                                 << "capture =" << capture.toString(QKeySequence::NativeText)
                                 << ", clipboardText =" << clipboardText.toString(QKeySequence::NativeText);

    if (capture.isEmpty() && clipboardText.isEmpty()) {
        m_lastError = QStringLiteral("No hotkeys configured");
        qCWarning(lcPlatform).noquote() << prefix << "registerHotkeys failed:" << m_lastError;
        return false;
    }

    // Only the first chord of a multi-chord sequence can be a global hotkey.
    std::optional<HotkeyChord> captureChord;
    if (!capture.isEmpty()) {
        captureChord = vontrelHotkeyChord(capture[0]);
        if (!captureChord) {
            m_lastError = QStringLiteral("Unsupported capture hotkey: %1").arg(capture.toString());
            qCWarning(lcPlatform).noquote() << prefix << "map capture hotkey failed:" << m_lastError;
            return false;
        }
    }
    std::optional<HotkeyChord> clipboardChord;
    if (!clipboardText.isEmpty()) {
        clipboardChord = vontrelHotkeyChord(clipboardText[0]);
        if (!clipboardChord) {
            m_lastError =
                QStringLiteral("Unsupported clipboard text hotkey: %1").arg(clipboardText.toString());
            qCWarning(lcPlatform).noquote() << prefix << "map clipboard text hotkey failed:" << m_lastError;
            return false;
        }
    }

    const auto captureNative =
        captureChord ? m_backend->nativeKey(*captureChord) : std::pair<quint32, quint32>{};
    const auto clipboardNative =
        clipboardChord ? m_backend->nativeKey(*clipboardChord) : std::pair<quint32, quint32>{};
    qCInfo(lcPlatform).noquote() << prefix << "mapped capture keyCode/mods =" << captureNative.first
                                 << captureNative.second
                                 << ", clipboardText keyCode/mods =" << clipboardNative.first
                                 << clipboardNative.second;

    QString error;
    const int installStatus = m_backend->installHandler(&error);
    if (installStatus != 0) {
        qCWarning(lcPlatform).noquote()
            << "HotkeyManager: Failed to install event handler, status:" << installStatus;
        m_lastError =
            error.isEmpty()
                ? QStringLiteral("InstallApplicationEventHandler failed (status=%1)").arg(installStatus)
                : error;
        return false;
    }
    m_handlerInstalled = true;
    qCInfo(lcPlatform).noquote() << prefix << "event handler installed";

    const auto fail = [this]() {
        teardown();
        return false;
    };

    if (captureChord) {
        const int status =
            m_backend->registerHotkey(CaptureHotkey, *captureChord, QStringLiteral("capture"), &error);
        if (status != 0) {
            qCWarning(lcPlatform).noquote()
                << "HotkeyManager: Failed to register capture hotkey, status:" << status;
            m_lastError =
                error.isEmpty()
                    ? QStringLiteral("RegisterEventHotKey failed for capture (status=%1)").arg(status)
                    : error;
            return fail();
        }
        m_slots[slotIndex(CaptureHotkey)] = true;
        qCInfo(lcPlatform).noquote() << prefix << "capture hotkey registered";
    }
    if (clipboardChord) {
        const int status = m_backend->registerHotkey(ClipboardTextHotkey, *clipboardChord,
                                                     QStringLiteral("clipboard text"), &error);
        if (status != 0) {
            qCWarning(lcPlatform).noquote()
                << "HotkeyManager: Failed to register clipboard text hotkey, status:" << status;
            m_lastError =
                error.isEmpty()
                    ? QStringLiteral("RegisterEventHotKey failed for clipboard text (status=%1)").arg(status)
                    : error;
            return fail();
        }
        m_slots[slotIndex(ClipboardTextHotkey)] = true;
        qCInfo(lcPlatform).noquote() << prefix << "clipboard text hotkey registered";
    }

    m_registered = true;
    m_awaitingAnswer = m_backend->answersLater();
    m_backend->commit();
    qCInfo(lcPlatform).noquote() << prefix
                                 << (m_awaitingAnswer ? "registerHotkeys sent; the system answers later"
                                                      : "registerHotkeys ok");
    return true;
}
