#include "app/Notifier.h"

#include <QDebug>
#include <QGuiApplication>
#include <QMessageBox>
#include <QPushButton>
#include <QSystemTrayIcon>

#include <utility>

#ifdef Q_OS_LINUX
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#endif

Notifier::Notifier(QObject *parent)
    : QObject(parent)
{}

bool Notifier::record(const QString &title, const QString &text)
{
    if (m_interactive)
        return false;
    m_shownMessages << title + QLatin1Char('\n') + text;
    return true;
}

void Notifier::warn(const QString &title, const QString &text)
{
    if (!record(title, text))
        QMessageBox::warning(dialogParent(), title, text, QMessageBox::Ok);
}

void Notifier::inform(const QString &title, const QString &text)
{
    if (!record(title, text))
        QMessageBox::information(dialogParent(), title, text, QMessageBox::Ok);
}

bool Notifier::ask(const QString &title, const QString &text, const QString &accept, const QString &reject)
{
    if (record(title, text))
        return std::exchange(m_nextAnswer, false);
    QMessageBox box(QMessageBox::Information, title, text, QMessageBox::NoButton, dialogParent());
    QPushButton *yes = box.addButton(accept, QMessageBox::AcceptRole);
    box.addButton(reject, QMessageBox::RejectRole);
    box.exec();
    return box.clickedButton() == yes;
}

bool Notifier::trayShown() const
{
    return m_trayIcon && m_trayIcon->isVisible() && QSystemTrayIcon::isSystemTrayAvailable();
}

void Notifier::balloon(const QString &title, const QString &text, int msecs)
{
    m_shownBalloons << title + QLatin1Char('\n') + text;
    if (trayShown()) {
        if (m_interactive)
            m_trayIcon->showMessage(title, text, QSystemTrayIcon::Warning, msecs);
        return;
    }
    notifyDesktop(title, text, msecs);
}

void Notifier::notifyDesktop(const QString &title, const QString &text, int msecs)
{
#ifdef Q_OS_LINUX
    const QString service = QStringLiteral("org.freedesktop.Notifications");
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected()) {
        qWarning().noquote() << "Notifier: no tray and no session bus; not shown:" << title << "-" << text;
        return;
    }
    QString appId = QGuiApplication::desktopFileName();
    if (appId.isEmpty())
        appId = QStringLiteral("app.vontrel.Vontrel");
    QDBusMessage call = QDBusMessage::createMethodCall(
        service, QStringLiteral("/org/freedesktop/Notifications"), service, QStringLiteral("Notify"));
    // Notify(app_name, replaces_id, app_icon, summary, body, actions, hints, expire_timeout)
    call << QStringLiteral("Vontrel") << uint(0) << appId << title << text << QStringList()
         << QVariantMap{{QStringLiteral("desktop-entry"), appId},
                        {QStringLiteral("urgency"), QVariant::fromValue(uchar(1))}}
         << msecs;
    auto *watcher = new QDBusPendingCallWatcher(bus.asyncCall(call), this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this, [title, text](QDBusPendingCallWatcher *w) {
        w->deleteLater();
        const QDBusPendingReply<uint> reply = *w;
        if (reply.isError())
            qWarning().noquote() << "Notifier: the desktop's notification service failed:"
                                 << reply.error().message() << "; not shown:" << title << "-" << text;
    });
#else
    // The Dock or the menu bar icon is always there on macOS.
    qWarning().noquote() << "Notifier: no tray icon; not shown:" << title << "-" << text;
    Q_UNUSED(msecs)
#endif
}
