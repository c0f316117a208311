#include "platform/linux/WaylandPlatform.h"

#include "platform/linux/PortalHotkeyBackend.h"
#include "platform/linux/PortalScreenshot.h"
#include "platform/linux/WaylandDataControl.h"
#include "platform/linux/WaylandSelectedTextProvider.h"
#include "platform/linux/X11Session.h"

#include <QClipboard>
#include <QDBusMessage>
#include <QDebug>
#include <QGuiApplication>
#include <QScreen>
#include <QWindow>

WaylandPlatform::WaylandPlatform(const QDBusConnection &bus)
    : m_bus(bus)
{}

bool WaylandPlatform::isWaylandSession()
{
    return !X11Session::connection() && QGuiApplication::platformName().startsWith(QLatin1String("wayland"));
}

std::unique_ptr<IHotkeyBackend> WaylandPlatform::createHotkeyBackend()
{
    return std::make_unique<PortalHotkeyBackend>(m_bus);
}

std::unique_ptr<ISelectedTextProvider> WaylandPlatform::createSelectedTextProvider()
{
    return std::make_unique<WaylandSelectedTextProvider>();
}

void WaylandPlatform::grabScreen(QScreen *, QObject *context, std::function<void(const ScreenGrab &)> done)
{
    auto *portal = new PortalScreenshot(m_bus, context);
    auto finish = [portal, done](const ScreenGrab &grab) {
        portal->deleteLater();
        done(grab);
    };
    connect(portal, &PortalScreenshot::taken, portal, [finish](const QImage &whole) {
        // The portal's image shows the whole desktop, in logical or in device pixels depending on the
        // compositor; the capture cuts each screen's part from it by the screens' logical geometry.
        const QScreen *primary = QGuiApplication::primaryScreen();
        const QRect desktop = primary ? primary->virtualGeometry() : QRect();
        if (whole.isNull() || desktop.isEmpty()) {
            finish({QImage(), QStringLiteral("The portal's screenshot is empty")});
            return;
        }
        QImage image = whole;
        image.setDevicePixelRatio(qreal(whole.width()) / desktop.width());
        finish({image, QString(), desktop});
    });
    connect(portal, &PortalScreenshot::waiting, this, [this] {
        emit notice(
            QCoreApplication::translate("WaylandPlatform", "Waiting for Screenshot Permission"),
            QCoreApplication::translate(
                "WaylandPlatform",
                "The desktop has not handed over the screenshot yet. If it asks \"Allow Applications to "
                "Take Screenshots?\", choose Allow: Vontrel needs one screenshot per capture to read the "
                "text in the rectangle you drag, and keeps no picture."));
    });
    connect(portal, &PortalScreenshot::refused, portal,
            [this, finish](bool remembered, const QString &storeAppId) {
                if (remembered) {
                    m_refusedUnder = storeAppId;
                    // After the capture's own error, so the question comes last.
                    QMetaObject::invokeMethod(
                        this, [this] { emit refusalRemembered(Permission::ScreenRecording); },
                        Qt::QueuedConnection);
                }
                if (!remembered) {
                    finish({{},
                            QCoreApplication::translate("WaylandPlatform",
                                                        "The desktop did not allow the screenshot.")});
                    return;
                }
                finish({{},
                        QCoreApplication::translate("WaylandPlatform",
                                                    "The desktop refuses Vontrel's screenshots without "
                                                    "asking: someone chose Deny when it asked "
                                                    "\"Allow Applications to Take Screenshots?\", and it "
                                                    "keeps that answer. To be asked again, "
                                                    "run this in a terminal, then capture again:\n%1")
                            .arg(QStringLiteral("gdbus call --session --dest %1 --object-path %2 --method "
                                                "%1.DeletePermission %3 %4 '%5'")
                                     .arg(PortalScreenshot::PermissionStoreService,
                                          PortalScreenshot::PermissionStorePath,
                                          PortalScreenshot::PermissionTable, PortalScreenshot::PermissionId,
                                          storeAppId))});
            });
    connect(portal, &PortalScreenshot::failed, portal, [finish](const QString &reason) {
        finish({QImage(), QStringLiteral("Screenshot portal: %1").arg(reason)});
    });
    connect(portal, &PortalScreenshot::unavailable, portal, [finish](const QString &interfaceName) {
        finish({QImage(),
                QCoreApplication::translate("WaylandPlatform",
                                            "This desktop's portal has no %1 interface, so screen capture "
                                            "is off.")
                    .arg(interfaceName)});
    });
    portal->take();
}

bool WaylandPlatform::forgetRefusal(Permission permission)
{
    if (permission != Permission::ScreenRecording || !m_refusedUnder)
        return false;
    QDBusMessage call = QDBusMessage::createMethodCall(
        PortalScreenshot::PermissionStoreService, PortalScreenshot::PermissionStorePath,
        PortalScreenshot::PermissionStoreService, QStringLiteral("DeletePermission"));
    call << PortalScreenshot::PermissionTable << PortalScreenshot::PermissionId << *m_refusedUnder;
    const QDBusMessage reply = m_bus.call(call, QDBus::Block, 5000);
    if (reply.type() == QDBusMessage::ErrorMessage) {
        qWarning().noquote() << "WaylandPlatform: cannot forget the screenshot refusal:"
                             << reply.errorMessage();
        return false;
    }
    m_refusedUnder.reset();
    return true;
}

std::optional<QString> WaylandPlatform::unfocusedClipboardText()
{
    // Our own clipboard is served by this thread's event loop, which a data-control read would block.
    if (QGuiApplication::clipboard()->ownsClipboard())
        return std::nullopt;
    using namespace std::chrono_literals;
    return WaylandDataControl::text(WaylandDataControl::Selection::Clipboard, 1000ms);
}

bool WaylandPlatform::clipboardNeedsFocus() const
{
    if (!m_dataControl)
        m_dataControl = WaylandDataControl::available();
    return !*m_dataControl;
}

bool WaylandPlatform::hasPermission(Permission)
{
    // Nothing is granted up front: the portal asks the user when a hotkey is bound or a screenshot taken.
    return true;
}

void WaylandPlatform::activateWindow(QWindow *window, quint64)
{
    // A Wayland compositor decides focus itself; the portal's timestamps are not activation tokens.
    if (!window)
        return;
    window->raise();
    window->requestActivate();
}
