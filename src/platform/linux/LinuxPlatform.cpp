#include "platform/linux/LinuxPlatform.h"

#include "platform/linux/TesseractOcrProvider.h"
#include "platform/linux/WaylandPlatform.h"
#include "platform/linux/X11CopyShortcut.h"
#include "platform/linux/X11HotkeyBackend.h"
#include "platform/linux/X11SelectedTextProvider.h"
#include "platform/linux/X11Session.h"
#include "platform/linux/X11TerminalWindow.h"
#include "platform/linux/X11WindowActivation.h"
#include "platform/linux/X11WindowCorners.h"
#include "platform/linux/XdgAutoStartBackend.h"

#include <QCoreApplication>
#include <QPixmap>
#include <QScreen>
#include <QWindow>

// The same binary serves X11 and Wayland desktops; the session it finds decides.
std::unique_ptr<Platform> Platform::create()
{
    if (WaylandPlatform::isWaylandSession())
        return std::make_unique<WaylandPlatform>();
    return std::make_unique<LinuxPlatform>();
}

std::unique_ptr<IHotkeyBackend> LinuxPlatform::createHotkeyBackend()
{
    return std::make_unique<X11HotkeyBackend>();
}

std::unique_ptr<ISelectedTextProvider> LinuxPlatform::createSelectedTextProvider()
{
    return std::make_unique<X11SelectedTextProvider>();
}

std::unique_ptr<IOcrProvider> LinuxPlatform::createOcrProvider(const QString &languages)
{
    return std::make_unique<TesseractOcrProvider>(languages);
}

std::unique_ptr<IAutoStartBackend> LinuxPlatform::createAutoStartBackend()
{
    return std::make_unique<XdgAutoStartBackend>();
}

bool LinuxPlatform::canGrabScreen() const
{
    return X11Session::isAvailable();
}

void LinuxPlatform::grabScreen(QScreen *screen, QObject *context,
                               std::function<void(const ScreenGrab &)> done)
{
    const ScreenGrab grab = vontrelGrabScreenNow(screen);
    if (context)
        done(grab);
}

bool LinuxPlatform::canSendCopyKeystroke()
{
    return X11Session::isAvailable();
}

bool LinuxPlatform::sendCopyKeystroke()
{
    return canSendCopyKeystroke() && x11SendCopyKeystroke();
}

bool LinuxPlatform::focusedWindowIsTerminal()
{
    return X11TerminalWindow::focusedWindowIsTerminal();
}

bool LinuxPlatform::hasPermission(Permission)
{
    // Nothing has to be granted on X11; what can be missing is the X11 session itself.
    return X11Session::isAvailable();
}

Platform::GuideText LinuxPlatform::permissionGuideText(Permission permission) const
{
    // In the guide's translation context: the texts are the guide's, only their choice is the platform's.
    if (permission == Permission::ScreenRecording) {
        return {QCoreApplication::translate("PermissionGuideDialog", "Screen capture needs an X11 session"),
                QCoreApplication::translate(
                    "PermissionGuideDialog",
                    "<p>Vontrel captures the screen through the X11 display server, and this desktop session "
                    "offers none (for example a Wayland session without X11).</p>"
                    "<p><b>Steps</b></p><ol><li>Log out</li>"
                    "<li>At the login screen, choose a session that runs on X11 (often named \"on Xorg\" or "
                    "\"(X11)\")</li><li>Log in and start Vontrel again</li></ol>"
                    "<p>Translating typed or copied text works in any session.</p>")};
    }
    return {
        QCoreApplication::translate("PermissionGuideDialog", "Reading the selection needs an X11 session"),
        QCoreApplication::translate(
            "PermissionGuideDialog",
            "<p>Vontrel sends a Ctrl+C to the current application to read its selected text, and "
            "restores your clipboard. Sending such input needs the X11 display server, and this desktop "
            "session offers none (for example a Wayland session without X11).</p>"
            "<p><b>Steps</b></p><ol><li>Log out</li>"
            "<li>At the login screen, choose a session that runs on X11 (often named \"on Xorg\" or "
            "\"(X11)\")</li><li>Log in and start Vontrel again</li></ol>"
            "<p>Until then, copy the text yourself and use the clipboard text hotkey's window.</p>")};
}

QString LinuxPlatform::sessionLimitation() const
{
    if (X11Session::isAvailable())
        return QString();
    return QCoreApplication::translate(
        "Permissions",
        "This desktop session has no X11 display server (for example a Wayland session). Global "
        "hotkeys, screen capture and reading the selected text need X11; log in to an X11 "
        "session to use them. Translating typed or copied text works as usual.");
}

void LinuxPlatform::activateApplication()
{
    // X11 has no application-wide activation; activateWindow() raises and focuses the window itself.
}

void LinuxPlatform::activateWindow(QWindow *window, quint64 timestamp)
{
    x11ActivateWindow(window, static_cast<unsigned int>(timestamp));
}

bool LinuxPlatform::trayRecoloursIcons() const
{
    // Tray hosts on X11 (XEmbed and status-notifier panels) draw the icon as it is, on light or dark panels
    // alike.
    return false;
}

bool LinuxPlatform::composesTranslucentWindows() const
{
    return x11ComposesTranslucentWindows();
}

void LinuxPlatform::roundWindowCorners(QWindow *, int)
{
    // X11 can only clip a window with a 1-bit shape, and that cut runs jagged through the 1 px border. The
    // rounding is the style sheet's, drawn antialiased where a compositor makes the corners translucent;
    // without one the window keeps square corners and a whole border.
}
