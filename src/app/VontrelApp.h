#pragma once

#include <QIcon>
#include <QKeySequence>
#include <QObject>
#include <QStringList>
#include <QUrl>

#include <memory>

class ActionService;
class CaptureService;
class ClipboardService;
class HotkeyManager;
class IHotkeyBackend;
class IOcrProvider;
class ISelectedTextProvider;
class Platform;
class PreferencesWindow;
class QAction;
class QMenu;
class QSystemTrayIcon;
class SessionController;

// Runs the program's start-up and owns everything it creates: the services, the session controller, the tray
// icon with its menu and the Preferences window. Tests construct it with dialogs turned off and inspect what
// it would have shown.
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
    void setInteractive(bool interactive) { m_interactive = interactive; }
    QStringList shownMessages() const { return m_shownMessages; }
    QStringList shownBalloons() const { return m_shownBalloons; }
    // Hands the hotkey manager a backend of the test's choosing; call before start().
    void setHotkeyBackendForTesting(std::unique_ptr<IHotkeyBackend> backend);

    QMenu *trayMenu() const { return m_menu.get(); }
    QSystemTrayIcon *trayIcon() const { return m_trayIcon.get(); }
    QAction *captureAction() const { return m_captureAction; }
    QAction *clipboardTextAction() const { return m_clipboardTextAction; }
    QAction *updateAction() const { return m_updateAction; }
    QAction *preferencesAction() const { return m_preferencesAction; }
    QAction *quitAction() const { return m_quitAction; }
    HotkeyManager *hotkeyManager() const { return m_hotkeyManager.get(); }
    SessionController *sessionController() const { return m_sessionController.get(); }
    ActionService *actionService() const { return m_actionService.get(); }
    PreferencesWindow *preferencesWindow() const { return m_preferencesWindow.get(); }
    QKeySequence lastWorkingCaptureHotkey() const { return m_lastCaptureHotkey; }
    QKeySequence lastWorkingClipboardTextHotkey() const { return m_lastClipboardTextHotkey; }

    // The colour the tray menu's icons are tinted with for the current appearance.
    static QColor menuIconColor();

public slots:
    void updateTrayTexts();
    void onHotkeyEditingChanged(bool editing);
    void onHotkeysChanged(const QKeySequence &capture, const QKeySequence &clipboardText);
    void onUpdateCheckRequested();
    void onUpdateCheckSucceeded(bool updateAvailable, const QString &latestVersion, const QUrl &downloadUrl);
    void onUpdateCheckFailed(const QString &message);
    void onSessionError(const QString &message);

private:
    void completeConfiguration();
    void createServices();
    void registerStartupHotkeys();
    void createTray();
    void applyWorkingHotkeys(const QKeySequence &capture, const QKeySequence &clipboardText);
    void applyAiSettings();
    void logRegistration(const char *when, bool ok);
    QWidget *dialogParent() const;
    void showWarning(const QString &title, const QString &text, QWidget *parent = nullptr);
    void showInformation(const QString &title, const QString &text, QWidget *parent = nullptr);
    void showBalloon(const QString &title, const QString &text, int msecs);

    bool m_interactive = true;
    QStringList m_shownMessages;
    QStringList m_shownBalloons;
    std::unique_ptr<IHotkeyBackend> m_hotkeyBackendForTesting;
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
    std::unique_ptr<QSystemTrayIcon> m_trayIcon;
    std::unique_ptr<PreferencesWindow> m_preferencesWindow;
    std::unique_ptr<QMenu> m_menu;

    QAction *m_captureAction = nullptr;
    QAction *m_clipboardTextAction = nullptr;
    QAction *m_updateAction = nullptr;
    QAction *m_preferencesAction = nullptr;
    QAction *m_quitAction = nullptr;

    // Hotkey bookkeeping shared by the two Preferences reactions.
    QKeySequence m_lastCaptureHotkey;
    QKeySequence m_lastClipboardTextHotkey;
    bool m_hotkeyEditing = false;
    bool m_hotkeyChangePending = false;
    QKeySequence m_pendingCaptureHotkey;
    QKeySequence m_pendingClipboardTextHotkey;
};

// The whole program: start-up, event loop, exit code.
int vontrelMain(int argc, char *argv[]);
