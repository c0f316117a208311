#include "ocr/IOcrProvider.h"
#include "ocr/OcrWorker.h"
#include "ocr/OcrWorkerResult.h"

#include <QTest>
#include <QThread>
#include <QThreadPool>

// The real recogniser's outcomes (text, none, no data) are in test_tesseractocrprovider; these are the
// worker's own: its checks, its copy of the image, delivery on the receiver's thread.
namespace {

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

class TestOcrWorker : public QObject
{
    Q_OBJECT

private slots:
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

QTEST_GUILESS_MAIN(TestOcrWorker)
#include "test_ocrworker.moc"
