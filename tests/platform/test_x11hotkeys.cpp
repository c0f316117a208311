// Global hotkeys on the test's own Xvfb, pressed by xdotool and contested by a second X client.
#include "X11TestHelpers.h"
#include "platform/HotkeyManager.h"
#include "platform/Platform.h"

#include <QSignalSpy>
#include <QTest>

#include <X11/Xlib.h>
#include <X11/keysym.h>
#include <xcb/xcb.h>

#include <cstdlib>

using X11TestHelpers::xdotool;

namespace {

constexpr quint16 SuperShift = XCB_MOD_MASK_4 | XCB_MOD_MASK_SHIFT;

// Another client on the same server: grab() gives 0 or the X error code; ungrab() returns once the server
// has done it, so a grab by another client cannot overtake it.
class OtherClient
{
public:
    ~OtherClient() { xcb_disconnect(m_conn); }
    int grab(KeySym keysym, quint16 modifiers)
    {
        xcb_generic_error_t *error =
            xcb_request_check(m_conn, xcb_grab_key_checked(m_conn, 1, root(), modifiers, keycode(keysym),
                                                           XCB_GRAB_MODE_ASYNC, XCB_GRAB_MODE_ASYNC));
        const int code = error ? error->error_code : 0;
        std::free(error);
        return code;
    }
    void ungrab(KeySym keysym, quint16 modifiers)
    {
        std::free(
            xcb_request_check(m_conn, xcb_ungrab_key_checked(m_conn, keycode(keysym), root(), modifiers)));
    }

private:
    xcb_window_t root() { return xcb_setup_roots_iterator(xcb_get_setup(m_conn)).data->root; }
    static xcb_keycode_t keycode(KeySym keysym)
    {
        Display *display = XOpenDisplay(nullptr);
        const KeyCode code = XKeysymToKeycode(display, keysym);
        XCloseDisplay(display);
        return code;
    }

    xcb_connection_t *m_conn = xcb_connect(nullptr, nullptr);
};

} // namespace

class TestX11Hotkeys : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase()
    {
        if (QGuiApplication::platformName() != QLatin1String("xcb"))
            QSKIP("needs the xcb platform (run under the test's Xvfb)");
    }

    // With NumLock on, which X counts as a modifier: the key arrives with the clipboard hotkey's id. (Plain
    // presses of both hotkeys are in the X11 session test.)
    void pressWithNumLockArrives()
    {
        HotkeyManager manager(Platform::create()->createHotkeyBackend());
        QVERIFY2(manager.registerHotkeys(), qPrintable(manager.lastError()));
        QSignalSpy spy(&manager, &HotkeyManager::hotkeyTriggered);
        QVERIFY(xdotool({"key", "Num_Lock"}));
        const bool arrived = xdotool({"key", "super+shift+2"}) && (!spy.isEmpty() || spy.wait(10000));
        xdotool({"key", "Num_Lock"}); // off again
        QVERIFY(arrived);
        QCOMPARE(spy.count(), 1);
        QCOMPARE(spy.at(0).at(0).toInt(), int(HotkeyManager::ClipboardTextHotkey));
    }

    void combinationHeldByAnotherClientFailsAndLeavesNothing()
    {
        OtherClient other;
        QCOMPARE(other.grab(XK_2, SuperShift), 0);
        {
            HotkeyManager manager(Platform::create()->createHotkeyBackend());
            QVERIFY(!manager.registerHotkeys() && !manager.isRegistered());
            QVERIFY2(manager.lastError().contains(QLatin1String("Meta+Shift+2")) &&
                         manager.lastError().contains(QLatin1String("another application")),
                     qPrintable(manager.lastError()));
            QCOMPARE(other.grab(XK_1, SuperShift), 0); // the capture grab made first was given back
            other.ungrab(XK_1, SuperShift);
            other.ungrab(XK_2, SuperShift);
            QVERIFY(manager.registerHotkeys());
            QCOMPARE(other.grab(XK_2, SuperShift | XCB_MOD_MASK_2), BadAccess); // the NumLock variant too
        }
        // Destroying the manager releases every variant.
        QCOMPARE(other.grab(XK_2, SuperShift | XCB_MOD_MASK_2), 0);
    }
};

QTEST_MAIN(TestX11Hotkeys)
#include "test_x11hotkeys.moc"
