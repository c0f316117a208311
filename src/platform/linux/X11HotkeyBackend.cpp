#include "platform/linux/X11HotkeyBackend.h"

#include "platform/linux/X11Session.h"

#include <QCoreApplication>
#include <QDebug>
#include <QKeySequence>

#include <X11/keysym.h>
#include <xcb/xcb.h>

#include <cstdlib>

namespace {

constexpr int NoX11Status = 1;

// X keysym of a key of the supported set; 0 for any other key.
quint32 keysymForKey(Qt::Key key)
{
    if (key >= Qt::Key_A && key <= Qt::Key_Z)
        return XK_a + (key - Qt::Key_A);
    if (key >= Qt::Key_0 && key <= Qt::Key_9)
        return XK_0 + (key - Qt::Key_0);
    if (key >= Qt::Key_F1 && key <= Qt::Key_F12)
        return XK_F1 + (key - Qt::Key_F1);
    switch (key) {
    case Qt::Key_Escape:
        return XK_Escape;
    case Qt::Key_Tab:
        return XK_Tab;
    case Qt::Key_Backspace:
        return XK_BackSpace;
    case Qt::Key_Return:
    case Qt::Key_Enter:
        return XK_Return;
    case Qt::Key_Left:
        return XK_Left;
    case Qt::Key_Up:
        return XK_Up;
    case Qt::Key_Right:
        return XK_Right;
    case Qt::Key_Down:
        return XK_Down;
    case Qt::Key_Space:
        return XK_space;
    default:
        return 0;
    }
}

struct FreeDeleter
{
    void operator()(void *p) const { std::free(p); }
};
template<typename T>
using XcbReply = std::unique_ptr<T, FreeDeleter>;

// First keycode whose unshifted or shifted symbol is the keysym; 0 when the keyboard has none.
quint8 keycodeForKeysym(xcb_connection_t *conn, quint32 keysym)
{
    const xcb_setup_t *setup = xcb_get_setup(conn);
    const quint8 first = setup->min_keycode;
    const int count = setup->max_keycode - setup->min_keycode + 1;
    XcbReply<xcb_get_keyboard_mapping_reply_t> reply(
        xcb_get_keyboard_mapping_reply(conn, xcb_get_keyboard_mapping(conn, first, count), nullptr));
    if (!reply)
        return 0;
    const xcb_keysym_t *syms = xcb_get_keyboard_mapping_keysyms(reply.get());
    const int perCode = reply->keysyms_per_keycode;
    for (int column = 0; column < std::min(perCode, 2); ++column) {
        for (int i = 0; i < count; ++i) {
            if (syms[i * perCode + column] == keysym)
                return quint8(first + i);
        }
    }
    return 0;
}

QString chordText(const HotkeyChord &chord)
{
    return QKeySequence(QKeyCombination(chord.modifiers, chord.key)).toString(QKeySequence::PortableText);
}

} // namespace

X11HotkeyBackend::X11HotkeyBackend() = default;

X11HotkeyBackend::~X11HotkeyBackend()
{
    // HotkeyManager releases everything first; this covers a backend used on its own.
    for (const Grab &grab : m_grabs)
        ungrab(grab);
    removeHandler();
}

QString X11HotkeyBackend::platformTag() const
{
    return QStringLiteral("x11");
}

void X11HotkeyBackend::readModifierMapping()
{
    // Which ModN holds NumLock, Alt and Super depends on the keymap; Mod2, Mod1 and Mod4 are the usual ones.
    m_numLockMask = XCB_MOD_MASK_2;
    m_altMask = XCB_MOD_MASK_1;
    m_superMask = XCB_MOD_MASK_4;
    xcb_connection_t *conn = X11Session::connection();
    if (!conn)
        return;
    const quint8 numLock = keycodeForKeysym(conn, XK_Num_Lock);
    const quint8 alt = keycodeForKeysym(conn, XK_Alt_L);
    const quint8 super = keycodeForKeysym(conn, XK_Super_L);
    XcbReply<xcb_get_modifier_mapping_reply_t> reply(
        xcb_get_modifier_mapping_reply(conn, xcb_get_modifier_mapping(conn), nullptr));
    if (!reply)
        return;
    const xcb_keycode_t *codes = xcb_get_modifier_mapping_keycodes(reply.get());
    const int perModifier = reply->keycodes_per_modifier;
    for (int modifier = 3; modifier < 8; ++modifier) { // Mod1 ... Mod5
        for (int i = 0; i < perModifier; ++i) {
            const xcb_keycode_t code = codes[modifier * perModifier + i];
            if (code == 0)
                continue;
            const quint16 mask = quint16(1u << modifier);
            if (code == numLock)
                m_numLockMask = mask;
            else if (code == alt)
                m_altMask = mask;
            else if (code == super)
                m_superMask = mask;
        }
    }
}

quint16 X11HotkeyBackend::modifierMask(Qt::KeyboardModifiers modifiers) const
{
    quint16 mask = 0;
    if (modifiers & Qt::ShiftModifier)
        mask |= XCB_MOD_MASK_SHIFT;
    if (modifiers & Qt::ControlModifier)
        mask |= XCB_MOD_MASK_CONTROL;
    if (modifiers & Qt::AltModifier)
        mask |= m_altMask;
    if (modifiers & Qt::MetaModifier)
        mask |= m_superMask;
    return mask;
}

std::pair<quint32, quint32> X11HotkeyBackend::nativeKey(const HotkeyChord &chord) const
{
    xcb_connection_t *conn = X11Session::connection();
    const quint32 keycode = conn ? keycodeForKeysym(conn, keysymForKey(chord.key)) : 0;
    return {keycode, modifierMask(chord.modifiers)};
}

int X11HotkeyBackend::installHandler(QString *error)
{
    if (!X11Session::isAvailable()) {
        *error = QStringLiteral("Global hotkeys need an X11 session, and this desktop session has no X11 "
                                "connection (for example a Wayland session)");
        return NoX11Status;
    }
    readModifierMapping();
    if (!m_filterInstalled) {
        QCoreApplication::instance()->installNativeEventFilter(this);
        m_filterInstalled = true;
    }
    return 0;
}

void X11HotkeyBackend::removeHandler()
{
    if (m_filterInstalled && QCoreApplication::instance())
        QCoreApplication::instance()->removeNativeEventFilter(this);
    m_filterInstalled = false;
}

void X11HotkeyBackend::ungrab(const Grab &grab) const
{
    xcb_connection_t *conn = X11Session::connection();
    if (!conn)
        return;
    const quint16 locks[] = {0, XCB_MOD_MASK_LOCK, m_numLockMask, quint16(XCB_MOD_MASK_LOCK | m_numLockMask)};
    for (quint16 lock : locks)
        xcb_ungrab_key(conn, grab.keycode, X11Session::rootWindow(), grab.modifiers | lock);
    xcb_flush(conn);
}

int X11HotkeyBackend::registerHotkey(int id, const HotkeyChord &chord, const QString &what, QString *error)
{
    xcb_connection_t *conn = X11Session::connection();
    if (!conn) {
        *error =
            QStringLiteral("Cannot register the %1 hotkey %2: no X11 connection").arg(what, chordText(chord));
        return NoX11Status;
    }
    const quint8 keycode = keycodeForKeysym(conn, keysymForKey(chord.key));
    if (keycode == 0) {
        *error = QStringLiteral("Cannot register the %1 hotkey %2: the keyboard has no such key")
                     .arg(what, chordText(chord));
        return 2;
    }
    const Grab grab{id, keycode, modifierMask(chord.modifiers)};
    const xcb_window_t root = X11Session::rootWindow();

    // Grab with NumLock and CapsLock too: X delivers the key only when the modifier state matches exactly.
    const quint16 locks[] = {0, XCB_MOD_MASK_LOCK, m_numLockMask, quint16(XCB_MOD_MASK_LOCK | m_numLockMask)};
    xcb_void_cookie_t cookies[4];
    for (int i = 0; i < 4; ++i) {
        cookies[i] = xcb_grab_key_checked(conn, 1, root, grab.modifiers | locks[i], keycode,
                                          XCB_GRAB_MODE_ASYNC, XCB_GRAB_MODE_ASYNC);
    }
    int status = 0;
    for (xcb_void_cookie_t cookie : cookies) {
        XcbReply<xcb_generic_error_t> grabError(xcb_request_check(conn, cookie));
        if (grabError && status == 0)
            status = grabError->error_code;
    }
    if (status != 0) {
        // A partial grab would fire only in some lock states; release what was taken.
        ungrab(grab);
        if (status == XCB_ACCESS) {
            *error =
                QStringLiteral("Cannot register the %1 hotkey %2: another application already uses this key "
                               "combination")
                    .arg(what, chordText(chord));
        } else {
            *error =
                QStringLiteral("Cannot register the %1 hotkey %2: the X server refused the grab (error %3)")
                    .arg(what, chordText(chord))
                    .arg(status);
        }
        return status;
    }
    m_grabs.push_back(grab);
    return 0;
}

void X11HotkeyBackend::unregisterHotkey(int id)
{
    for (auto it = m_grabs.begin(); it != m_grabs.end();) {
        if (it->id == id) {
            ungrab(*it);
            it = m_grabs.erase(it);
        } else {
            ++it;
        }
    }
}

bool X11HotkeyBackend::nativeEventFilter(const QByteArray &eventType, void *message, qintptr *)
{
    if (eventType != "xcb_generic_event_t")
        return false;
    const auto *event = static_cast<const xcb_generic_event_t *>(message);
    if ((event->response_type & 0x7f) != XCB_KEY_PRESS)
        return false;
    const auto *press = static_cast<const xcb_key_press_event_t *>(message);
    const quint16 relevant = XCB_MOD_MASK_SHIFT | XCB_MOD_MASK_CONTROL | m_altMask | m_superMask;
    for (const Grab &grab : m_grabs) {
        if (grab.keycode == press->detail && grab.modifiers == (press->state & relevant)) {
            // A passive grab turns into an active keyboard grab until the key is released; end it at once, so
            // that the copy keystroke sent for this press reaches the focused window and not us.
            xcb_connection_t *conn = X11Session::connection();
            xcb_ungrab_keyboard(conn, XCB_CURRENT_TIME);
            xcb_flush(conn);
            emit pressed(grab.id, press->time);
            return true;
        }
    }
    return false;
}
