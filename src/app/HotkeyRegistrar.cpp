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
{
    // A desktop portal answers after registerHotkeys() has returned; only its answer says whether they work.
    connect(m_manager, &HotkeyManager::registrationConfirmed, this, [this] {
        qCInfo(lcApp).noquote() << QStringLiteral("Hotkey registration (%1): the desktop granted the hotkeys")
                                       .arg(QLatin1String(m_lastAttempt));
        setOffReason(QString());
    });
    connect(m_manager, &HotkeyManager::registrationFailed, this, [this](const QString &error) {
        qCInfo(lcApp).noquote() << QStringLiteral("Hotkey registration (%1): ok = false, lastError = %2")
                                       .arg(QLatin1String(m_lastAttempt), error);
        setOffReason(error);
    });
}

void HotkeyRegistrar::setOffReason(const QString &reason)
{
    if (reason == m_offReason)
        return;
    m_offReason = reason;
    emit offReasonChanged(reason);
}

QString HotkeyRegistrar::desktopShortcutAdvice(const QString &desktop)
{
    const QStringList names = desktop.toLower().split(QLatin1Char(':'), Qt::SkipEmptyParts);
    const bool gnome = names.contains(QLatin1String("gnome"));
    const bool kde = names.contains(QLatin1String("kde"));
    const bool sway = names.contains(QLatin1String("sway"));
    const bool all = !gnome && !kde && !sway;
    QStringList where;
    if (gnome || all)
        where << QObject::tr("GNOME: Settings > Keyboard > View and Customize Shortcuts > Custom Shortcuts, "
                             "then + with the command.");
    if (kde || all)
        where << QObject::tr("KDE Plasma: System Settings > Shortcuts > Add New > Command or Script.");
    if (sway || all)
        where << QObject::tr("sway: a line such as \"bindsym $mod+Shift+1 exec vontrel --capture\" in "
                             "~/.config/sway/config.");
    return QObject::tr("Bind these commands to keys in the desktop's keyboard settings instead:\n"
                       "  vontrel --capture  (text screenshot)\n"
                       "  vontrel --selection  (selected or clipboard text)\n%1")
        .arg(where.join(QLatin1Char('\n')));
}

bool HotkeyRegistrar::tryPair(const char *when, const QKeySequence &capture,
                              const QKeySequence &clipboardText)
{
    m_lastAttempt = when;
    const bool ok = m_manager->registerHotkeys(capture, clipboardText);
    // Sent to a desktop that answers later, the registration is neither true nor false yet.
    const QString outcome = !ok                             ? QStringLiteral("false")
                            : m_manager->isAwaitingAnswer() ? QStringLiteral("awaiting the desktop's answer")
                                                            : QStringLiteral("true");
    qCInfo(lcApp).noquote() << QStringLiteral(
                                   "Hotkey registration (%1): ok = %2, capture = %3, clipboardText = %4, "
                                   "lastError = %5")
                                   .arg(QLatin1String(when), outcome, nativeText(capture),
                                        nativeText(clipboardText), m_manager->lastError());
    if (ok && !m_manager->isAwaitingAnswer())
        setOffReason(QString());
    else if (!ok)
        setOffReason(m_manager->lastError());
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
                            !ok                             ? QStringLiteral("false")
                            : m_manager->isAwaitingAnswer() ? QStringLiteral("pending")
                                                            : QStringLiteral("true")));
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
