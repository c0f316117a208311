#include "platform/linux/PortalScreenshot.h"

#include "platform/linux/PortalRequest.h"

#include <QImageReader>
#include <QUrl>

PortalScreenshot::PortalScreenshot(const QDBusConnection &bus, QObject *parent,
                                   std::chrono::milliseconds patience)
    : QObject(parent)
    , m_bus(bus)
    , m_patience(patience)
{}

void PortalScreenshot::take()
{
    if (m_busy)
        return;
    m_busy = true;
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
    m_busy = false;
    if (response != XdgPortal::Success) {
        emit failed(response == XdgPortal::Cancelled
                        ? QStringLiteral("the screenshot was refused")
                        : QStringLiteral("Screenshot answered %1").arg(response));
        return;
    }
    const QUrl uri(results.value(QStringLiteral("uri")).toString());
    if (!uri.isLocalFile()) {
        emit failed(QStringLiteral("the portal returned no local file (%1)").arg(uri.toString()));
        return;
    }
    const QString path = uri.toLocalFile();
    QImageReader reader(path);
    QImage image = reader.read();
    if (image.isNull()) {
        emit failed(QStringLiteral("cannot read %1: %2").arg(path, reader.errorString()));
        return;
    }
    emit taken(image);
}

QImage PortalScreenshot::screenPart(const QImage &whole, const QRect &desktop, const QRect &screen)
{
    if (whole.isNull() || desktop.isEmpty())
        return {};
    // The portal's image is in device pixels; fractional scaling makes the ratio non-integral.
    const qreal ratio = qreal(whole.width()) / desktop.width();
    const QRect source(qRound((screen.x() - desktop.x()) * ratio), qRound((screen.y() - desktop.y()) * ratio),
                       qRound(screen.width() * ratio), qRound(screen.height() * ratio));
    QImage part = whole.copy(source.intersected(whole.rect()));
    part.setDevicePixelRatio(ratio);
    return part;
}
