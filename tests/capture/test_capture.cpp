#include "CaptureDriver.h"

#include "capture/CaptureOverlay.h"
#include "capture/CaptureService.h"

#include <QLineEdit>
#include <QPointer>
#include <QSignalSpy>
#include <QTest>

namespace {

// Pixels darker than this in every channel belong to a label or hint box (black at alpha 180 over the
// dimmed screen), not to the dimmed grey backdrop.
bool isBoxPixel(QRgb pixel)
{
    return qRed(pixel) < 50 && qGreen(pixel) < 50 && qBlue(pixel) < 50;
}

int boxPixelsIn(const QImage &image, const QRect &area)
{
    int count = 0;
    const QRect clipped = area.intersected(image.rect());
    for (int y = clipped.top(); y <= clipped.bottom(); ++y) {
        for (int x = clipped.left(); x <= clipped.right(); ++x)
            count += isBoxPixel(image.pixel(x, y)) ? 1 : 0;
    }
    return count;
}

} // namespace

class TestCapture : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void cleanup();
    void selectsTheDraggedPixels_data();
    void selectsTheDraggedPixels();
    void keepsSmallSelectionsForAnotherTry_data();
    void keepsSmallSelectionsForAnotherTry();
    void cancelsOnlyWithEscape();
    void ignoresASecondStartWhileCapturing();
    void givesTheKeyboardBack();
    void drawsTheSelectionWithItsSize_data();
    void drawsTheSelectionWithItsSize();

private:
    void showBackdrop(const QColor &plain = QColor());

    std::unique_ptr<PatternWindow> m_backdrop;
    std::unique_ptr<CaptureService> m_service;
};

void TestCapture::initTestCase()
{
    // One backdrop for all tests: mapping a new window where another was just unmapped can take Xvfb seconds.
    m_backdrop = std::make_unique<PatternWindow>();
    m_backdrop->show();
    QVERIFY(QTest::qWaitForWindowExposed(m_backdrop.get(), 10000));
}

void TestCapture::init()
{
    m_service = std::make_unique<CaptureService>();
}

void TestCapture::cleanup()
{
    // An overlay a failed test left up would swallow the next test's input.
    if (CaptureOverlay *overlay = m_service->isCapturing() ? waitForCaptureOverlay() : nullptr)
        overlay->close();
    m_service.reset();
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
}

void TestCapture::showBackdrop(const QColor &plain)
{
    m_backdrop = std::make_unique<PatternWindow>(plain);
    m_backdrop->show();
    QVERIFY(QTest::qWaitForWindowExposed(m_backdrop.get(), 10000));
    // The overlay grabs what the X server shows: wait until the backdrop is really on screen.
    QTRY_VERIFY_WITH_TIMEOUT(
        m_backdrop->grab().toImage().pixel(5, 5) ==
            QGuiApplication::primaryScreen()->grabWindow(0, 5, 5, 1, 1).toImage().pixel(0, 0),
        10000);
}

void TestCapture::selectsTheDraggedPixels_data()
{
    QTest::addColumn<QPoint>("from");
    QTest::addColumn<QPoint>("to");
    QTest::addColumn<QRect>("expected");

    const QRect area(QPoint(300, 200), QPoint(699, 459));
    QTest::newRow("top-left to bottom-right") << area.topLeft() << area.bottomRight() << area;
    QTest::newRow("bottom-right to top-left") << area.bottomRight() << area.topLeft() << area;
    QTest::newRow("bottom-left to top-right") << area.bottomLeft() << area.topRight() << area;
    QTest::newRow("6 x 6, the smallest") << QPoint(1000, 700) << QPoint(1005, 705) << QRect(1000, 700, 6, 6);
    QTest::newRow("from the screen corner") << QPoint(0, 0) << QPoint(63, 31) << QRect(0, 0, 64, 32);
}

void TestCapture::selectsTheDraggedPixels()
{
    QFETCH(QPoint, from);
    QFETCH(QPoint, to);
    QFETCH(QRect, expected);

    showBackdrop();
    QSignalSpy done(m_service.get(), &CaptureService::captureDone);
    QSignalSpy cancelled(m_service.get(), &CaptureService::captureCancelled);
    m_service->startCapture();
    QVERIFY(m_service->isCapturing());
    QPointer<CaptureOverlay> overlay = waitForCaptureOverlay();
    QVERIFY(overlay);
    QCOMPARE(overlay->geometry(), QGuiApplication::primaryScreen()->geometry());

    QVERIFY(XInput::drag(from, to));
    QVERIFY(done.wait(10000));
    QCOMPARE(done.count(), 1);
    QCOMPARE(cancelled.count(), 0);
    QVERIFY(!m_service->isCapturing());

    const QImage image = done.first().first().value<QImage>();
    QCOMPARE(image.size(), expected.size());
    QCOMPARE(image.devicePixelRatio(), 1.0);
    QCOMPARE(image.convertToFormat(QImage::Format_RGB32), PatternWindow::patternImage(expected));

    // The overlay is gone for good once the service has reported.
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    QVERIFY(overlay.isNull());
}

void TestCapture::keepsSmallSelectionsForAnotherTry_data()
{
    QTest::addColumn<QPoint>("from");
    QTest::addColumn<QPoint>("to");

    QTest::newRow("5 x 300") << QPoint(400, 100) << QPoint(404, 399);
    QTest::newRow("300 x 5") << QPoint(400, 100) << QPoint(699, 104);
    QTest::newRow("5 x 5 backwards") << QPoint(404, 104) << QPoint(400, 100);
    QTest::newRow("a click") << QPoint(400, 100) << QPoint(400, 100);
}

void TestCapture::keepsSmallSelectionsForAnotherTry()
{
    QFETCH(QPoint, from);
    QFETCH(QPoint, to);

    showBackdrop();
    QSignalSpy done(m_service.get(), &CaptureService::captureDone);
    QSignalSpy cancelled(m_service.get(), &CaptureService::captureCancelled);
    m_service->startCapture();
    QVERIFY(waitForCaptureOverlay());

    QVERIFY(XInput::drag(from, to));
    // The overlay must still be there to take the next drag: only that one ends the capture.
    const QRect second(QPoint(800, 600), QPoint(899, 649));
    QVERIFY(XInput::drag(second.topLeft(), second.bottomRight()));
    QVERIFY(done.wait(10000));
    QCOMPARE(done.count(), 1);
    QCOMPARE(cancelled.count(), 0);
    QCOMPARE(done.first().first().value<QImage>().size(), second.size());
}

void TestCapture::cancelsOnlyWithEscape()
{
    showBackdrop();
    QSignalSpy done(m_service.get(), &CaptureService::captureDone);
    QSignalSpy cancelled(m_service.get(), &CaptureService::captureCancelled);
    m_service->startCapture();
    QPointer<CaptureOverlay> overlay = waitForCaptureOverlay();
    QVERIFY(overlay);

    // Neither other buttons nor other keys end the capture; the left-button drag after them still works.
    QVERIFY(XInput::click(QPoint(500, 500), 3));
    QVERIFY(XInput::drag(QPoint(200, 200), QPoint(260, 240), 3));
    QVERIFY(XInput::key(QStringLiteral("Return")));
    QVERIFY(XInput::key(QStringLiteral("q")));
    QVERIFY(XInput::drag(QPoint(100, 100), QPoint(149, 129)));
    QVERIFY(done.wait(10000));
    QCOMPARE(cancelled.count(), 0);
    QCOMPARE(done.first().first().value<QImage>().size(), QSize(50, 30));

    m_service->startCapture();
    overlay = waitForCaptureOverlay();
    QVERIFY(overlay);
    QVERIFY(XInput::key(QStringLiteral("Escape")));
    QVERIFY(cancelled.wait(10000));
    QCOMPARE(cancelled.count(), 1);
    QCOMPARE(done.count(), 1);
    QVERIFY(!m_service->isCapturing());
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    QVERIFY(overlay.isNull());
}

void TestCapture::ignoresASecondStartWhileCapturing()
{
    showBackdrop();
    QSignalSpy done(m_service.get(), &CaptureService::captureDone);
    QSignalSpy cancelled(m_service.get(), &CaptureService::captureCancelled);
    m_service->startCapture();
    CaptureOverlay *first = waitForCaptureOverlay();
    QVERIFY(first);
    m_service->startCapture();
    QCOMPARE(captureOverlayCount(), 1);
    QCOMPARE(waitForCaptureOverlay(), first);

    QVERIFY(XInput::key(QStringLiteral("Escape")));
    QVERIFY(cancelled.wait(10000));
    QCOMPARE(cancelled.count(), 1);

    // Once ended, the service takes the next request.
    m_service->startCapture();
    QVERIFY(m_service->isCapturing());
    QVERIFY(waitForCaptureOverlay());
    QVERIFY(XInput::drag(QPoint(10, 300), QPoint(109, 349)));
    QVERIFY(done.wait(10000));
    QCOMPARE(cancelled.count(), 1);
}

void TestCapture::givesTheKeyboardBack()
{
    showBackdrop();
    QSignalSpy done(m_service.get(), &CaptureService::captureDone);
    m_service->startCapture();
    QVERIFY(waitForCaptureOverlay());
    QVERIFY(XInput::drag(QPoint(100, 100), QPoint(199, 149)));
    QVERIFY(done.wait(10000));

    // The overlay held the keyboard while it was up; once it is gone, typing reaches other windows again.
    QLineEdit editor;
    editor.setWindowFlags(Qt::FramelessWindowHint | Qt::BypassWindowManagerHint);
    editor.setGeometry(200, 200, 300, 30);
    editor.show();
    editor.activateWindow();
    QVERIFY(QTest::qWaitForWindowActive(&editor, 10000));
    QVERIFY(XInput::key(QStringLiteral("a")));
    QTRY_COMPARE_WITH_TIMEOUT(editor.text(), QStringLiteral("a"), 10000);
}

void TestCapture::drawsTheSelectionWithItsSize_data()
{
    QTest::addColumn<QRect>("selection");
    QTest::addColumn<bool>("labelBelow");

    QTest::newRow("label above") << QRect(QPoint(400, 300), QPoint(599, 399)) << false;
    // No room above a selection that touches the top of the screen: the label goes below it.
    QTest::newRow("label below near the top") << QRect(QPoint(400, 10), QPoint(599, 109)) << true;
}

void TestCapture::drawsTheSelectionWithItsSize()
{
    QFETCH(QRect, selection);
    QFETCH(bool, labelBelow);

    const QColor grey(0xc0, 0xc0, 0xc0);
    showBackdrop(grey);
    m_service->startCapture();
    CaptureOverlay *overlay = waitForCaptureOverlay();
    QVERIFY(overlay);

    // Before a drag: the whole screen is dimmed, with the hint box in the middle.
    QImage shown = overlay->grab().toImage();
    const QRgb dimmed = shown.pixel(20, shown.height() - 20);
    QVERIFY2(qRed(dimmed) < grey.red() - 40 && qRed(dimmed) > 60, qPrintable(QString::number(qRed(dimmed))));
    QVERIFY(boxPixelsIn(shown, QRect(shown.width() / 2 - 20, shown.height() / 2 - 10, 40, 10)) > 100);

    // While the button is held: the selection is undimmed inside a white outline, the size label beside it.
    QVERIFY(XInput::press(selection.topLeft()));
    QVERIFY(XInput::moveTo(selection.center()));
    QVERIFY(XInput::moveTo(selection.bottomRight()));
    QTRY_VERIFY_WITH_TIMEOUT(overlay->grab().toImage().pixel(selection.center()) == grey.rgb(), 10000);
    shown = overlay->grab().toImage();
    QCOMPARE(QColor(shown.pixel(selection.left(), selection.center().y())), QColor(Qt::white));
    QCOMPARE(QColor(shown.pixel(selection.center().x(), selection.bottom())), QColor(Qt::white));
    QCOMPARE(shown.pixel(selection.right() + 10, selection.center().y()), dimmed);
    QCOMPARE(boxPixelsIn(shown, QRect(shown.width() / 2 - 20, shown.height() / 2 - 10, 40, 10)), 0);

    const QRect above(selection.left(), selection.top() - 20, 60, 14);
    const QRect below(selection.left(), selection.bottom() + 6, 60, 14);
    QVERIFY2(boxPixelsIn(shown, labelBelow ? below : above) > 200, "no size label where expected");
    QCOMPARE(boxPixelsIn(shown, labelBelow ? above : below), 0);

    QVERIFY(XInput::release());
}

QTEST_MAIN(TestCapture)
#include "test_capture.moc"
