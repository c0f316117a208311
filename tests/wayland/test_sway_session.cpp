// Vontrel under a real tiling compositor: a headless sway with two outputs (the second at scale 2), the real
// desktop portal with its wlroots and GTK backends, PipeWire, mako for notifications, foot as the other
// application and wl-clipboard as another client's clipboard. The pointer is driven through the compositor's
// virtual-pointer protocol (vontrel_virtual_pointer). Started by tests/support/run-test.sh (mode sway).

#include "SwayHarness.h"

#include "capture/CaptureOverlay.h"
#include "capture/CaptureService.h"
#include "platform/Platform.h"

#include <QFile>
#include <QSignalSpy>

using namespace SwayHarness;

class TestSwaySession : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase()
    {
        const QString unavailable = qEnvironmentVariable("VONTREL_WAYLAND_UNAVAILABLE");
        if (!unavailable.isEmpty())
            QSKIP(qPrintable(QStringLiteral("no headless sway with portals: ") + unavailable));
        QCOMPARE(QGuiApplication::platformName(), QStringLiteral("wayland"));
        QApplication::setApplicationName(QStringLiteral("Vontrel"));
        QApplication::setOrganizationName(QStringLiteral("Vontrel"));

        // A second output right of the first, at scale 2: 1280 x 800 pixels, 640 x 400 logical.
        run(QStringLiteral("swaymsg"), {QStringLiteral("create_output")});
        run(QStringLiteral("swaymsg"),
            {QStringLiteral("output HEADLESS-2 resolution 1280x800 position 1280 0 scale 2")});
        QTRY_COMPARE_WITH_TIMEOUT(QGuiApplication::screens().size(), 2, kBound);
        QTRY_COMPARE_WITH_TIMEOUT(desktopRect(), QRect(0, 0, 1920, 800), kBound);
        QVERIFY(m_pointer.start());
    }

    void selectorCoversEachOutputAndSelectsExactPixels_data()
    {
        QTest::addColumn<QRect>("selection"); // layout coordinates
        QTest::newRow("first output") << QRect(100, 60, 300, 90);
        QTest::newRow("second output, scale 2") << QRect(1300, 20, 200, 45);
    }

    void selectorCoversEachOutputAndSelectsExactPixels()
    {
        QFETCH(QRect, selection);
        Terminal left(QStringLiteral("Left output: the first line\nand its second line\n"));
        QVERIFY(left.waitFocused());
        run(QStringLiteral("swaymsg"), {QStringLiteral("focus output HEADLESS-2")});
        Terminal right(QStringLiteral("Right output\nscaled twice\n"));
        QVERIFY(right.waitFocused());
        QVERIFY(waitForInk(QRect(120, 0, 60, 20)));
        QVERIFY(waitForInk(QRect(1280 + 60, 0, 40, 30)));
        const QImage reference = settledDesktop();
        QVERIFY(!reference.isNull());

        std::unique_ptr<Platform> platform = Platform::create();
        CaptureService capture;
        capture.setScreenSource([&platform](QScreen *screen, QObject *context, auto done) {
            platform->grabScreen(screen, context, std::move(done));
        });
        QSignalSpy done(&capture, &CaptureService::captureDone);
        capture.startCapture();

        // One selector per output, each full screen on its own output at the output's exact geometry: no
        // tile.
        QVERIFY(waitForOverlays(2));
        const QList<CaptureOverlay *> overlays = visibleOverlays();
        QList<QRect> outputs;
        for (const QJsonValue &output :
             swaymsg({QStringLiteral("-t"), QStringLiteral("get_outputs")}).array())
            outputs << rectOf(output.toObject());
        const QList<QJsonObject> views =
            waitForViews(QCoreApplication::applicationPid(),
                         [](const QList<QJsonObject> &shown) { return shown.size() == 2; });
        QCOMPARE(views.size(), 2);
        for (const QJsonObject &view : std::as_const(views)) {
            QCOMPARE(view.value(QLatin1String("fullscreen_mode")).toInt(), 1);
            QVERIFY2(outputs.contains(rectOf(view)), qPrintable(QJsonDocument(view).toJson()));
        }
        QVERIFY(rectOf(views.at(0)) != rectOf(views.at(1)));
        for (CaptureOverlay *overlay : overlays)
            QCOMPARE(overlay->geometry(), overlay->screen()->geometry());

        // The pixels under the dragged rectangle, exactly as the screen showed them.
        QVERIFY(m_pointer.drag(selection.topLeft(), selection.bottomRight(), overlayUnderPointer));
        QTRY_COMPARE_WITH_TIMEOUT(done.size(), 1, kBound);
        QImage image = done.first().first().value<QImage>();
        const qreal scale = qreal(reference.width()) / desktopRect().width();
        QCOMPARE(image.devicePixelRatio(), scale);
        const QRect expected(selection.topLeft() * scale, selection.size() * scale);
        QCOMPARE(image.size(), expected.size());
        image.setDevicePixelRatio(1);
        QCOMPARE(image.convertToFormat(QImage::Format_RGB32),
                 reference.copy(expected).convertToFormat(QImage::Format_RGB32));
        QTRY_VERIFY_WITH_TIMEOUT(visibleOverlays().isEmpty(), kBound);
    }

    // Vontrel as a plain sway runs it: no bar, so no tray; no shortcuts portal, so the user binds sway keys
    // to `vontrel --selection` and `vontrel --capture`.
    void desktopShortcutsOnAPlainSway()
    {
        LoopbackHttpServer server;
        QVERIFY(SessionRig::serveAsProvider(server)); // the settings the program reads at start
        run(QStringLiteral("makoctl"), {QStringLiteral("dismiss"), QStringLiteral("--all")});
        const QString program = qEnvironmentVariable("VONTREL_BINARY_DIR") + QStringLiteral("/src/vontrel");
        QProcess vontrel;
        vontrel.setProcessChannelMode(QProcess::ForwardedChannels);
        vontrel.start(program, {});
        QVERIFY(vontrel.waitForStarted());

        // That the hotkeys cannot work arrives as a desktop notification.
        QTRY_VERIFY_WITH_TIMEOUT(
            run(QStringLiteral("makoctl"), {QStringLiteral("list")}).contains("Global Hotkeys Unavailable"),
            kBound);

        // Another client's clipboard, translated while a terminal has the focus.
        run(QStringLiteral("swaymsg"), {QStringLiteral("focus output HEADLESS-1")});
        Terminal terminal(QStringLiteral("Quiet harbour lights\n"));
        QVERIFY(terminal.waitFocused());
        run(QStringLiteral("wl-copy"), {QStringLiteral("Bonjour tout le monde")});
        run(QStringLiteral("wl-copy"), {QStringLiteral("--primary"), QStringLiteral("--clear")});
        int exitCode = -1;
        run(program, {QStringLiteral("--selection")}, &exitCode);
        QCOMPARE(exitCode, 0);
        QTRY_COMPARE_WITH_TIMEOUT(server.requests().size(), 1, kBound);
        QCOMPARE(sentText(server, 0), QStringLiteral("Bonjour tout le monde"));
        // Its window carries the app id of the desktop entry, and floats.
        const QList<QJsonObject> views = waitForViews(
            vontrel.processId(), [](const QList<QJsonObject> &shown) { return shown.size() == 1; });
        QVERIFY(!views.isEmpty());
        QCOMPARE(views.first().value(QLatin1String("app_id")).toString(),
                 QStringLiteral("app.vontrel.Vontrel"));
        QCOMPARE(views.first().value(QLatin1String("type")).toString(), QStringLiteral("floating_con"));

        // A capture from the command line: selectors on both outputs, the text under the drag sent, and the
        // portal's screenshot file gone.
        QVERIFY(waitForInk(QRect(120, 0, 60, 20)));
        run(program, {QStringLiteral("--capture")}, &exitCode);
        QCOMPARE(exitCode, 0);
        QVERIFY(!waitForViews(vontrel.processId(), [](const QList<QJsonObject> &shown) {
                     return std::count_if(shown.cbegin(), shown.cend(), [](const QJsonObject &view) {
                                return view.value(QLatin1String("fullscreen_mode")).toInt() == 1;
                            }) == 2;
                 }).isEmpty());
        QVERIFY(m_pointer.drag(QPoint(1, 1), QPoint(400, 30), [] { return true; }));
        QTRY_COMPARE_WITH_TIMEOUT(server.requests().size(), 2, kBound);
        const QString sent = sentText(server, 1);
        QVERIFY2(sent.contains(QLatin1String("Quiet harbour lights"), Qt::CaseInsensitive), qPrintable(sent));
        QVERIFY(!QFile::exists(QStringLiteral("/tmp/out.png")));

        run(QStringLiteral("wl-copy"), {QStringLiteral("--clear")});
        vontrel.terminate();
        QVERIFY(vontrel.waitForFinished(kBound));
    }

private:
    VirtualPointer m_pointer;
};

QTEST_MAIN(TestSwaySession)
#include "test_sway_session.moc"
