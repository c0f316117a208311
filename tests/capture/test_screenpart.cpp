// How a whole-desktop screenshot (a desktop portal's) is cut into the screens the region selectors cover.

#include "capture/CaptureService.h"

#include <QPainter>
#include <QTest>

class TestScreenPart : public QObject
{
    Q_OBJECT

private slots:
    void eachScreenGetsItsPixelsAndRatio_data()
    {
        QTest::addColumn<QSize>("wholeSize");
        QTest::addColumn<QRect>("desktop");
        QTest::addColumn<QRect>("screen");
        QTest::addColumn<QRect>("expectedSource");
        QTest::addColumn<qreal>("expectedRatio");

        // Two screens side by side: 1000x600 at (0,0) and 800x600 at (1000,0); the desktop box is 1800x600.
        const QRect sideBySide(0, 0, 1800, 600);
        QTest::newRow("unscaled right screen")
            << QSize(1800, 600) << sideBySide << QRect(1000, 0, 800, 600) << QRect(1000, 0, 800, 600) << 1.0;
        QTest::newRow("scale 2 left screen")
            << QSize(3600, 1200) << sideBySide << QRect(0, 0, 1000, 600) << QRect(0, 0, 2000, 1200) << 2.0;
        QTest::newRow("fractional 1.5")
            << QSize(2700, 900) << sideBySide << QRect(1000, 0, 800, 600) << QRect(1500, 0, 1200, 900) << 1.5;
        // A layout that starts left of and above the origin, and a lower screen that leaves a hole.
        const QRect offset(-1280, -200, 2560, 1000);
        QTest::newRow("left of the origin") << QSize(2560, 1000) << offset << QRect(-1280, -200, 1280, 1000)
                                            << QRect(0, 0, 1280, 1000) << 1.0;
        QTest::newRow("lower screen of an uneven pair")
            << QSize(5120, 2000) << offset << QRect(0, 0, 1280, 800) << QRect(2560, 400, 2560, 1600) << 2.0;
        // A compositor that scaled the desktop by 1.25 gives 1.25 per logical pixel; 1001 is rounded, not
        // cut.
        QTest::newRow("odd width at 1.25")
            << QSize(2502, 750) << QRect(0, 0, 2002, 600) << QRect(1001, 0, 1001, 600)
            << QRect(1251, 0, 1251, 750) << 1251.0 / 1001;
    }

    void eachScreenGetsItsPixelsAndRatio()
    {
        QFETCH(QSize, wholeSize);
        QFETCH(QRect, desktop);
        QFETCH(QRect, screen);
        QFETCH(QRect, expectedSource);
        QFETCH(qreal, expectedRatio);

        QImage whole(wholeSize, QImage::Format_RGB32);
        whole.fill(Qt::black);
        QPainter(&whole).fillRect(expectedSource, Qt::green);
        const QImage part = CaptureService::screenPart(whole, desktop, screen);
        QCOMPARE(part.size(), expectedSource.size());
        QCOMPARE(part.devicePixelRatio(), expectedRatio);
        QCOMPARE(part.deviceIndependentSize().toSize(), screen.size());
        // Nothing of a neighbour's pixels: every corner is inside the screen's own part.
        for (const QPoint &corner : {QPoint(0, 0), QPoint(part.width() - 1, 0), QPoint(0, part.height() - 1),
                                     QPoint(part.width() - 1, part.height() - 1)})
            QCOMPARE(part.pixelColor(corner), QColor(Qt::green));
    }

    void screenOutsideTheImageHasNoPart()
    {
        QImage whole(100, 100, QImage::Format_RGB32);
        QVERIFY(CaptureService::screenPart(whole, QRect(0, 0, 100, 100), QRect(100, 0, 50, 50)).isNull());
        QVERIFY(CaptureService::screenPart(QImage(), QRect(0, 0, 100, 100), QRect(0, 0, 50, 50)).isNull());
    }
};

QTEST_MAIN(TestScreenPart)
#include "test_screenpart.moc"
