// The portable steps around the recogniser: preparing a capture for it, and the worker that runs it (its
// checks, its copy of the image, delivery on the receiver's thread). The real recogniser's outcomes are in
// test_tesseractocrprovider.
#include "ocr/IOcrProvider.h"
#include "ocr/OcrPreprocessing.h"
#include "ocr/OcrWorker.h"
#include "ocr/OcrWorkerResult.h"

#include "TextImage.h"

#include <QPainter>
#include <QTest>
#include <QThread>
#include <QThreadPool>

#include <algorithm>

namespace {

// Heights of the bands of rows that hold ink (darker than mid-grey), as a recogniser sees lines.
QList<int> bandHeights(const QImage &gray)
{
    QList<int> heights;
    int start = -1;
    for (int y = 0; y <= gray.height(); ++y) {
        const uchar *row = y < gray.height() ? gray.constScanLine(y) : nullptr;
        const bool ink = row && std::any_of(row, row + gray.width(), [](uchar v) { return v < 128; });
        if (ink && start < 0)
            start = y;
        if (!ink && start >= 0)
            heights << y - std::exchange(start, -1);
    }
    return heights;
}

struct FakeProvider final : IOcrProvider
{
    QString recognize(QImage image) override
    {
        seen << image.pixel(0, 0);
        return QStringLiteral("Hello\nWorld");
    }
    bool isAvailable() override { return true; }
    QList<QRgb> seen;
};

} // namespace

class TestOcr : public QObject
{
    Q_OBJECT

private slots:
    void preparesScreenText_data()
    {
        QTest::addColumn<QImage>("source");
        QTest::addColumn<bool>("inverted");
        QTest::addColumn<int>("lineCount");
        QTest::addColumn<bool>("enlarged");

        const QStringList two = {QStringLiteral("Save changes before closing?"),
                                 QStringLiteral("Open Recent Files")};
        const QColor darkBackground(0x1e, 0x1e, 0x1e);
        QTest::newRow("11 px light") << TextImage::render(two, 11) << false << 2 << true;
        QTest::newRow("11 px dark") << TextImage::render(two, 11, QColor(0xe0, 0xe0, 0xe0), darkBackground)
                                    << true << 2 << true;
        QTest::newRow("13 px at ratio 2, dark")
            << TextImage::render(two, 13, Qt::white, QColor(0x28, 0x2c, 0x34), 2.0) << true << 2 << true;
        QTest::newRow("40 px is not blown up") << TextImage::render(two, 40) << false << 2 << false;
        QTest::newRow("blank") << TextImage::render({}, 11, Qt::white, darkBackground) << true << 0 << false;

        // What a hand-dragged region catches around the text must neither merge its lines into one band nor
        // count as a line of its own.
        const QStringList three = {QStringLiteral("Save changes before closing?"),
                                   QStringLiteral("打开最近使用的文件"), QStringLiteral("Open Recent Files")};
        const QImage light = TextImage::render(three, 13);
        const QImage dark = TextImage::render(three, 13, QColor(0xe0, 0xe0, 0xe0), darkBackground);
        QTest::newRow("outline with a margin")
            << TextImage::framed(light, 4, QColor(0xb0, 0xb0, 0xb0), 5) << false << 3 << true;
        QTest::newRow("frame at the edge, dark")
            << TextImage::framed(dark, 0, Qt::white, 0, Qt::white, 2) << true << 3 << true;
        QTest::newRow("light page on a dark desktop")
            << TextImage::framed(light, 0, QColor(0x80, 0x80, 0x80), 60, QColor(0x20, 0x22, 0x25)) << false
            << 3 << true;
        QTest::newRow("dark page on a light desktop")
            << TextImage::framed(dark, 0, darkBackground, 50, QColor(0xa8, 0xc8, 0xe8)) << true << 3 << true;
        QImage rules = TextImage::framed(light, 0, Qt::white, 6, Qt::white);
        for (int y : {2, rules.height() - 3})
            QPainter(&rules).fillRect(0, y, rules.width(), 1, Qt::black);
        QTest::newRow("table rules above and below") << rules << false << 3 << true;
        // The lower half of the line above: its line is cut through the middle of the glyphs.
        const QImage withAbove =
            TextImage::render(QStringList{QStringLiteral("Download complete")} + three, 13);
        QTest::newRow("half a line cut off above")
            << withAbove.copy(0, 14, withAbove.width(), withAbove.height() - 14) << false << 3 << true;
        QImage band = TextImage::framed(light, 0, Qt::black, 0, Qt::white, 0);
        QPainter(&band).fillRect(band.width() - 3, 0, 3, band.height(), QColor(0x15, 0x17, 0x1a));
        QTest::newRow("edge of the next window") << band << false << 3 << true;
    }

    void preparesScreenText()
    {
        QFETCH(QImage, source);
        QFETCH(bool, inverted);
        QFETCH(int, lineCount);
        QFETCH(bool, enlarged);

        const OcrPreparedImage prepared = vontrelPrepareImageForOcr(source);
        const QImage &image = prepared.image;
        QCOMPARE(image.format(), QImage::Format_Grayscale8);
        QCOMPARE(prepared.inverted, inverted);
        QCOMPARE(prepared.lineCount, lineCount);
        QCOMPARE(prepared.scale > 1.0, enlarged);
        // Capitals 20-50 px tall: a line band of roughly 25-65 px.
        const QList<int> bands = bandHeights(image);
        QCOMPARE(bands.size(), lineCount);
        for (int band : bands)
            QVERIFY2(band >= 25 && band <= 65, qPrintable(QStringLiteral("%1 px").arg(band)));
    }

    void reportsOneOutcome_data()
    {
        QTest::addColumn<bool>("withProvider");
        QTest::addColumn<bool>("nullImage");
        QTest::addColumn<QString>("expected");
        QTest::newRow("text") << true << false << QStringLiteral("Hello\nWorld");
        QTest::newRow("no provider") << false << false << QStringLiteral("error: OCR provider not available");
        QTest::newRow("null image") << true << true << QStringLiteral("error: Invalid image");
    }

    void reportsOneOutcome()
    {
        QFETCH(bool, withProvider);
        QFETCH(bool, nullImage);
        QFETCH(QString, expected);
        FakeProvider provider;
        OcrWorkerResult result;
        QList<QPair<QString, QThread *>> outcomes; // the text or error, and the thread it arrived on
        connect(&result, &OcrWorkerResult::finished, this, [&](const QString &text) {
            outcomes.append({text, QThread::currentThread()});
        });
        connect(&result, &OcrWorkerResult::error, this, [&](const QString &error) {
            outcomes.append({QStringLiteral("error: ") + error, QThread::currentThread()});
        });

        QImage image(16, 8, QImage::Format_RGB32);
        image.fill(qRgb(10, 20, 30));
        auto *worker =
            new OcrWorker(nullImage ? QImage() : image, withProvider ? &provider : nullptr, &result);
        image.fill(qRgb(200, 0, 0)); // the caller reuses its buffer: the worker has its own copy
        QThreadPool::globalInstance()->start(worker, 0);
        QTRY_COMPARE_WITH_TIMEOUT(outcomes.size(), 1, 10000);
        QThreadPool::globalInstance()->waitForDone();
        QCoreApplication::processEvents();
        QCOMPARE(outcomes, (QList<QPair<QString, QThread *>>{{expected, QThread::currentThread()}}));
        QCOMPARE(provider.seen, expected.startsWith("error") ? QList<QRgb>() : QList<QRgb>{qRgb(10, 20, 30)});
    }
};

QTEST_MAIN(TestOcr)
#include "test_ocr.moc"
