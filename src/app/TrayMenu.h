#pragma once

#include <QKeySequence>
#include <QObject>
#include <QSystemTrayIcon>

#include <memory>

class QAction;
class QMenu;

// The tray icon and its menu: the two actions (their hotkeys shown beside them and in the tool tip), the
// update check, Preferences and Quit. The entries only ask; the application decides what happens.
class TrayMenu final : public QObject
{
    Q_OBJECT

public:
    // With recolouring, the tray shows the monochrome icon in the panel's colour; otherwise the full one.
    explicit TrayMenu(bool trayRecoloursIcons, QObject *parent = nullptr);
    ~TrayMenu() override;

    void setHotkeys(const QKeySequence &capture, const QKeySequence &clipboardText);
    // While the hotkeys do not work the entries show none, and a first, inert entry says why; an empty reason
    // shows the hotkeys again.
    void setHotkeysOff(const QString &reason);
    // While a check runs the entry reads "Checking..." and cannot be chosen again.
    void setChecking(bool checking);
    void retranslate();

    QSystemTrayIcon *icon() const { return m_icon.get(); }
    QMenu *menu() const { return m_menu.get(); }
    QAction *hotkeysOffAction() const { return m_hotkeysOff; }
    QAction *captureAction() const { return m_capture; }
    QAction *clipboardTextAction() const { return m_clipboardText; }
    QAction *updateAction() const { return m_update; }
    QAction *preferencesAction() const { return m_preferences; }
    QAction *quitAction() const { return m_quit; }

signals:
    void captureRequested();
    void clipboardTextRequested();
    void updateCheckRequested();
    void preferencesRequested();

private:
    void onActivated(QSystemTrayIcon::ActivationReason reason);

    // The menu first, so the icon that refers to it goes before it.
    std::unique_ptr<QMenu> m_menu;
    std::unique_ptr<QSystemTrayIcon> m_icon;
    QAction *m_hotkeysOff = nullptr;
    QString m_offReason;
    QKeySequence m_captureHotkey;
    QKeySequence m_clipboardTextHotkey;
    QAction *m_capture = nullptr;
    QAction *m_clipboardText = nullptr;
    QAction *m_update = nullptr;
    QAction *m_preferences = nullptr;
    QAction *m_quit = nullptr;
};
