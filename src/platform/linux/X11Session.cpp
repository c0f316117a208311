#include "platform/linux/X11Session.h"

#include "log/LogCategories.h"

#include <QDebug>
#include <QGuiApplication>
#include <QtGui/qguiapplication_platform.h>

#include <xcb/xcb.h>

namespace {

QNativeInterface::QX11Application *x11Application()
{
    auto *app = qobject_cast<QGuiApplication *>(QCoreApplication::instance());
    if (!app)
        return nullptr;
    return app->nativeInterface<QNativeInterface::QX11Application>();
}

} // namespace

bool X11Session::isAvailable()
{
    const bool available = connection() != nullptr;
    static bool warned = false;
    if (!available && !warned) {
        warned = true;
        qCWarning(lcPlatform).noquote()
            << "X11Session: no X11 connection (platform"
            << (qobject_cast<QGuiApplication *>(QCoreApplication::instance())
                    ? QGuiApplication::platformName()
                    : QStringLiteral("none"))
            << "): global hotkeys, screen capture and the copy keystroke need an X11 session;"
               " translating typed or copied text still works";
    }
    return available;
}

xcb_connection_t *X11Session::connection()
{
    QNativeInterface::QX11Application *x11 = x11Application();
    return x11 ? x11->connection() : nullptr;
}

unsigned int X11Session::rootWindow()
{
    xcb_connection_t *conn = connection();
    if (!conn)
        return 0;
    const xcb_screen_t *screen = xcb_setup_roots_iterator(xcb_get_setup(conn)).data;
    return screen ? screen->root : 0;
}
