#include "platform/DockIcon.h"

#import <AppKit/AppKit.h>

// The bundle starts as a menu-bar agent (LSUIElement); an open Preferences window gets a Dock icon and a
// menu bar of its own so that it can be found again behind other windows.
void setDockIconVisible(bool visible)
{
    @autoreleasepool {
        if (!NSApp)
            return;
        const NSApplicationActivationPolicy wanted =
            visible ? NSApplicationActivationPolicyRegular : NSApplicationActivationPolicyAccessory;
        if (NSApp.activationPolicy != wanted)
            [NSApp setActivationPolicy:wanted];
        if (visible)
            [NSApp activateIgnoringOtherApps:YES];
    }
}

// The menu bar draws a monochrome icon in its own colour for light and dark appearances alike.
bool vontrelTrayRecoloursIcons()
{
    return true;
}
