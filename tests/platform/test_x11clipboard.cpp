// The clipboard and the copy keystroke on the test's own Xvfb, with xclip and a second Qt process as the
// other applications.
#include "X11TestHelpers.h"
#include "platform/ClipboardService.h"
#include "platform/Platform.h"

#include <QSignalSpy>
#include <QTest>

#include <X11/Xlib.h>
#include <X11/keysym.h>

using namespace X11TestHelpers;

namespace {

bool keyIsDown(KeySym keysym)
{
    Display *display = XOpenDisplay(nullptr);
    char keys[32] = {};
    XQueryKeymap(display, keys);
    const KeyCode code = XKeysymToKeycode(display, keysym);
    XCloseDisplay(display);
    return code && (keys[code / 8] & (1 << (code % 8)));
}

} // namespace

class TestX11Clipboard : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase()
    {
        if (QGuiApplication::platformName() != QLatin1String("xcb"))
            QSKIP("needs the xcb platform (run under the test's Xvfb)");
    }

    void emptyClipboardRestoresToEmpty()
    {
        ClipboardService service;
        QVERIFY(clipboardTargets().isEmpty()); // a fresh server: nobody owns the clipboard
        const ClipboardService::Snapshot empty = service.snapshot();
        QVERIFY(empty.isEmpty());
        service.setText(QStringLiteral("something"));
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
        service.setText(QStringLiteral("before"));
        HelperProcess window;
        QVERIFY(window.start({"text-window", "Selected words"}));
        // The user still holds the hotkey's Super and Shift when the copy is sent.
        QVERIFY(xdotool({"keydown", "super+shift"}));
        QVERIFY(Platform::create()->sendCopyKeystroke());
        QTRY_COMPARE_WITH_TIMEOUT(service.getText(), QStringLiteral("Selected words"), 10000);
        // Held again afterwards, and Ctrl is not left down.
        const bool held = keyIsDown(XK_Super_L) && keyIsDown(XK_Shift_L) && !keyIsDown(XK_Control_L);
        xdotool({"keyup", "super+shift"});
        QVERIFY(held);
    }
};

QTEST_MAIN(TestX11Clipboard)
#include "test_x11clipboard.moc"
