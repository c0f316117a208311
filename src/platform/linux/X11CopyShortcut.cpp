#include "platform/linux/X11CopyShortcut.h"

#include "log/LogCategories.h"

#include <QDebug>

#include <X11/XKBlib.h>
#include <X11/Xlib.h>
#include <X11/extensions/XTest.h>
#include <X11/keysym.h>

#include <memory>
#include <vector>

namespace {

struct DisplayCloser
{
    void operator()(Display *display) const { XCloseDisplay(display); }
};

// A connection of our own: the keystroke must not wait behind Qt's queued requests, and XSync on it tells us
// when the server has processed every fake event.
Display *copyDisplay()
{
    static std::unique_ptr<Display, DisplayCloser> display;
    static bool tried = false;
    if (!tried) {
        tried = true;
        int eventBase = 0, errorBase = 0, major = 0, minor = 0;
        display.reset(XOpenDisplay(nullptr));
        if (display && !XTestQueryExtension(display.get(), &eventBase, &errorBase, &major, &minor)) {
            qCWarning(lcPlatform).noquote() << "X11CopyShortcut: the X server has no XTEST extension";
            display.reset();
        }
    }
    return display.get();
}

bool isLockKey(Display *display, KeyCode code)
{
    const KeySym sym = XkbKeycodeToKeysym(display, code, 0, 0);
    return sym == XK_Num_Lock || sym == XK_Caps_Lock || sym == XK_Scroll_Lock || sym == XK_Shift_Lock;
}

// Modifier keys the user holds right now (Shift, Control, Alt, Super, AltGr ...), lock keys left out.
std::vector<KeyCode> heldModifierKeys(Display *display)
{
    std::vector<KeyCode> held;
    char keys[32] = {};
    XQueryKeymap(display, keys);
    XModifierKeymap *map = XGetModifierMapping(display);
    if (!map)
        return held;
    for (int modifier = 0; modifier < 8; ++modifier) {
        if (modifier == LockMapIndex)
            continue;
        for (int i = 0; i < map->max_keypermod; ++i) {
            const KeyCode code = map->modifiermap[modifier * map->max_keypermod + i];
            if (code == 0 || !(keys[code / 8] & (1 << (code % 8))) || isLockKey(display, code))
                continue;
            bool known = false;
            for (KeyCode h : held)
                known = known || h == code;
            if (!known)
                held.push_back(code);
        }
    }
    XFreeModifiermap(map);
    return held;
}

} // namespace

bool x11SendCopyKeystroke()
{
    Display *display = copyDisplay();
    if (!display) {
        qCWarning(lcPlatform).noquote()
            << "X11CopyShortcut: cannot open the X display; copy keystroke not sent";
        return false;
    }
    const KeyCode control = XKeysymToKeycode(display, XK_Control_L);
    const KeyCode c = XKeysymToKeycode(display, XK_c);
    if (control == 0 || c == 0) {
        qCWarning(lcPlatform).noquote()
            << "X11CopyShortcut: the keyboard map has no Control or C key; copy keystroke not sent";
        return false;
    }

    // The hotkey's Super and Shift are usually still held when this runs; the focused application would see
    // Super+Shift+Ctrl+C and not copy. Lift them for the keystroke and press them again afterwards, so the
    // server's state matches the keys the user really holds when they are released.
    const std::vector<KeyCode> held = heldModifierKeys(display);
    for (KeyCode code : held)
        XTestFakeKeyEvent(display, code, False, CurrentTime);
    XTestFakeKeyEvent(display, control, True, CurrentTime);
    XTestFakeKeyEvent(display, c, True, CurrentTime);
    XTestFakeKeyEvent(display, c, False, CurrentTime);
    XTestFakeKeyEvent(display, control, False, CurrentTime);
    for (KeyCode code : held)
        XTestFakeKeyEvent(display, code, True, CurrentTime);
    XSync(display, False);
    qCDebug(lcPlatform).noquote() << "X11CopyShortcut: sent Ctrl+C, modifiers lifted and restored:"
                                  << held.size();
    return true;
}
