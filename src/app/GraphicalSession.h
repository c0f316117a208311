#pragma once

#include <QString>

// What start-up says, on one line and with exit status 1, when there is no display to show windows on.

// The line for an X11/Wayland system whose environment names no display; empty when a display is named, or
// when the arguments or QT_QPA_PLATFORM choose a platform that needs none (offscreen, vnc, ...).
QString vontrelMissingDisplayMessage(int argc, char *argv[]);

// Between these two calls (around the QApplication's construction) Qt's fatal "no platform plugin could be
// initialized" becomes that line and exit status 1 instead of an abort. Other messages are held back and
// passed on once the application exists.
void vontrelGuardPlatformStart();
void vontrelEndPlatformStartGuard();
