#include "platform/linux/X11WindowActivation.h"

#include "platform/linux/X11Session.h"

#include <QWindow>

#include <xcb/xcb.h>

#include <cstdlib>
#include <cstring>

namespace {

xcb_atom_t atom(xcb_connection_t *connection, const char *name)
{
    xcb_intern_atom_reply_t *reply = xcb_intern_atom_reply(
        connection, xcb_intern_atom(connection, 0, static_cast<uint16_t>(std::strlen(name)), name), nullptr);
    const xcb_atom_t result = reply ? reply->atom : xcb_atom_t(XCB_ATOM_NONE);
    std::free(reply);
    return result;
}

} // namespace

void x11ActivateWindow(QWindow *window, unsigned int timestamp)
{
    if (!window)
        return;
    window->raise();
    xcb_connection_t *connection = X11Session::connection();
    if (!connection || timestamp == 0 || !window->handle()) {
        window->requestActivate();
        return;
    }
    const auto id = static_cast<xcb_window_t>(window->winId());
    // The window's user time tells the window manager which user action the window answers; without it a
    // newly mapped window counts as unrequested.
    const xcb_atom_t userTime = atom(connection, "_NET_WM_USER_TIME");
    xcb_change_property(connection, XCB_PROP_MODE_REPLACE, id, userTime, XCB_ATOM_CARDINAL, 32, 1,
                        &timestamp);

    xcb_client_message_event_t event;
    std::memset(&event, 0, sizeof(event));
    event.response_type = XCB_CLIENT_MESSAGE;
    event.format = 32;
    event.window = id;
    event.type = atom(connection, "_NET_ACTIVE_WINDOW");
    event.data.data32[0] = 1; // source: an application
    event.data.data32[1] = timestamp;
    event.data.data32[2] = XCB_WINDOW_NONE;
    xcb_send_event(connection, 0, X11Session::rootWindow(),
                   XCB_EVENT_MASK_SUBSTRUCTURE_REDIRECT | XCB_EVENT_MASK_SUBSTRUCTURE_NOTIFY,
                   reinterpret_cast<const char *>(&event));
    xcb_flush(connection);
}
