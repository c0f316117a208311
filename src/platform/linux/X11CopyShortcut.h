#pragma once

// Posts Ctrl+C through XTest to the focused X client, with the modifiers the user still holds lifted for its
// duration. False, with nothing posted, when there is no X display, no XTEST or no Control or C key.
bool x11SendCopyKeystroke();
