#include "platform/Permissions.h"

#import <AppKit/AppKit.h>
#include <ApplicationServices/ApplicationServices.h>

// Both probes only read the state macOS keeps per application; neither shows a system prompt.
bool vontrelNativeHasAccessibilityPermission()
{
    return AXIsProcessTrusted();
}

bool vontrelNativeHasScreenRecordingPermission()
{
    return CGPreflightScreenCaptureAccess();
}

void vontrelNativeActivateApp()
{
    @autoreleasepool {
        [[NSRunningApplication currentApplication] activateWithOptions:NSApplicationActivateAllWindows];
    }
}

bool vontrelNativeHasSystemSettingsPanes()
{
    return true;
}

QString vontrelNativeSessionLimitation()
{
    return QString();
}
