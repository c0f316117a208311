#pragma once

#include <QIcon>
#include <QKeySequence>
#include <QObject>
#include <QPointer>
#include <QStringList>

#include <memory>

class QAction;
class QMenu;
class QSystemTrayIcon;

// Runs the program's start-up and owns everything it creates: the services, the tray icon and its menu.
// Tests construct it with dialogs turned off and inspect the tray menu and the boxes it would have shown.
class VontrelApp final : public QObject
{
    Q_OBJECT

public:
    explicit VontrelApp(QObject *parent = nullptr);
    ~VontrelApp() override;

    // Everything before the event loop. Expects the QApplication to exist with its identity set.
    void start();

    // When false, message boxes are not shown but recorded as "title\ntext" (for tests).
    void setInteractive(bool interactive) { m_interactive = interactive; }
    QStringList shownMessages() const { return m_shownMessages; }

    QMenu *trayMenu() const { return m_menu.get(); }
    QSystemTrayIcon *trayIcon() const { return m_trayIcon.get(); }
    QAction *captureAction() const { return m_captureAction; }
    QAction *clipboardTextAction() const { return m_clipboardTextAction; }
    QAction *updateAction() const { return m_updateAction; }
    QAction *preferencesAction() const { return m_preferencesAction; }
    QAction *quitAction() const { return m_quitAction; }

    // The colour the tray menu's icons are tinted with for the current appearance.
    static QColor menuIconColor();

public slots:
    void updateTrayTexts();

private:
    void completeConfiguration();
    void createTray();
    void showWarning(const QString &title, const QString &text);

    bool m_interactive = true;
    QStringList m_shownMessages;

    std::unique_ptr<QSystemTrayIcon> m_trayIcon;
    std::unique_ptr<QMenu> m_menu;
    QAction *m_captureAction = nullptr;
    QAction *m_clipboardTextAction = nullptr;
    QAction *m_updateAction = nullptr;
    QAction *m_preferencesAction = nullptr;
    QAction *m_quitAction = nullptr;

    QKeySequence m_lastCaptureHotkey;
    QKeySequence m_lastClipboardTextHotkey;
};

// The whole program: start-up, event loop, exit code.
int vontrelMain(int argc, char *argv[]);
