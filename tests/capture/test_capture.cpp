#include "X11TestHelpers.h"

#include "capture/CaptureOverlay.h"
#include "capture/CaptureService.h"

#include <QLabel>
#include <QPointer>
#include <QScreen>
#include <QSignalSpy>
#include <QTest>

#ifndef VONTREL_CAPTURE_RATIO
#define VONTREL_CAPTURE_RATIO 1
#endif

using namespace X11TestHelpers;

namespace {

// Every device pixel of the screen pattern has its own colour: a captured image tells which pixels it holds.
QRgb patternAt(int x, int y)
{
    return qRgb(x & 0xff, y & 0xff, ((x >> 8) << 4) | (y >> 8));
}

QImage patternImage(const QRect &devicePixels)
{
    QImage image(devicePixels.size(), QImage::Format_RGB32);
    for (int y = 0; y < image.height(); ++y) {
        for (int x = 0; x < image.width(); ++x)
            image.setPixel(x, y, patternAt(devicePixels.x() + x, devicePixels.y() + y));
    }
    return image;
}

// The overlay on screen once it is exposed and has the keyboard focus; null after the timeout.
CaptureOverlay *waitForCaptureOverlay()
{
    if (!QTest::qWaitFor(captureSelectorShown, 10000))
        return nullptr;
    CaptureOverlay *overlay = captureOverlays().first();
    return QTest::qWaitForWindowActive(overlay, 10000) ? overlay : nullptr;
}

} // namespace

// Built twice: test_capture_hidpi scales the whole process by 2, as on a Retina display. Points are logical.
class TestCapture : public QObject
{
    Q_OBJECT

public:
    static void initMain()
    {
        if (VONTREL_CAPTURE_RATIO != 1)
            qputenv("QT_SCALE_FACTOR", QByteArray::number(VONTREL_CAPTURE_RATIO));
    }

private slots:
    void initTestCase()
    {
        QCOMPARE(QGuiApplication::primaryScreen()->devicePixelRatio(), m_ratio);
        QPixmap pattern =
            QPixmap::fromImage(patternImage(QRect(QPoint(0, 0), m_backdrop.screen()->size() * m_ratio)));
        pattern.setDevicePixelRatio(m_ratio);
        m_backdrop.setPixmap(pattern);
        m_backdrop.setWindowFlags(Qt::FramelessWindowHint | Qt::BypassWindowManagerHint);
        m_backdrop.setGeometry(m_backdrop.screen()->geometry());
        m_backdrop.show();
        QVERIFY(QTest::qWaitForWindowExposed(&m_backdrop, 10000));
    }

    void init()
    {
        // The overlay freezes what the X server shows: wait until the backdrop is painted again.
        QTRY_COMPARE_WITH_TIMEOUT(QGuiApplication::primaryScreen()->grabWindow(0).toImage().pixel(301, 203),
                                  patternAt(301, 203), 10000);
        m_service = std::make_unique<CaptureService>();
        m_done = std::make_unique<QSignalSpy>(m_service.get(), &CaptureService::captureDone);
        m_cancelled = std::make_unique<QSignalSpy>(m_service.get(), &CaptureService::captureCancelled);
        m_service->startCapture();
        QVERIFY(m_service->isCapturing());
        m_overlay = waitForCaptureOverlay();
        QVERIFY(m_overlay);
    }

    void cleanup()
    {
        // An overlay a failed test left up would swallow the next test's input.
        for (CaptureOverlay *overlay : captureOverlays())
            overlay->close();
        m_done.reset();
        m_cancelled.reset();
        m_service.reset();
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    }

    void selectsTheDraggedPixels_data()
    {
        QTest::addColumn<QLine>("tooSmall"); // a drag that must leave the overlay up for another try
        QTest::addColumn<QLine>("gesture");
        QTest::addColumn<QRect>("expected");

        const QRect area(100, 120, 100, 50);
        const QLine forward(area.topLeft(), area.bottomRight());
        QTest::newRow("100 x 50") << QLine() << forward << area;
        QTest::newRow("100 x 50 backwards") << QLine() << QLine(area.bottomRight(), area.topLeft()) << area;
        QTest::newRow("6 x 6, the smallest") << QLine() << QLine(500, 300, 505, 305) << QRect(500, 300, 6, 6);
        QTest::newRow("after 5 x 300") << QLine(400, 100, 404, 399) << forward << area;
    }

    void selectsTheDraggedPixels()
    {
        QFETCH(QLine, tooSmall);
        QFETCH(QLine, gesture);
        QFETCH(QRect, expected);

        QVERIFY(tooSmall.isNull() || drag(tooSmall.p1(), tooSmall.p2()));
        QVERIFY(drag(gesture.p1(), gesture.p2()));
        QTRY_VERIFY_WITH_TIMEOUT(!m_done->isEmpty(), 10000); // may have come while xdotool ran
        QCOMPARE(m_done->count() + m_cancelled->count(), 1);
        QVERIFY(!m_service->isCapturing());

        // Full device resolution, carrying the screen's ratio: 100 x 50 at ratio 2 is 200 x 100 pixels.
        QImage image = m_done->first().first().value<QImage>();
        QCOMPARE(image.devicePixelRatio(), m_ratio);
        QCOMPARE(image.size(), expected.size() * m_ratio);
        image.setDevicePixelRatio(1);
        QCOMPARE(image.convertToFormat(QImage::Format_RGB32),
                 patternImage(QRect(expected.topLeft() * m_ratio, expected.size() * m_ratio)));
    }

    void endsOnlyWithALeftDragOrEscape()
    {
        // A second request while capturing is ignored; other buttons and keys do not end the capture.
        m_service->startCapture();
        QCOMPARE(captureOverlays(false), QList<CaptureOverlay *>{m_overlay.data()});
        QVERIFY(drag(QPoint(300, 300), QPoint(300, 300), 3));
        QVERIFY(drag(QPoint(200, 200), QPoint(260, 240), 3));
        QVERIFY(xdotool({"key", "Return", "q"}));
        QVERIFY(drag(QPoint(100, 100), QPoint(149, 129)));
        QTRY_VERIFY_WITH_TIMEOUT(!m_done->isEmpty(), 10000); // may have come while xdotool ran
        QCOMPARE(m_cancelled->count(), 0);
        QCOMPARE(m_done->first().first().value<QImage>().size(), QSize(50, 30) * m_ratio);

        m_service->startCapture();
        QVERIFY(waitForCaptureOverlay());
        QVERIFY(xdotool({"key", "Escape"}));
        QTRY_VERIFY_WITH_TIMEOUT(!m_cancelled->isEmpty(), 10000);
        QCOMPARE(m_done->count(), 1);
        QVERIFY(!m_service->isCapturing());

        // After a cancel, the service takes the next request.
        m_service->startCapture();
        QVERIFY(waitForCaptureOverlay());
    }

private:
    const qreal m_ratio = VONTREL_CAPTURE_RATIO;
    QLabel m_backdrop; // the pattern over the whole screen
    std::unique_ptr<CaptureService> m_service;
    std::unique_ptr<QSignalSpy> m_done;
    std::unique_ptr<QSignalSpy> m_cancelled;
    QPointer<CaptureOverlay> m_overlay;
};

QTEST_MAIN(TestCapture)
#include "test_capture.moc"
