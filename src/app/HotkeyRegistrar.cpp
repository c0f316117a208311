#include "app/HotkeyRegistrar.h"

#include "app/DebugLog.h"
#include "app/Notifier.h"
#include "config/ConfigManager.h"
#include "log/LogCategories.h"
#include "platform/HotkeyManager.h"
#include "ui/preferences/HotkeysPage.h"

#include <QDebug>

namespace {

constexpr int kBalloonMs = 5000;

QString nativeText(const QKeySequence &sequence)
{
    return sequence.toString(QKeySequence::NativeText);
}

} // namespace

HotkeyRegistrar::HotkeyRegistrar(HotkeyManager *manager, ConfigManager *config, Notifier *notifier,
                                 bool settingsPanes, QObject *parent)
    : QObject(parent)
    , m_manager(manager)
    , m_config(config)
    , m_notifier(notifier)
    , m_settingsPanes(settingsPanes)
{}

bool HotkeyRegistrar::tryPair(const char *when, const QKeySequence &capture,
                              const QKeySequence &clipboardText)
{
    const bool ok = m_manager->registerHotkeys(capture, clipboardText);
    qCInfo(lcApp).noquote() << QStringLiteral(
                                   "Hotkey registration (%1): ok = %2, capture = %3, clipboardText = %4, "
                                   "lastError = %5")
                                   .arg(QLatin1String(when),
                                        ok ? QStringLiteral("true") : QStringLiteral("false"),
                                        nativeText(capture), nativeText(clipboardText),
                                        m_manager->lastError());
    return ok;
}

void HotkeyRegistrar::setWorking(const QKeySequence &capture, const QKeySequence &clipboardText)
{
    m_capture = capture;
    m_clipboardText = clipboardText;
    emit workingPairChanged(capture, clipboardText);
}

bool HotkeyRegistrar::registerAtStart()
{
    const QKeySequence capture = HotkeysPage::effectiveHotkey(
        m_config->captureHotkey(), HotkeyManager::defaultCaptureHotkey(), m_config->clipboardTextHotkey());
    const QKeySequence clipboardText =
        HotkeysPage::effectiveHotkey(m_config->clipboardTextHotkey(),
                                     HotkeyManager::defaultClipboardTextHotkey(), m_config->captureHotkey());
    const bool ok = tryPair("startup", capture, clipboardText);
    appendDebugLog(QStringLiteral("Startup hotkeys: capture=%1 clipboardText=%2 ok=%3")
                       .arg(nativeText(capture), nativeText(clipboardText),
                            ok ? QStringLiteral("true") : QStringLiteral("false")));
    setWorking(capture, clipboardText);
    if (ok)
        return true;

    // A combination another program holds, no X11 server: the backend's reason is what the user can act on.
    const QString hint = m_settingsPanes
                             ? QObject::tr("Please grant accessibility permissions to Vontrel in:\nSystem "
                                           "Preferences > Security & Privacy > Privacy > Accessibility")
                             : m_manager->lastError();
    m_notifier->warn(QObject::tr("Hotkey Registration Failed"),
                     QObject::tr("Failed to register global hotkeys.\n\n%1").arg(hint));
    return false;
}

bool HotkeyRegistrar::revert(const QKeySequence &failedCapture, const QKeySequence &failedClipboardText)
{
    if (failedCapture == m_capture && failedClipboardText == m_clipboardText)
        return false;
    const bool ok = tryPair("revert", m_capture, m_clipboardText);
    m_config->setCaptureHotkey(m_capture);
    m_config->setClipboardTextHotkey(m_clipboardText);
    emit revertedTo(m_capture, m_clipboardText);
    setWorking(m_capture, m_clipboardText);
    return ok;
}

void HotkeyRegistrar::onEditingChanged(bool editing)
{
    m_editing = editing;
    if (editing) {
        // The hotkeys stay off while the user records keys, so pressing the current pair starts no session.
        m_manager->unregisterHotkeys();
        return;
    }
    const QKeySequence capture = m_changePending ? m_pendingCapture : m_capture;
    const QKeySequence clipboardText = m_changePending ? m_pendingClipboardText : m_clipboardText;
    m_changePending = false;
    if (tryPair("after editing", capture, clipboardText)) {
        setWorking(capture, clipboardText);
        return;
    }
    const QString reason = m_manager->lastError();
    const bool reverted = revert(capture, clipboardText);
    m_notifier->balloon(QObject::tr("Hotkey Registration Failed"),
                        reverted
                            ? QObject::tr("Failed to register hotkeys after editing.\n%1\nReverted to the "
                                          "previous working hotkeys.")
                                  .arg(reason)
                            : QObject::tr("Failed to register hotkeys after editing.\n%1").arg(reason),
                        kBalloonMs);
}

void HotkeyRegistrar::onHotkeysChanged(const QKeySequence &capture, const QKeySequence &clipboardText)
{
    if (m_editing) {
        m_changePending = true;
        m_pendingCapture = capture;
        m_pendingClipboardText = clipboardText;
        return;
    }
    if (tryPair("change", capture, clipboardText)) {
        setWorking(capture, clipboardText);
        return;
    }
    m_notifier->balloon(
        QObject::tr("Hotkey Registration Failed"),
        QObject::tr("Failed to register the new hotkeys. Reverted to the previous working hotkeys."),
        kBalloonMs);
    revert(capture, clipboardText);
}
