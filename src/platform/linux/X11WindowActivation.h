#pragma once

class QWindow;

// Asks the window manager to activate the window on behalf of the user action at `timestamp` (X server
// time), through _NET_ACTIVE_WINDOW. A window manager with focus-stealing prevention ignores a plain
// XSetInputFocus or a request without a time, so a window opened by a global hotkey would stay behind the
// application the user is in. Falls back to Qt's own activation when the time is unknown (0) or there is
// no X11 connection.
void x11ActivateWindow(QWindow *window, unsigned int timestamp);
