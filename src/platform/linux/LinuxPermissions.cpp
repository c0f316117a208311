#include "platform/Permissions.h"

#include "platform/linux/X11Session.h"

#include <QCoreApplication>

// On X11 nothing has to be granted; what can be missing is the X11 session itself.
bool vontrelNativeHasAccessibilityPermission()
{
    return X11Session::isAvailable();
}

bool vontrelNativeHasScreenRecordingPermission()
{
    return X11Session::isAvailable();
}

void vontrelNativeActivateApp()
{
    // X11 has no application-wide activation; the caller raises and activates its own window.
}

bool vontrelNativeHasSystemSettingsPanes()
{
    return false;
}

QString vontrelNativeSessionLimitation()
{
    if (X11Session::isAvailable())
        return QString();
    return QCoreApplication::translate(
        "Permissions",
        "This desktop session has no X11 display server (for example a Wayland session). Global "
        "hotkeys, screen capture and reading the selected text need X11; log in to an X11 "
        "session to use them. Translating typed or copied text works as usual.");
}
