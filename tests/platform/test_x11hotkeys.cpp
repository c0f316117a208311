// Global hotkeys against a real X server (the test's own Xvfb), pressed by xdotool and contested by a second
// X client.
#include "X11TestHelpers.h"
#include "platform/HotkeyManager.h"

#include <QSignalSpy>
#include <QTest>

#include <X11/keysym.h>
#include <xcb/xcb.h>

#include <cstdlib>

using X11TestHelpers::runTool;

namespace {

// Another client on the same server, which may hold a key combination before or after us.
class OtherClient
{
public:
    OtherClient()
        : m_conn(xcb_connect(nullptr, nullptr))
    {}
    ~OtherClient() { xcb_disconnect(m_conn); }
    bool isValid() const { return !xcb_connection_has_error(m_conn); }

    // Grabs keysym + modifiers on the root window; 0 on success, else the X error code (10 = BadAccess).
    int grab(quint32 keysym, quint16 modifiers)
    {
        const xcb_window_t root = xcb_setup_roots_iterator(xcb_get_setup(m_conn)).data->root;
        const xcb_void_cookie_t cookie = xcb_grab_key_checked(m_conn, 1, root, modifiers, keycode(keysym),
                                                              XCB_GRAB_MODE_ASYNC, XCB_GRAB_MODE_ASYNC);
        xcb_generic_error_t *error = xcb_request_check(m_conn, cookie);
        const int code = error ? error->error_code : 0;
        std::free(error);
        return code;
    }
    void ungrab(quint32 keysym, quint16 modifiers)
    {
        const xcb_window_t root = xcb_setup_roots_iterator(xcb_get_setup(m_conn)).data->root;
        xcb_ungrab_key(m_conn, keycode(keysym), root, modifiers);
        xcb_flush(m_conn);
    }

private:
    xcb_keycode_t keycode(quint32 keysym)
    {
        const xcb_setup_t *setup = xcb_get_setup(m_conn);
        const int count = setup->max_keycode - setup->min_keycode + 1;
        xcb_get_keyboard_mapping_reply_t *reply = xcb_get_keyboard_mapping_reply(
            m_conn, xcb_get_keyboard_mapping(m_conn, setup->min_keycode, count), nullptr);
        xcb_keycode_t result = 0;
        if (reply) {
            const xcb_keysym_t *syms = xcb_get_keyboard_mapping_keysyms(reply);
            for (int i = 0; i < count && !result; ++i) {
                if (syms[i * reply->keysyms_per_keycode] == keysym)
                    result = xcb_keycode_t(setup->min_keycode + i);
            }
            std::free(reply);
        }
        return result;
    }

    xcb_connection_t *m_conn;
};

constexpr quint16 SuperShift = XCB_MOD_MASK_4 | XCB_MOD_MASK_SHIFT;
constexpr int BadAccess = 10;

} // namespace

class TestX11Hotkeys : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void pressArrivesWithItsId_data();
    void pressArrivesWithItsId();
    void combinationHeldByAnotherClientFails();
    void releasedCombinationCanBeGrabbedByOthers();
};

void TestX11Hotkeys::initTestCase()
{
    if (QGuiApplication::platformName() != QLatin1String("xcb"))
        QSKIP("needs the xcb platform (run under the test's Xvfb)");
}

void TestX11Hotkeys::pressArrivesWithItsId_data()
{
    QTest::addColumn<QString>("lock");
    QTest::addColumn<QString>("keys");
    QTest::addColumn<int>("id");
    QTest::newRow("capture") << QString() << "super+shift+1" << 1;
    QTest::newRow("clipboard text") << QString() << "super+shift+2" << 3;
    QTest::newRow("capture with NumLock on") << "Num_Lock"
                                             << "super+shift+1" << 1;
    QTest::newRow("clipboard text with CapsLock on") << "Caps_Lock"
                                                     << "super+shift+2" << 3;
}

void TestX11Hotkeys::pressArrivesWithItsId()
{
    QFETCH(QString, lock);
    QFETCH(QString, keys);
    QFETCH(int, id);

    HotkeyManager manager;
    QVERIFY2(manager.registerHotkeys(), qPrintable(manager.lastError()));
    QSignalSpy spy(&manager, &HotkeyManager::hotkeyTriggered);

    if (!lock.isEmpty())
        QCOMPARE(runTool(QStringLiteral("xdotool"), {QStringLiteral("key"), lock}).exitCode, 0);
    QCOMPARE(runTool(QStringLiteral("xdotool"), {QStringLiteral("key"), keys}).exitCode, 0);
    const bool arrived = !spy.isEmpty() || spy.wait(10000);
    if (!lock.isEmpty())
        runTool(QStringLiteral("xdotool"), {QStringLiteral("key"), lock}); // switch it off again
    QVERIFY(arrived);
    QCOMPARE(spy.count(), 1);
    QCOMPARE(spy.at(0).at(0).toInt(), id);
}

void TestX11Hotkeys::combinationHeldByAnotherClientFails()
{
    OtherClient other;
    QVERIFY(other.isValid());
    // The clipboard-text combination is taken, so the capture grab made first must be given back.
    QCOMPARE(other.grab(XK_2, SuperShift), 0);

    HotkeyManager manager;
    QVERIFY(!manager.registerHotkeys());
    QVERIFY(!manager.isRegistered());
    QVERIFY2(manager.lastError().contains(QLatin1String("Meta+Shift+2")), qPrintable(manager.lastError()));
    QVERIFY2(manager.lastError().contains(QLatin1String("another application")),
             qPrintable(manager.lastError()));
    QCOMPARE(other.grab(XK_1, SuperShift), 0);
    other.ungrab(XK_1, SuperShift);

    // And a capture combination that is taken fails with its own message.
    QCOMPARE(other.grab(XK_1, SuperShift), 0);
    QVERIFY(!manager.registerHotkeys(HotkeyManager::defaultCaptureHotkey(), QKeySequence()));
    QVERIFY2(manager.lastError().startsWith(QLatin1String("Cannot register the capture hotkey Meta+Shift+1")),
             qPrintable(manager.lastError()));
}

void TestX11Hotkeys::releasedCombinationCanBeGrabbedByOthers()
{
    OtherClient other;
    QVERIFY(other.isValid());
    {
        HotkeyManager manager;
        QVERIFY(manager.registerHotkeys());
        QCOMPARE(other.grab(XK_1, SuperShift), BadAccess);
        manager.unregisterHotkeys();
        QCOMPARE(other.grab(XK_1, SuperShift), 0);
        other.ungrab(XK_1, SuperShift);

        QVERIFY(manager.registerHotkeys());
        QCOMPARE(other.grab(XK_2, SuperShift | XCB_MOD_MASK_2), BadAccess); // the NumLock variant too
    }
    // Destroying the manager releases every variant.
    QCOMPARE(other.grab(XK_2, SuperShift | XCB_MOD_MASK_2), 0);
    QCOMPARE(other.grab(XK_2, SuperShift), 0);
}

QTEST_MAIN(TestX11Hotkeys)
#include "test_x11hotkeys.moc"
