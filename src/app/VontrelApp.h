#pragma once

#include "app/CommandLine.h"

#include <QKeySequence>
#include <QObject>
#include <QSet>
#include <QStringList>

#include <memory>

class ActionService;
class CaptureService;
class ClipboardService;
class HotkeyManager;
class HotkeyRegistrar;
class IHotkeyBackend;
class IOcrProvider;
class ISelectedTextProvider;
class Notifier;
class Platform;
class PreferencesWindow;
class QAction;
class QMenu;
class QSystemTrayIcon;
class SessionController;
class TrayMenu;
class UpdatePrompt;
struct InstanceRequest;

// The composition root: runs the start-up and owns everything it creates (the services, the session
// controller, the tray, the Preferences window) and wires them together. Tests construct it with dialogs
// turned off and inspect what it would have shown.
class VontrelApp final : public QObject
{
    Q_OBJECT

public:
    explicit VontrelApp(QObject *parent = nullptr);
    ~VontrelApp() override;

    // Everything before the event loop. Expects the QApplication to exist with its identity set.
    void start();

    // When false, message boxes and balloons are not shown but recorded as "title\ntext" (for tests); a
    // question is answered with its negative button.
    void setInteractive(bool interactive);
    QStringList shownMessages() const;
    QStringList shownBalloons() const;
    // Hands the hotkey manager a backend of the test's choosing; call before start().
    void setHotkeyBackendForTesting(std::unique_ptr<IHotkeyBackend> backend);
    // Runs on a system of the test's choosing instead of this one's; call before start().
    void setPlatformForTesting(std::unique_ptr<Platform> platform);
    // What this start was asked for on its command line (--capture, --selection).
    void setCommandLineAction(CommandLineAction action) { m_commandLineAction = action; }
    CommandLineAction commandLineAction() const { return m_commandLineAction; }

    Notifier *notifier() const { return m_notifier; }
    QMenu *trayMenu() const;
    QSystemTrayIcon *trayIcon() const;
    QAction *captureAction() const;
    QAction *clipboardTextAction() const;
    QAction *updateAction() const;
    QAction *preferencesAction() const;
    QAction *quitAction() const;
    HotkeyManager *hotkeyManager() const { return m_hotkeyManager.get(); }
    SessionController *sessionController() const { return m_sessionController.get(); }
    ActionService *actionService() const { return m_actionService.get(); }
    PreferencesWindow *preferencesWindow() const { return m_preferencesWindow.get(); }
    QKeySequence lastWorkingCaptureHotkey() const;
    QKeySequence lastWorkingClipboardTextHotkey() const;

    // The full text that says the hotkeys are off, why, and what to do instead; empty while they work.
    QString hotkeysOffText() const;

public slots:
    // A later start's request (from the command line or a desktop shortcut): show the Preferences or start
    // an action as its hotkey would, with the desktop's activation token for the window it opens.
    void handleRequest(const InstanceRequest &request);
    void onHotkeyEditingChanged(bool editing);
    void onHotkeysChanged(const QKeySequence &capture, const QKeySequence &clipboardText);
    void onSessionError(const QString &message);

private:
    void completeConfiguration();
    void createServices();
    void createTray();
    void showPreferences(quint64 timestamp);
    // Starts an action as its hotkey does; a capture asked for while a screenshot is still awaited is
    // not dropped silently.
    void startAction(int hotkeyId, quint64 timestamp);
    void showHotkeyStatus();

    Notifier *m_notifier = nullptr;
    UpdatePrompt *m_updatePrompt = nullptr;
    std::unique_ptr<IHotkeyBackend> m_hotkeyBackendForTesting;
    CommandLineAction m_commandLineAction = CommandLineAction::None;
    QSet<QString> m_toldHotkeyFailures;
    bool m_screenshotAwaited = false;
    std::unique_ptr<Platform> m_platform;

    // Declared in the order of creation, so they are destroyed in reverse: the controller before the services
    // it points at, and the hotkey manager (which releases the global grabs) after it.
    std::unique_ptr<CaptureService> m_captureService;
    std::unique_ptr<ClipboardService> m_clipboardService;
    std::unique_ptr<HotkeyManager> m_hotkeyManager;
    std::unique_ptr<IOcrProvider> m_ocrProvider;
    std::unique_ptr<ISelectedTextProvider> m_selectedTextProvider;
    std::unique_ptr<ActionService> m_actionService;
    std::unique_ptr<SessionController> m_sessionController;
    std::unique_ptr<HotkeyRegistrar> m_hotkeys;
    std::unique_ptr<PreferencesWindow> m_preferencesWindow;
    std::unique_ptr<TrayMenu> m_tray;
};

// The whole program: start-up, event loop, exit code. The command line has been read (CommandLine) already.
int vontrelMain(int argc, char *argv[], CommandLineAction action = CommandLineAction::None);
