#pragma once

#include <QObject>
#include <QStringList>

#include <functional>

class QSystemTrayIcon;
class QWidget;

// Tells the user something: a message box over the Preferences window (when it is open) or a balloon from
// the tray icon. A test turns the boxes off: they are then recorded as "title\ntext" and a question takes
// the answer set with setNextAnswer.
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
    // A balloon shows only when there is a tray icon; it is recorded either way.
    void balloon(const QString &title, const QString &text, int msecs);

    // Test hooks.
    void setInteractive(bool interactive) { m_interactive = interactive; }
    void setNextAnswer(bool accept) { m_nextAnswer = accept; }
    QStringList shownMessages() const { return m_shownMessages; }
    QStringList shownBalloons() const { return m_shownBalloons; }

private:
    QWidget *dialogParent() const { return m_dialogParent ? m_dialogParent() : nullptr; }
    bool record(const QString &title, const QString &text);

    QSystemTrayIcon *m_trayIcon = nullptr;
    std::function<QWidget *()> m_dialogParent;
    bool m_interactive = true;
    bool m_nextAnswer = false;
    QStringList m_shownMessages;
    QStringList m_shownBalloons;
};
