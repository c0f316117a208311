#include "CaptureDriver.h"

#include "capture/CaptureOverlay.h"
#include "capture/CaptureService.h"

#include <QScreen>
#include <QSignalSpy>
#include <QTest>

// The capture on a screen of device pixel ratio 2 (the whole process is scaled, as on a Retina display).
class TestCaptureHiDpi : public QObject
{
    Q_OBJECT

public:
    static void initMain() { qputenv("QT_SCALE_FACTOR", "2"); }

private slots:
    void keepsFullDeviceResolution_data();
    void keepsFullDeviceResolution();
};

void TestCaptureHiDpi::keepsFullDeviceResolution_data()
{
    QTest::addColumn<QPoint>("from");
    QTest::addColumn<QPoint>("to");
    QTest::addColumn<QRect>("logical");

    // Input arrives in device pixels; even coordinates land on whole logical pixels.
    QTest::newRow("100 x 50") << QPoint(200, 240) << QPoint(398, 338) << QRect(100, 120, 100, 50);
    QTest::newRow("100 x 50 backwards") << QPoint(398, 338) << QPoint(200, 240) << QRect(100, 120, 100, 50);
    QTest::newRow("6 x 6") << QPoint(1000, 600) << QPoint(1010, 610) << QRect(500, 300, 6, 6);
}

void TestCaptureHiDpi::keepsFullDeviceResolution()
{
    QFETCH(QPoint, from);
    QFETCH(QPoint, to);
    QFETCH(QRect, logical);

    QCOMPARE(QGuiApplication::primaryScreen()->devicePixelRatio(), 2.0);
    PatternWindow backdrop;
    backdrop.show();
    QVERIFY(QTest::qWaitForWindowExposed(&backdrop, 10000));
    QTRY_COMPARE_WITH_TIMEOUT(QGuiApplication::primaryScreen()->grabWindow(0).toImage().pixel(301, 203),
                              PatternWindow::patternAt(301, 203), 10000);

    CaptureService service;
    QSignalSpy done(&service, &CaptureService::captureDone);
    service.startCapture();
    QVERIFY(waitForCaptureOverlay());
    QVERIFY(XInput::drag(from, to));
    QVERIFY(done.wait(10000));

    const QImage image = done.first().first().value<QImage>();
    QCOMPARE(image.devicePixelRatio(), 2.0);
    QCOMPARE(image.size(), logical.size() * 2);
    const QRect device(logical.topLeft() * 2, logical.size() * 2);
    QImage pixels = image.convertToFormat(QImage::Format_RGB32);
    pixels.setDevicePixelRatio(1.0);
    QCOMPARE(pixels, PatternWindow::patternImage(device));
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
}

QTEST_MAIN(TestCaptureHiDpi)
#include "test_capture_hidpi.moc"
