// Vontrel as started on a Wayland desktop: weston as the compositor, a fake desktop portal on the private
// session bus, a loopback provider. Hotkeys arrive as portal activations, the screenshot comes from the
// portal's file, the clipboard text is read without any keystroke.

#include "FakePortal.h"
#include "SessionRig.h"
#include "X11TestHelpers.h"

#include "app/SingleInstance.h"
#include "app/VontrelApp.h"
#include "capture/CaptureOverlay.h"
#include "ui/result/ResultWindow.h"
#include "update/UpdateChecker.h"

#include <QAction>
#include <QApplication>
#include <QClipboard>
#include <QPainter>
#include <QPointer>

using namespace Qt::StringLiterals;

namespace {

constexpr int kBound = 20000;

// Waits for a shown result window other than `old` whose translation is complete.
ResultWindow *waitForTranslation(const VontrelApp &app, const QPointer<ResultWindow> &old)
{
    ResultWindow *window = nullptr;
    const auto done = [&] {
        window = dynamic_cast<ResultWindow *>(app.sessionController()->currentWindow());
        return window && window != old && window->isVisible() && window->getTranslation() == "Hello"_L1;
    };
    return QTest::qWaitFor(done, kBound) ? window : nullptr;
}

} // namespace

class TestWaylandSession : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase()
    {
        const QString unavailable = qEnvironmentVariable("VONTREL_WAYLAND_UNAVAILABLE");
        if (!unavailable.isEmpty())
            QSKIP(qPrintable(u"no Wayland compositor: "_s + unavailable));
        QCOMPARE(QGuiApplication::platformName(), u"wayland"_s);
        QApplication::setApplicationName(u"Vontrel"_s);
        QApplication::setOrganizationName(u"Vontrel"_s);
        UpdateChecker::instance()->setServiceUrl(QUrl(u"http://127.0.0.1:1"_s));
    }

    void hotkeysTrayAndCapture()
    {
        FakePortal portal(qEnvironmentVariable("DBUS_SESSION_BUS_ADDRESS"));
        QVERIFY(portal.isRunning());
        QImage desktop(1600, 1000, QImage::Format_RGB32);
        desktop.fill(Qt::darkCyan);
        QPainter(&desktop).fillRect(QRect(100, 100, 300, 80), Qt::yellow);
        portal.setScreenshot(desktop);

        LoopbackHttpServer server;
        QVERIFY(SessionRig::serveAsProvider(server));

        VontrelApp app;
        app.setInteractive(false);
        app.start();

        // The portal binds both hotkeys with the user's keys as the suggestion; nothing is shown at start-up.
        QTRY_COMPARE_WITH_TIMEOUT(portal.binds().size(), 1, kBound);
        using Triggers = QMap<QString, QString>;
        QCOMPARE(portal.binds().at(0).preferredTriggers,
                 (Triggers{{"capture", "SHIFT+LOGO+1"}, {"clipboard-text", "SHIFT+LOGO+2"}}));
        QTest::qWait(200);
        QVERIFY2(app.shownMessages().isEmpty() && app.shownBalloons().isEmpty(),
                 qPrintable((app.shownMessages() + app.shownBalloons()).join(u'|')));

        // The tray's clipboard entry translates the clipboard text, with no copy keystroke.
        QGuiApplication::clipboard()->setText(u"Bonjour"_s);
        app.clipboardTextAction()->trigger();
        QPointer<ResultWindow> window = waitForTranslation(app, nullptr);
        QVERIFY(window);
        QCOMPARE(server.requests().size(), 1);
        QVERIFY(server.requests().at(0).body.contains("Bonjour"));

        // The portal's activation of the clipboard-text shortcut opens the same kind of session.
        QGuiApplication::clipboard()->setText(u"Guten Tag"_s);
        portal.activate(u"clipboard-text"_s, 1000);
        window = waitForTranslation(app, window);
        QVERIFY(window);
        QVERIFY(server.requests().last().body.contains("Guten Tag"));

        // Changed keys on the Hotkeys page bind again, in a session of their own.
        app.onHotkeysChanged(QKeySequence(u"Ctrl+Alt+C"_s), QKeySequence(u"Ctrl+Alt+T"_s));
        QTRY_COMPARE_WITH_TIMEOUT(portal.binds().size(), 2, kBound);
        QCOMPARE(portal.binds().at(1).preferredTriggers,
                 (Triggers{{"capture", "CTRL+ALT+c"}, {"clipboard-text", "CTRL+ALT+t"}}));
        QTRY_COMPARE_WITH_TIMEOUT(portal.openSessions().size(), 1, kBound);

        // The capture shortcut asks the portal for a screenshot and opens the region selector on its file.
        portal.activate(u"capture"_s, 2000);
        QTRY_COMPARE_WITH_TIMEOUT(portal.screenshotCount(), 1, kBound);
        QCOMPARE(portal.lastScreenshotOptions().value(u"interactive"_s).toBool(), false);
        QTRY_COMPARE_WITH_TIMEOUT(X11TestHelpers::captureOverlays().size(), 1, kBound);
        CaptureOverlay *overlay = X11TestHelpers::captureOverlays().first();
        const QImage shown = overlay->grab().toImage();
        // The selector dims the screenshot: the yellow block shows through as a darker yellow.
        const QColor block = shown.pixelColor(QPoint(250, 140) * shown.devicePixelRatio());
        QVERIFY2(block.red() > 100 && block.green() > 100 && block.blue() < 60, qPrintable(block.name()));
        QTest::keyClick(overlay, Qt::Key_Escape);
        QTRY_VERIFY_WITH_TIMEOUT(X11TestHelpers::captureOverlays().isEmpty(), kBound);

        // `vontrel --selection` while another client owns the clipboard: weston offers no data control, so
        // the result window takes the focus and reads then. The test's own texts above were set while
        // unfocused, which weston ignores but Qt remembers: dropped first, so only the other client's counts.
        QGuiApplication::clipboard()->clear();
        // wl-copy returns once it owns the clipboard, and serves it from the background until weston ends.
        QCOMPARE(X11TestHelpers::runTool(u"wl-copy"_s, {u"Buenos dias"_s}).exitCode, 0);
        app.handleRequest(InstanceRequest{InstanceRequest::Selection, {}, {}});
        window = waitForTranslation(app, window);
        QVERIFY(window);
        QVERIFY2(server.requests().last().body.contains("Buenos dias"),
                 server.requests().last().body.constData());
        QCOMPARE(QGuiApplication::focusWindow(), window->windowHandle());
    }
};

QTEST_MAIN(TestWaylandSession)
#include "test_wayland_session.moc"
