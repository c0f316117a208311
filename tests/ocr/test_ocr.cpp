// The portable steps around the recogniser: preparing a capture for it, and the worker that runs it (its
// checks, its copy of the image, delivery on the receiver's thread). The real recogniser's outcomes are in
// test_tesseractocrprovider.
#include "ocr/IOcrProvider.h"
#include "ocr/OcrPreprocessing.h"
#include "ocr/OcrWorker.h"
#include "ocr/OcrWorkerResult.h"

#include "TestEnv.h"

#include <QFile>
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

QString dataDir()
{
    return TestEnv::sourceDir() + QStringLiteral("/tests/ocr/data/prepare/");
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
    // The captures and what their preparation must give are listed in data/prepare/expected.txt.
    void preparesScreenText_data()
    {
        QTest::addColumn<QString>("file");
        QTest::addColumn<bool>("inverted");
        QTest::addColumn<int>("lineCount");
        QTest::addColumn<bool>("enlarged");
        QFile list(dataDir() + QStringLiteral("expected.txt"));
        QVERIFY(list.open(QIODevice::ReadOnly | QIODevice::Text));
        for (const QString &line : QString::fromUtf8(list.readAll()).split(QLatin1Char('\n'))) {
            const QStringList cells = line.split(QLatin1Char(' '), Qt::SkipEmptyParts);
            if (cells.size() != 4 || line.startsWith(QLatin1Char('#')))
                continue;
            QTest::newRow(qPrintable(cells[0])) << cells[0] << (cells[1] == QLatin1String("yes"))
                                                << cells[2].toInt() << (cells[3] == QLatin1String("yes"));
        }
    }

    void preparesScreenText()
    {
        QFETCH(QString, file);
        QFETCH(bool, inverted);
        QFETCH(int, lineCount);
        QFETCH(bool, enlarged);

        const QImage source(dataDir() + file);
        QVERIFY(!source.isNull());
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
