#include "platform/linux/PortalScreenshot.h"

#include "platform/linux/PortalRequest.h"

#include <QDBusArgument>
#include <QDBusMetaType>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QDBusVariant>
#include <QDebug>
#include <QFile>
#include <QFileInfo>
#include <QGuiApplication>
#include <QImageReader>
#include <QTimer>
#include <QUrl>

using PermissionMap = QMap<QString, QStringList>;

std::optional<QString> vontrelScreenshotDenied(const PermissionMap &permissions, const QString &appId)
{
    for (const QString &id : {appId, QString()}) {
        const auto it = permissions.constFind(id);
        // A newer portal's entry for this application decides; the empty one is only an older portal's.
        if (it != permissions.cend())
            return it->value(0) == QLatin1String("no") ? std::optional<QString>(id) : std::nullopt;
    }
    return std::nullopt;
}

PortalScreenshot::PortalScreenshot(const QDBusConnection &bus, QObject *parent,
                                   std::chrono::milliseconds patience, std::chrono::milliseconds waitNotice)
    : QObject(parent)
    , m_bus(bus)
    , m_patience(patience)
    , m_waitNotice(waitNotice)
{
    qDBusRegisterMetaType<PermissionMap>();
}

void PortalScreenshot::take()
{
    if (m_busy)
        return;
    m_busy = true;
    const quint64 number = ++m_request;
    QTimer::singleShot(m_waitNotice, this, [this, number] {
        if (m_busy && number == m_request)
            emit waiting();
    });
    const QString token = XdgPortal::newToken();
    const QVariantMap options{{QStringLiteral("handle_token"), token},
                              {QStringLiteral("interactive"), false},
                              {QStringLiteral("modal"), false}};
    auto *request = PortalRequest::send(
        m_bus, XdgPortal::methodCall(Interface, QStringLiteral("Screenshot"), {QString(), options}), token,
        m_patience, this);
    connect(request, &PortalRequest::finished, this, &PortalScreenshot::finish);
    connect(request, &PortalRequest::failed, this, [this](const QDBusError &error) {
        m_busy = false;
        ++m_request;
        switch (error.type()) {
        case QDBusError::ServiceUnknown:
        case QDBusError::UnknownObject:
        case QDBusError::UnknownInterface:
        case QDBusError::UnknownMethod:
            emit unavailable(Interface);
            break;
        default:
            emit failed(error.message());
        }
    });
}

void PortalScreenshot::finish(uint response, const QVariantMap &results)
{
    if (response == XdgPortal::Cancelled) {
        m_busy = false;
        emit refused(false, QString());
        return;
    }
    if (response != XdgPortal::Success) {
        // The portal answers a kept "no" and a failure alike; the permission store tells them apart.
        checkStoredDenial();
        return;
    }
    m_busy = false;
    const QUrl uri(results.value(QStringLiteral("uri")).toString());
    if (!uri.isLocalFile()) {
        emit failed(QStringLiteral("the portal returned no local file (%1)").arg(uri.toString()));
        return;
    }
    const QString path = uri.toLocalFile();
    QImageReader reader(path);
    QImage image = reader.read();
    // Read or not, the file is of no further use, and it shows the whole screen to whoever finds it.
    if (QFileInfo(path).isFile()) {
        if (QFile::remove(path))
            qInfo().noquote() << "PortalScreenshot: read and removed" << path;
        else
            qWarning().noquote() << "PortalScreenshot: cannot remove" << path;
    }
    if (image.isNull()) {
        emit failed(QStringLiteral("cannot read %1: %2").arg(path, reader.errorString()));
        return;
    }
    emit taken(image);
}

void PortalScreenshot::checkStoredDenial()
{
    QDBusMessage lookup = QDBusMessage::createMethodCall(PermissionStoreService, PermissionStorePath,
                                                         PermissionStoreService, QStringLiteral("Lookup"));
    lookup << PermissionTable << PermissionId;
    auto *watcher = new QDBusPendingCallWatcher(m_bus.asyncCall(lookup, 5000), this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this, [this](QDBusPendingCallWatcher *w) {
        w->deleteLater();
        m_busy = false;
        const QDBusPendingReply<PermissionMap, QDBusVariant> reply = *w;
        const std::optional<QString> denied =
            reply.isError()
                ? std::nullopt
                : vontrelScreenshotDenied(reply.argumentAt<0>(), QGuiApplication::desktopFileName());
        if (denied) {
            emit refused(true, *denied);
            return;
        }
        emit failed(QStringLiteral("Screenshot answered %1").arg(XdgPortal::Ended));
    });
}
