// Global hotkeys, the clipboard and the copy keystroke on the test's own Xvfb: keys pressed by xdotool, and
// other X clients (a second connection, xclip, a second Qt process) as the other applications.
#include "X11TestHelpers.h"
#include "platform/ClipboardService.h"
#include "platform/HotkeyManager.h"
#include "platform/Platform.h"
#include "platform/linux/X11TerminalWindow.h"

#include <QSignalSpy>
#include <QTest>

#include <X11/Xlib.h>
#include <X11/keysym.h>
#include <xcb/xcb.h>

#include <cstdlib>

using namespace X11TestHelpers;
using namespace Qt::StringLiterals;

namespace {

constexpr quint16 SuperShift = XCB_MOD_MASK_4 | XCB_MOD_MASK_SHIFT;

KeyCode keycode(KeySym keysym)
{
    Display *display = XOpenDisplay(nullptr);
    const KeyCode code = XKeysymToKeycode(display, keysym);
    XCloseDisplay(display);
    return code;
}

bool keyIsDown(KeySym keysym)
{
    Display *display = XOpenDisplay(nullptr);
    char keys[32] = {};
    XQueryKeymap(display, keys);
    XCloseDisplay(display);
    const KeyCode code = keycode(keysym);
    return code && (keys[code / 8] & (1 << (code % 8)));
}

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

    xcb_connection_t *m_conn = xcb_connect(nullptr, nullptr);
};

} // namespace

class TestX11Input : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase()
    {
        if (QGuiApplication::platformName() != "xcb"_L1)
            QSKIP("needs the xcb platform (run under the test's Xvfb)");
    }

    // First, while nobody has owned the clipboard on this fresh server yet.
    void emptyClipboardRestoresToEmpty()
    {
        ClipboardService service;
        QVERIFY(clipboardTargets().isEmpty());
        const ClipboardService::Snapshot empty = service.snapshot();
        QVERIFY(empty.isEmpty());
        service.setText(u"something"_s);
        QTRY_COMPARE_WITH_TIMEOUT(clipboardData("UTF8_STRING").output, QByteArray("something"), 10000);

        QSignalSpy changed(&service, &ClipboardService::clipboardChanged);
        service.restore(empty);
        QVERIFY(changed.count() > 0 || changed.wait(10000));
        QVERIFY(!service.hasText() && !service.hasImage());
        QCOMPARE(clipboardContents(), (QMap<QString, QByteArray>()));
    }

    void copyKeystrokeReachesOtherProcessWhileModifiersHeld()
    {
        ClipboardService service;
        service.setText(u"before"_s);
        HelperProcess window;
        QVERIFY(window.start({"text-window", "Selected words"}));
        // The user still holds the hotkey's Super and Shift when the copy is sent.
        QVERIFY(xdotool({"keydown", "super+shift"}));
        QVERIFY(Platform::create()->sendCopyKeystroke());
        QTRY_COMPARE_WITH_TIMEOUT(service.getText(), u"Selected words"_s, 10000);
        // Held again afterwards, and Ctrl is not left down.
        const bool held = keyIsDown(XK_Super_L) && keyIsDown(XK_Shift_L) && !keyIsDown(XK_Control_L);
        xdotool({"keyup", "super+shift"});
        QVERIFY(held);
    }

    // A terminal's selection is read without a copy keystroke (the X11 session test reads the focused
    // window's WM_CLASS); which classes are terminals.
    void terminalClasses_data()
    {
        QTest::addColumn<QString>("instanceName");
        QTest::addColumn<QString>("className");
        QTest::addColumn<bool>("terminal");
        QTest::newRow("only the class tells") << u"main"_s << u"Alacritty"_s << true;
        QTest::newRow("st under its build name") << u"st-256color"_s << u"st-256color"_s << true;
        QTest::newRow("wezterm by reverse domain")
            << u"org.wezfurlong.wezterm"_s << u"org.wezfurlong.wezterm"_s << true;
        // A name that merely starts like a terminal's is not one.
        QTest::newRow("tray that starts with st") << u"stalonetray"_s << u"stalonetray"_s << false;
        QTest::newRow("no class") << QString() << QString() << false;
    }

    void terminalClasses()
    {
        QFETCH(QString, instanceName);
        QFETCH(QString, className);
        QTEST(X11TerminalWindow::isTerminalClass(instanceName, className), "terminal");
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
            QVERIFY2(manager.lastError().contains("Meta+Shift+2"_L1) &&
                         manager.lastError().contains("another application"_L1),
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

QTEST_MAIN(TestX11Input)
#include "test_x11input.moc"
