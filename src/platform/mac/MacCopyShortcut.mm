#include "platform/mac/MacCf.h"
#include "platform/mac/MacNative.h"

#include <ApplicationServices/ApplicationServices.h>

namespace {

// kVK_ANSI_C: the key in the C position of an ANSI keyboard, whatever the layout prints on it.
constexpr CGKeyCode kKeyC = 8;

} // namespace

bool macPostCopyKeystroke()
{
    CfRef<CGEventRef> press(CGEventCreateKeyboardEvent(nullptr, kKeyC, true));
    CfRef<CGEventRef> release(CGEventCreateKeyboardEvent(nullptr, kKeyC, false));
    if (!press || !release)
        return false;
    // The user is still holding the hotkey's modifiers; Command alone keeps them out of the copy.
    CGEventSetFlags(press.get(), kCGEventFlagMaskCommand);
    CGEventSetFlags(release.get(), kCGEventFlagMaskCommand);
    CGEventPost(kCGHIDEventTap, press.get());
    CGEventPost(kCGHIDEventTap, release.get());
    return true;
}
