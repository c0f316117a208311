#include "platform/linux/PortalRequest.h"

#include <QAtomicInteger>
#include <QDBusObjectPath>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QGuiApplication>
#include <QMutex>
#include <QSet>
#include <QTimer>

namespace XdgPortal {

QString newToken()
{
    static QAtomicInteger<quint32> counter;
    return QStringLiteral("vontrel%1").arg(++counter);
}

QString requestPath(const QDBusConnection &bus, const QString &token)
{
    QString sender = bus.baseService();
    if (sender.startsWith(QLatin1Char(':')))
        sender.remove(0, 1);
    sender.replace(QLatin1Char('.'), QLatin1Char('_'));
    return QStringLiteral("/org/freedesktop/portal/desktop/request/%1/%2").arg(sender, token);
}

QDBusMessage methodCall(const QString &interface, const QString &method, const QVariantList &arguments)
{
    QDBusMessage call = QDBusMessage::createMethodCall(Service, Path, interface, method);
    call.setArguments(arguments);
    return call;
}

void registerApplication(const QDBusConnection &bus)
{
    const QString appId = QGuiApplication::desktopFileName();
    if (appId.isEmpty() || !bus.isConnected())
        return;
    static QMutex mutex;
    static QSet<QString> registered; // by unique connection name: a new connection registers again
    {
        QMutexLocker lock(&mutex);
        if (registered.contains(bus.baseService()))
            return;
        registered.insert(bus.baseService());
    }
    // Messages from one connection reach the portal in order, so this arrives before the request it precedes.
    QDBusMessage call = QDBusMessage::createMethodCall(
        Service, Path, QStringLiteral("org.freedesktop.host.portal.Registry"), QStringLiteral("Register"));
    call << appId << QVariantMap();
    bus.asyncCall(call);
}

} // namespace XdgPortal

PortalRequest::PortalRequest(const QDBusConnection &bus, QObject *parent)
    : QObject(parent)
    , m_bus(bus)
{}

PortalRequest *PortalRequest::send(const QDBusConnection &bus, const QDBusMessage &call, const QString &token,
                                   std::chrono::milliseconds patience, QObject *parent)
{
    XdgPortal::registerApplication(bus);
    auto *request = new PortalRequest(bus, parent);
    request->subscribe(XdgPortal::requestPath(bus, token));
    QTimer::singleShot(patience, request, [request, patience] {
        if (request->m_done)
            return;
        request->m_done = true;
        // Closing the request takes down a dialog the portal may still show for it.
        request->m_bus.asyncCall(QDBusMessage::createMethodCall(
            XdgPortal::Service, request->m_path, XdgPortal::RequestInterface, QStringLiteral("Close")));
        request->unsubscribe();
        const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(patience).count();
        emit request->failed(QDBusError(
            QDBusError::Timeout, QStringLiteral("the portal gave no answer within %1 s").arg(seconds)));
        request->deleteLater();
    });
    auto *watcher = new QDBusPendingCallWatcher(request->m_bus.asyncCall(call), request);
    connect(watcher, &QDBusPendingCallWatcher::finished, request, [request](QDBusPendingCallWatcher *w) {
        w->deleteLater();
        QDBusPendingReply<QDBusObjectPath> reply = *w;
        if (request->m_done)
            return;
        if (reply.isError()) {
            request->m_done = true;
            request->unsubscribe();
            emit request->failed(reply.error());
            request->deleteLater();
            return;
        }
        const QString handle = reply.value().path();
        if (handle != request->m_path) {
            request->unsubscribe();
            request->subscribe(handle);
        }
    });
    return request;
}

bool PortalRequest::subscribe(const QString &path)
{
    m_path = path;
    return m_bus.connect(XdgPortal::Service, path, XdgPortal::RequestInterface, QStringLiteral("Response"),
                         this, SLOT(onResponse(uint, QVariantMap)));
}

void PortalRequest::unsubscribe()
{
    m_bus.disconnect(XdgPortal::Service, m_path, XdgPortal::RequestInterface, QStringLiteral("Response"),
                     this, SLOT(onResponse(uint, QVariantMap)));
}

void PortalRequest::onResponse(uint response, const QVariantMap &results)
{
    if (m_done)
        return;
    m_done = true;
    unsubscribe();
    emit finished(response, results);
    deleteLater();
}
