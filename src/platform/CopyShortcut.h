#pragma once

#include <functional>

// The synthetic copy keystroke that makes the focused window of the frontmost application copy its
// selection: Ctrl+C on X11, Command+C on macOS. (The portable name of the macOS-only MacCopyShortcut.)
namespace CopyShortcut {

// Posts the keystroke. False, with nothing posted, when the process may not send input
// (Permissions::hasAccessibilityPermission() is false) or the events cannot be created.
bool sendCopy();

// Test hook: replaces the native keystroke (the permission check still runs first). An empty function
// restores the native one.
void setSenderForTesting(std::function<bool()> sender);

} // namespace CopyShortcut

// The native keystroke of the compiled-in backend; called by sendCopy() after the permission check.
bool vontrelSendNativeCopyKeystroke();
