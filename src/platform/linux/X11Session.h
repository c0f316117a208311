#pragma once

// Access to the display server the application runs on. Xlib and xcb headers stay in the .cpp files; these
// forward declarations match their typedefs.
struct xcb_connection_t;
struct _XDisplay;

namespace X11Session {

// True when the application talks to an X11 server (the xcb platform plugin); false on Wayland-only,
// offscreen or console runs. Logs the consequences once per process when false.
bool isAvailable();
// Qt's own connection, or null. Grabs must be made on it: their events arrive through its event queue.
xcb_connection_t *connection();
// The root window of Qt's default screen; 0 without X11.
unsigned int rootWindow();

} // namespace X11Session
