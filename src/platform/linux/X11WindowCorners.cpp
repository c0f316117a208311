#include "platform/linux/X11WindowCorners.h"

#include <QByteArray>
#include <QGuiApplication>
#include <QtGui/qguiapplication_platform.h>

#include <X11/Xlib.h>

// An X11 screen has a compositing manager when someone owns its _NET_WM_CM_Sn selection (EWMH). Only then
// does a translucent window show the desktop through its transparent corners; without one they turn black.
bool x11ComposesTranslucentWindows()
{
    auto *x11 = qGuiApp ? qGuiApp->nativeInterface<QNativeInterface::QX11Application>() : nullptr;
    Display *display =
        x11 && QGuiApplication::platformName() == QLatin1String("xcb") ? x11->display() : nullptr;
    if (!display)
        return false;
    const QByteArray name = "_NET_WM_CM_S" + QByteArray::number(DefaultScreen(display));
    const Atom selection = XInternAtom(display, name.constData(), False);
    return XGetSelectionOwner(display, selection) != 0;
}
