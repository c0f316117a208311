#include "platform/mac/MacPlatform.h"

#include "platform/mac/AccessibilitySelectedTextProvider.h"
#include "platform/mac/LaunchAgentAutoStart.h"
#include "platform/mac/MacNative.h"
#include "platform/mac/MacOcrAdapter.h"
#include "platform/mac/MacPermissionTexts.h"

#include <QDesktopServices>
#include <QPixmap>
#include <QScreen>
#include <QUrl>
#include <QWindow>

std::unique_ptr<Platform> Platform::create()
{
    return std::make_unique<MacPlatform>();
}

std::unique_ptr<IHotkeyBackend> MacPlatform::createHotkeyBackend()
{
    return macCreateHotkeyBackend();
}

std::unique_ptr<ISelectedTextProvider> MacPlatform::createSelectedTextProvider()
{
    return std::make_unique<AccessibilitySelectedTextProvider>(macCreateAccessibilityApi());
}

std::unique_ptr<IOcrProvider> MacPlatform::createOcrProvider(const QString &)
{
    // Vision chooses its models from the request's languages; Tesseract's language-data names mean nothing
    // here.
    return std::make_unique<MacOcrAdapter>();
}

std::unique_ptr<IAutoStartBackend> MacPlatform::createAutoStartBackend()
{
    return std::make_unique<LaunchAgentAutoStart>(std::make_unique<ProcessLaunchctlRunner>(),
                                                  LaunchAgentAutoStart::systemEnvironment());
}

void MacPlatform::grabScreen(QScreen *screen, QObject *context, std::function<void(const ScreenGrab &)> done)
{
    // Without Screen Recording access macOS hands back the desktop picture without other applications'
    // windows, not an error; the session checks the permission before it gets here.
    const ScreenGrab grab = vontrelGrabScreenNow(screen);
    if (context)
        done(grab);
}

bool MacPlatform::canSendCopyKeystroke()
{
    return macIsAccessibilityTrusted();
}

bool MacPlatform::sendCopyKeystroke()
{
    // Without Accessibility trust the system drops synthetic events silently; say so instead.
    return macIsAccessibilityTrusted() && macPostCopyKeystroke();
}

bool MacPlatform::hasPermission(Permission permission)
{
    switch (permission) {
    case Permission::ScreenRecording:
        return macHasScreenCaptureAccess();
    case Permission::Accessibility:
        return macIsAccessibilityTrusted();
    }
    return true;
}

bool MacPlatform::requestPermission(Permission permission)
{
    switch (permission) {
    case Permission::ScreenRecording:
        return macRequestScreenCaptureAccess();
    case Permission::Accessibility:
        return macRequestAccessibilityTrust();
    }
    return true;
}

bool MacPlatform::openPermissionSettings(Permission permission)
{
    const QUrl pane(macPermissionPaneUrl(permission));
    if (pane.isValid() && QDesktopServices::openUrl(pane))
        return true;
    return QDesktopServices::openUrl(QUrl(macSecurityPaneUrl()));
}

Platform::GuideText MacPlatform::permissionGuideText(Permission permission) const
{
    return macPermissionGuideText(permission);
}

void MacPlatform::activateApplication()
{
    macActivateApplication();
}

void MacPlatform::activateWindow(QWindow *window, quint64)
{
    // A menu-bar application is never active on its own; its window comes to the front only with it.
    macActivateApplication();
    if (window) {
        window->raise();
        window->requestActivate();
    }
}

void MacPlatform::setDockIconVisible(bool visible)
{
    macSetDockIconVisible(visible);
}

void MacPlatform::roundWindowCorners(QWindow *window, int radius)
{
    macRoundWindowCorners(window, radius);
}
