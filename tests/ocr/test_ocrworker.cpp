#include "ocr/IOcrProvider.h"
#include "ocr/OcrWorker.h"
#include "ocr/OcrWorkerResult.h"

#include <QSemaphore>
#include <QSignalSpy>
#include <QTest>
#include <QThread>
#include <QThreadPool>

namespace {

// Answers with a fixed text and records what it was handed; can hold a recognition until released.
struct FakeProvider final : IOcrProvider
{
    QString recognize(QImage image) override
    {
        seen << image.pixel(0, 0);
        started.release();
        proceed.acquire();
        return answer;
    }
    bool isAvailable() override { return available; }

    QString answer;
    bool available = true;
    QList<QRgb> seen;
    QSemaphore started;
    QSemaphore proceed{1000};
};

} // namespace

class TestOcrWorker : public QObject
{
    Q_OBJECT

private slots:
    void reportsOneOutcome_data();
    void reportsOneOutcome();
    void dropsTheOutcomeWhenTheReceiverIsGone();
};

void TestOcrWorker::reportsOneOutcome_data()
{
    QTest::addColumn<bool>("withProvider");
    QTest::addColumn<bool>("nullImage");
    QTest::addColumn<bool>("available");
    QTest::addColumn<QString>("answer");
    QTest::addColumn<QString>("expectedError");

    QTest::newRow("text") << true << false << true << QStringLiteral("Hello\nWorld") << QString();
    // Nothing recognised is a finished result, never an error.
    QTest::newRow("no text") << true << false << true << QString() << QString();
    QTest::newRow("no provider") << false << false << true << QString()
                                 << QStringLiteral("OCR provider not available");
    QTest::newRow("null image") << true << true << true << QString() << QStringLiteral("Invalid image");
    QTest::newRow("unavailable") << true << false << false << QStringLiteral("unused")
                                 << QStringLiteral("OCR not available on this system");
}

void TestOcrWorker::reportsOneOutcome()
{
    QFETCH(bool, withProvider);
    QFETCH(bool, nullImage);
    QFETCH(bool, available);
    QFETCH(QString, answer);
    QFETCH(QString, expectedError);

    FakeProvider provider;
    provider.available = available;
    provider.answer = answer;
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
    auto *worker = new OcrWorker(nullImage ? QImage() : image, withProvider ? &provider : nullptr, &result);
    // The caller goes on using its image (the next capture reuses buffers): the worker has its own copy.
    image.fill(qRgb(200, 0, 0));
    QThreadPool::globalInstance()->start(worker, 0);
    QTRY_COMPARE_WITH_TIMEOUT(outcomes.size(), 1, 10000);
    QThreadPool::globalInstance()->waitForDone();
    QCoreApplication::processEvents();

    const QString expected = expectedError.isEmpty() ? answer : QStringLiteral("error: ") + expectedError;
    QCOMPARE(outcomes, (QList<QPair<QString, QThread *>>{{expected, QThread::currentThread()}}));
    QCOMPARE(provider.seen, expectedError.isEmpty() ? QList<QRgb>{qRgb(10, 20, 30)} : QList<QRgb>());
}

void TestOcrWorker::dropsTheOutcomeWhenTheReceiverIsGone()
{
    FakeProvider provider;
    provider.proceed.acquire(1000);
    auto *result = new OcrWorkerResult;

    QThreadPool::globalInstance()->start(new OcrWorker(QImage(4, 4, QImage::Format_RGB32), &provider, result),
                                         0);
    QVERIFY(provider.started.tryAcquire(1, 10000));
    // A new session discards the receiver while the old recognition runs: the late outcome must go nowhere
    // (a dangling receiver crashes here, or under the sanitizers).
    delete result;
    provider.proceed.release();
    QThreadPool::globalInstance()->waitForDone();
    QCoreApplication::processEvents();
    QCoreApplication::processEvents();
}

QTEST_GUILESS_MAIN(TestOcrWorker)
#include "test_ocrworker.moc"
