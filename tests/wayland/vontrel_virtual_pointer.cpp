// A pointer for a headless wlroots compositor, through the virtual-pointer protocol: a headless sway has no
// pointer device, and its seat commands cannot hold a button down while the pointer moves.
//
// usage: vontrel_virtual_pointer WIDTH HEIGHT
// WIDTH and HEIGHT are the size of the compositor's whole output layout. Reads one command a line from
// standard input and answers "ok" once the compositor has handled it:
//   move X Y      moves to (X, Y) in layout coordinates
//   press         presses the left button
//   release       releases it
// The device lives as long as the program: a client sees the pointer only after it has reacted to the
// seat's new capability, so a device made just for one gesture would move before anyone listens.

#include "wlr-virtual-pointer-unstable-v1-client-protocol.h"

#include <wayland-client.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <sstream>
#include <string>

namespace {

constexpr uint32_t kLeftButton = 0x110; // BTN_LEFT

struct Globals
{
    wl_seat *seat = nullptr;
    zwlr_virtual_pointer_manager_v1 *manager = nullptr;
};

void onGlobal(void *data, wl_registry *registry, uint32_t name, const char *interface, uint32_t)
{
    auto *globals = static_cast<Globals *>(data);
    if (std::strcmp(interface, wl_seat_interface.name) == 0 && !globals->seat)
        globals->seat = static_cast<wl_seat *>(wl_registry_bind(registry, name, &wl_seat_interface, 1));
    else if (std::strcmp(interface, zwlr_virtual_pointer_manager_v1_interface.name) == 0)
        globals->manager = static_cast<zwlr_virtual_pointer_manager_v1 *>(
            wl_registry_bind(registry, name, &zwlr_virtual_pointer_manager_v1_interface, 1));
}

void onGlobalRemove(void *, wl_registry *, uint32_t) {}

const wl_registry_listener kRegistryListener = {onGlobal, onGlobalRemove};

uint32_t nowMs()
{
    using namespace std::chrono;
    return uint32_t(duration_cast<milliseconds>(steady_clock::now().time_since_epoch()).count());
}

class Pointer
{
public:
    Pointer(wl_display *display, zwlr_virtual_pointer_v1 *pointer, uint32_t width, uint32_t height)
        : m_display(display)
        , m_pointer(pointer)
        , m_width(width)
        , m_height(height)
    {}

    void moveTo(long x, long y)
    {
        zwlr_virtual_pointer_v1_motion_absolute(m_pointer, nowMs(), uint32_t(x), uint32_t(y), m_width,
                                                m_height);
        frame();
    }

    void button(bool pressed)
    {
        zwlr_virtual_pointer_v1_button(m_pointer, nowMs(), kLeftButton,
                                       pressed ? WL_POINTER_BUTTON_STATE_PRESSED
                                               : WL_POINTER_BUTTON_STATE_RELEASED);
        frame();
    }

private:
    // One round trip per event, so that the compositor has delivered each before the next is sent and a
    // client sees the press at the position it was moved to.
    void frame()
    {
        zwlr_virtual_pointer_v1_frame(m_pointer);
        wl_display_roundtrip(m_display);
    }

    wl_display *m_display;
    zwlr_virtual_pointer_v1 *m_pointer;
    uint32_t m_width;
    uint32_t m_height;
};

} // namespace

int main(int argc, char *argv[])
{
    if (argc != 3) {
        std::fprintf(stderr, "usage: %s WIDTH HEIGHT\n", argv[0]);
        return 2;
    }
    wl_display *display = wl_display_connect(nullptr);
    if (!display) {
        std::fprintf(stderr, "vontrel_virtual_pointer: cannot connect to the Wayland display\n");
        return 1;
    }
    Globals globals;
    wl_registry *registry = wl_display_get_registry(display);
    wl_registry_add_listener(registry, &kRegistryListener, &globals);
    wl_display_roundtrip(display);
    if (!globals.manager) {
        std::fprintf(stderr, "vontrel_virtual_pointer: the compositor has no virtual-pointer manager\n");
        wl_display_disconnect(display);
        return 1;
    }

    Pointer pointer(
        display, zwlr_virtual_pointer_manager_v1_create_virtual_pointer(globals.manager, globals.seat),
        uint32_t(std::strtoul(argv[1], nullptr, 10)), uint32_t(std::strtoul(argv[2], nullptr, 10)));
    wl_display_roundtrip(display);
    std::cout << "ready" << std::endl;
    std::string line;
    while (std::getline(std::cin, line)) {
        std::istringstream words(line);
        std::string command;
        words >> command;
        long x = 0;
        long y = 0;
        if (command == "move" && words >> x >> y) {
            pointer.moveTo(x, y);
        } else if (command == "press" || command == "release") {
            pointer.button(command == "press");
        } else {
            std::cout << "unknown command: " << line << std::endl;
            continue;
        }
        std::cout << "ok" << std::endl;
    }
    wl_display_disconnect(display);
    return 0;
}
