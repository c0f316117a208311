#include "ocr/IOcrProvider.h"
#include "ocr/OcrWorker.h"
#include "ocr/OcrWorkerResult.h"

#include <QSemaphore>
#include <QSignalSpy>
#include <QTest>
#include <QThread>
#include <QThreadPool>

#include <atomic>

namespace {

// Answers with a fixed text and records what it was handed; can hold a recognition until released.
class FakeProvider final : public IOcrProvider
{
public:
    QString recognize(QImage image) override
    {
        seenPixel = image.isNull() ? QRgb(0) : image.pixel(0, 0);
        calls.fetch_add(1);
        started.release();
        if (holdRecognition)
            proceed.acquire();
        return answer;
    }
    bool isAvailable() override { return available; }

    QString answer;
    bool available = true;
    bool holdRecognition = false;
    std::atomic<int> calls{0};
    QRgb seenPixel = 0;
    QSemaphore started;
    QSemaphore proceed;
};

QImage filledImage(QRgb colour)
{
    QImage image(16, 8, QImage::Format_RGB32);
    image.fill(colour);
    return image;
}

} // namespace

class TestOcrWorker : public QObject
{
    Q_OBJECT

private slots:
    void reportsOneOutcome_data();
    void reportsOneOutcome();
    void deliversOnTheReceiversThread();
    void recognisesItsOwnCopyOfTheImage();
    void dropsTheOutcomeWhenTheReceiverIsGone();
};

void TestOcrWorker::reportsOneOutcome_data()
{
    QTest::addColumn<bool>("withProvider");
    QTest::addColumn<bool>("nullImage");
    QTest::addColumn<bool>("available");
    QTest::addColumn<QString>("answer");
    QTest::addColumn<QString>("expectedError");
    QTest::addColumn<bool>("recognises");

    QTest::newRow("text") << true << false << true << QStringLiteral("Hello\nWorld") << QString() << true;
    // Nothing recognised is a finished result the session shows as such, never an error.
    QTest::newRow("no text") << true << false << true << QString() << QString() << true;
    QTest::newRow("no provider") << false << false << true << QString()
                                 << QStringLiteral("OCR provider not available") << false;
    QTest::newRow("null image") << true << true << true << QString() << QStringLiteral("Invalid image")
                                << false;
    QTest::newRow("unavailable") << true << false << false << QStringLiteral("unused")
                                 << QStringLiteral("OCR not available on this system") << false;
}

void TestOcrWorker::reportsOneOutcome()
{
    QFETCH(bool, withProvider);
    QFETCH(bool, nullImage);
    QFETCH(bool, available);
    QFETCH(QString, answer);
    QFETCH(QString, expectedError);
    QFETCH(bool, recognises);

    FakeProvider provider;
    provider.available = available;
    provider.answer = answer;
    OcrWorkerResult result;
    QSignalSpy finished(&result, &OcrWorkerResult::finished);
    QSignalSpy failed(&result, &OcrWorkerResult::error);

    const QImage image = nullImage ? QImage() : filledImage(qRgb(1, 2, 3));
    QThreadPool::globalInstance()->start(new OcrWorker(image, withProvider ? &provider : nullptr, &result),
                                         0);
    QTRY_COMPARE_WITH_TIMEOUT(finished.count() + failed.count(), 1, 10000);
    QThreadPool::globalInstance()->waitForDone();
    QCoreApplication::processEvents();

    QCOMPARE(finished.count() + failed.count(), 1);
    if (expectedError.isEmpty()) {
        QCOMPARE(finished.count(), 1);
        QCOMPARE(finished.first().first().toString(), answer);
    } else {
        QCOMPARE(failed.count(), 1);
        QCOMPARE(failed.first().first().toString(), expectedError);
    }
    QCOMPARE(provider.calls.load(), recognises ? 1 : 0);
}

void TestOcrWorker::deliversOnTheReceiversThread()
{
    FakeProvider provider;
    provider.answer = QStringLiteral("text");
    OcrWorkerResult result;
    QThread *deliveredOn = nullptr;
    connect(&result, &OcrWorkerResult::finished, this,
            [&deliveredOn] { deliveredOn = QThread::currentThread(); });

    QThreadPool::globalInstance()->start(new OcrWorker(filledImage(qRgb(0, 0, 0)), &provider, &result), 0);
    QTRY_VERIFY_WITH_TIMEOUT(deliveredOn != nullptr, 10000);
    QCOMPARE(deliveredOn, QThread::currentThread());
}

void TestOcrWorker::recognisesItsOwnCopyOfTheImage()
{
    FakeProvider provider;
    provider.answer = QStringLiteral("text");
    OcrWorkerResult result;
    QSignalSpy finished(&result, &OcrWorkerResult::finished);

    QImage image = filledImage(qRgb(10, 20, 30));
    auto *worker = new OcrWorker(image, &provider, &result);
    // The caller keeps using its image (the preview is repainted, the next capture reuses buffers).
    image.fill(qRgb(200, 0, 0));
    QThreadPool::globalInstance()->start(worker, 0);
    QVERIFY(finished.wait(10000));
    QCOMPARE(provider.seenPixel, qRgb(10, 20, 30));
}

void TestOcrWorker::dropsTheOutcomeWhenTheReceiverIsGone()
{
    FakeProvider provider;
    provider.answer = QStringLiteral("late");
    provider.holdRecognition = true;
    auto *result = new OcrWorkerResult;
    int delivered = 0;
    connect(result, &OcrWorkerResult::finished, this, [&delivered] { ++delivered; });

    QThreadPool::globalInstance()->start(new OcrWorker(filledImage(qRgb(0, 0, 0)), &provider, result), 0);
    QVERIFY(provider.started.tryAcquire(1, 10000));
    // A new session discards the receiver while the old recognition is still running.
    delete result;
    provider.proceed.release();
    QThreadPool::globalInstance()->waitForDone();
    QCoreApplication::processEvents();
    QCoreApplication::processEvents();
    QCOMPARE(delivered, 0);
}

QTEST_GUILESS_MAIN(TestOcrWorker)
#include "test_ocrworker.moc"
