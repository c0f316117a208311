#pragma once

#include <QObject>
#include <QStringList>

#include <functional>

class QSystemTrayIcon;
class QWidget;

// Tells the user something: a message box over the Preferences window (when it is open) or a balloon from
// the tray icon; where no tray shows the icon (GNOME without an extension, sway without a bar), the balloon
// goes to the desktop's notification service instead. A test turns the boxes and the tray's balloons off:
// they are then recorded as "title\ntext" and a question takes the answer set with setNextAnswer.
class Notifier final : public QObject
{
    Q_OBJECT

public:
    explicit Notifier(QObject *parent = nullptr);

    void setTrayIcon(QSystemTrayIcon *icon) { m_trayIcon = icon; }
    // The window the boxes belong to; null (the default) for boxes of their own.
    void setDialogParent(std::function<QWidget *()> parent) { m_dialogParent = std::move(parent); }

    void warn(const QString &title, const QString &text);
    void inform(const QString &title, const QString &text);
    // True when the user chose `accept`.
    bool ask(const QString &title, const QString &text, const QString &accept, const QString &reject);
    // From the tray icon while a tray shows it, else as a desktop notification; recorded either way.
    void balloon(const QString &title, const QString &text, int msecs);
    // Whether a tray shows the icon now (a tray may appear after the start).
    bool trayShown() const;

    // Desktop notifications go to the session bus (Linux only); they are sent whether interactive or not,
    // since a test's session bus is a private one.

    // Test hooks.
    void setInteractive(bool interactive) { m_interactive = interactive; }
    void setNextAnswer(bool accept) { m_nextAnswer = accept; }
    QStringList shownMessages() const { return m_shownMessages; }
    QStringList shownBalloons() const { return m_shownBalloons; }

private:
    QWidget *dialogParent() const { return m_dialogParent ? m_dialogParent() : nullptr; }
    bool record(const QString &title, const QString &text);
    void notifyDesktop(const QString &title, const QString &text, int msecs);

    QSystemTrayIcon *m_trayIcon = nullptr;
    std::function<QWidget *()> m_dialogParent;
    bool m_interactive = true;
    bool m_nextAnswer = false;
    QStringList m_shownMessages;
    QStringList m_shownBalloons;
};
