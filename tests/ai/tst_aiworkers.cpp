#include "FakeLLMClient.h"
#include "LoopbackHttpServer.h"
#include "SseBuilder.h"
#include "ai/AiWorker.h"
#include "ai/OpenAIClient.h"
#include "ai/StreamingAiWorker.h"

#include <QCoreApplication>
#include <QSignalSpy>
#include <QTest>
#include <QThreadPool>

namespace {

constexpr int kWaitMs = 20000;

// Every signal of one worker in the order it came, as "signal|windowId|text".
struct WorkerLog
{
    explicit WorkerLog(StreamingAiWorker *worker)
    {
        QObject::connect(worker, &StreamingAiWorker::started,
                         [this](const QString &id) { events << QStringLiteral("started|%1|").arg(id); });
        QObject::connect(worker, &StreamingAiWorker::chunkReceived,
                         [this](const QString &id, const QString &text) {
                             events << QStringLiteral("chunk|%1|%2").arg(id, text);
                         });
        QObject::connect(worker, &StreamingAiWorker::finished,
                         [this](const QString &id, const QString &text) {
                             events << QStringLiteral("finished|%1|%2").arg(id, text);
                             ended = true;
                         });
        QObject::connect(worker, &StreamingAiWorker::errorOccurred,
                         [this](const QString &id, const QString &text) {
                             events << QStringLiteral("error|%1|%2").arg(id, text);
                             ended = true;
                         });
    }
    QStringList events;
    bool ended = false;
};

StreamingAiWorker::Config configFor(const LoopbackHttpServer &server)
{
    return StreamingAiWorker::Config{server.baseUrl(), QStringLiteral("k"), QStringLiteral("m"), 30000};
}

} // namespace

class TestAiWorkers final : public QObject
{
    Q_OBJECT

private slots:
    void unconfiguredReportsStartedThenError();
    void cancelBeforeQueuedStartIsSilent();
    void cancelOnIdleWorkerDoesNothing();
    void secondStartWhileRunningIsIgnored();
    void twoWorkersStreamAtOnce();
    void cancelWhileStreamingIsSilent();
    void aiWorkerDelivers_data();
    void aiWorkerDelivers();
    void aiWorkerWithoutService();
};

void TestAiWorkers::unconfiguredReportsStartedThenError()
{
    StreamingAiWorker worker(QStringLiteral("p"), QStringLiteral("window_1"),
                             StreamingAiWorker::Config{QStringLiteral("http://127.0.0.1:9"), QString(),
                                                       QStringLiteral("m"), 30000});
    WorkerLog log(&worker);
    worker.start();
    QVERIFY(log.events.isEmpty()); // nothing before the caller is back in the event loop
    QTRY_VERIFY_WITH_TIMEOUT(log.ended, kWaitMs);
    QCOMPARE(log.events,
             (QStringList{QStringLiteral("started|window_1|"),
                          QStringLiteral("error|window_1|API not configured. Please set API URL and "
                                         "key in config.")}));
    QVERIFY(!worker.isRunning());
}

void TestAiWorkers::cancelBeforeQueuedStartIsSilent()
{
    LoopbackHttpServer server;
    QVERIFY(server.listen());
    StreamingAiWorker worker(QStringLiteral("p"), QStringLiteral("window_2"), configFor(server));
    WorkerLog log(&worker);
    worker.start();
    worker.cancel();
    QCoreApplication::processEvents(); // runs the queued start
    QVERIFY(worker.findChildren<OpenAIClient *>().isEmpty());
    QVERIFY(log.events.isEmpty());
    QCOMPARE(server.connectionCount(), 0);
    QTest::ignoreMessage(QtWarningMsg, "StreamingAiWorker: Already running for window window_2");
    worker.start();
    QCoreApplication::processEvents();
    QVERIFY(log.events.isEmpty());
}

void TestAiWorkers::cancelOnIdleWorkerDoesNothing()
{
    StreamingAiWorker worker(QStringLiteral("p"), QStringLiteral("window_3"), StreamingAiWorker::Config{});
    WorkerLog log(&worker);
    worker.cancel();
    QVERIFY(!worker.isCancelled());
    worker.start();
    QTRY_VERIFY_WITH_TIMEOUT(log.ended, kWaitMs);
    QCOMPARE(log.events.size(), 2);
    QVERIFY(log.events.last().startsWith(QStringLiteral("error|window_3|API not configured")));
}

void TestAiWorkers::secondStartWhileRunningIsIgnored()
{
    LoopbackHttpServer server;
    QVERIFY(server.listen());
    server.setFallback(ScriptedResponse::sse().send(Sse::stream({QStringLiteral("once")})));
    StreamingAiWorker worker(QStringLiteral("p"), QStringLiteral("window_4"), configFor(server));
    WorkerLog log(&worker);
    worker.start();
    QTest::ignoreMessage(QtWarningMsg, "StreamingAiWorker: Already running for window window_4");
    worker.start();
    QTRY_VERIFY_WITH_TIMEOUT(log.ended, kWaitMs);
    QCOMPARE(log.events,
             (QStringList{QStringLiteral("started|window_4|"), QStringLiteral("chunk|window_4|once"),
                          QStringLiteral("finished|window_4|once")}));
    QCOMPARE(server.requestCount(), 1);
}

void TestAiWorkers::twoWorkersStreamAtOnce()
{
    LoopbackHttpServer server;
    QVERIFY(server.listen());
    // Each answer echoes its prompt's letter in many small pieces, interleaved in time with the other's.
    server.setHandler([](const RecordedRequest &request) {
        const QString letter = request.body.contains("\"left\"") ? QStringLiteral("L") : QStringLiteral("R");
        QStringList pieces;
        for (int i = 0; i < 40; ++i)
            pieces << letter + QString::number(i);
        return ScriptedResponse::sse().sendInPieces(Sse::stream(pieces), 1, 40,
                                                    letter == QLatin1String("L") ? 1 : 2);
    });
    StreamingAiWorker left(QStringLiteral("left"), QStringLiteral("window_10"), configFor(server));
    StreamingAiWorker right(QStringLiteral("right"), QStringLiteral("window_11"), configFor(server));
    WorkerLog leftLog(&left);
    WorkerLog rightLog(&right);
    left.start();
    right.start();
    QTRY_VERIFY_WITH_TIMEOUT(leftLog.ended && rightLog.ended, kWaitMs);

    const auto check = [](const WorkerLog &log, const QString &id, const QString &letter) {
        QString joined;
        for (const QString &event : log.events) {
            const QStringList parts = event.split(QLatin1Char('|'));
            if (parts.at(1) != id)
                return false;
            if (parts.at(0) == QLatin1String("chunk")) {
                if (!parts.at(2).startsWith(letter))
                    return false;
                joined += parts.at(2);
            }
        }
        return log.events.last() == QStringLiteral("finished|%1|%2").arg(id, joined) && joined.size() > 80;
    };
    QVERIFY2(check(leftLog, QStringLiteral("window_10"), QStringLiteral("L")),
             qPrintable(leftLog.events.join('\n')));
    QVERIFY2(check(rightLog, QStringLiteral("window_11"), QStringLiteral("R")),
             qPrintable(rightLog.events.join('\n')));
}

void TestAiWorkers::cancelWhileStreamingIsSilent()
{
    LoopbackHttpServer server;
    QVERIFY(server.listen());
    server.enqueue(ScriptedResponse::sse()
                       .send(Sse::delta(QStringLiteral("first")))
                       .holdUntilReleased()
                       .send(Sse::stream({QStringLiteral("second")})));
    auto *worker =
        new StreamingAiWorker(QStringLiteral("p"), QStringLiteral("window_5"), configFor(server), this);
    WorkerLog log(worker);
    worker->start();
    QTRY_COMPARE_WITH_TIMEOUT(log.events.size(), 2, kWaitMs);
    worker->cancel();
    QVERIFY(worker->isCancelled());
    server.releaseHeld();
    // A fresh client on the same server proves the server went on; the cancelled worker stays silent.
    server.enqueue(ScriptedResponse::sse().send(Sse::stream({QStringLiteral("other")})));
    OpenAIClient probe(server.baseUrl(), QStringLiteral("k"), QStringLiteral("m"));
    QSignalSpy probeFinished(&probe, &OpenAIClient::streamingFinished);
    probe.completeStreaming(QStringLiteral("q"));
    QVERIFY(probeFinished.wait(kWaitMs));
    QCOMPARE(log.events,
             (QStringList{QStringLiteral("started|window_5|"), QStringLiteral("chunk|window_5|first")}));
    delete worker; // destroying a cancelled worker emits nothing either
    QCOMPARE(log.events.size(), 2);
}

void TestAiWorkers::aiWorkerDelivers_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("answer");
    QTest::addColumn<QString>("clientError");
    QTest::addColumn<QString>("finished");
    QTest::addColumn<QString>("error");
    QTest::addColumn<int>("calls");

    QTest::newRow("answer") << " Hello "
                            << "Hallo" << QString() << "Hallo" << QString() << 1;
    QTest::newRow("blank input") << " \n "
                                 << "Hallo" << QString() << QString() << "Input text is empty" << 0;
    QTest::newRow("service error") << "x" << QString() << "Network error: refused" << QString()
                                   << "Network error: refused" << 1;
    QTest::newRow("empty answer") << "x" << QString() << QString() << QString() << "Empty response from LLM"
                                  << 1;
}

void TestAiWorkers::aiWorkerDelivers()
{
    QFETCH(QString, text);
    QFETCH(QString, answer);
    QFETCH(QString, clientError);
    QFETCH(QString, finished);
    QFETCH(QString, error);
    QFETCH(int, calls);

    FakeLLMClient client;
    client.setAnswer(answer, clientError);
    ActionService service(&client);
    AiWorkerResult result;
    QSignalSpy finishedSpy(&result, &AiWorkerResult::finished);
    QSignalSpy errorSpy(&result, &AiWorkerResult::error);
    QThread *receiverThread = nullptr;
    connect(&result, &AiWorkerResult::finished, this, [&] { receiverThread = QThread::currentThread(); });
    connect(&result, &AiWorkerResult::error, this, [&] { receiverThread = QThread::currentThread(); });
    QThreadPool::globalInstance()->start(new AiWorker(ActionService::Translate, text, &service, &result));
    QTRY_VERIFY_WITH_TIMEOUT(finishedSpy.size() + errorSpy.size() == 1, kWaitMs);
    QThreadPool::globalInstance()->waitForDone();
    QCoreApplication::processEvents();
    QCOMPARE(finishedSpy.size() + errorSpy.size(), 1);
    QCOMPARE(receiverThread, QThread::currentThread());
    if (!finished.isNull())
        QCOMPARE(finishedSpy.first().at(0).toString(), finished);
    else
        QCOMPARE(errorSpy.first().at(0).toString(), error);
    QCOMPARE(client.prompts().size(), calls);
    if (calls)
        QVERIFY(client.prompts().first().endsWith(QStringLiteral("Input:\n") + text));
}

void TestAiWorkers::aiWorkerWithoutService()
{
    AiWorkerResult result;
    QSignalSpy errorSpy(&result, &AiWorkerResult::error);
    QThreadPool::globalInstance()->start(
        new AiWorker(ActionService::Summarize, QStringLiteral("x"), nullptr, &result));
    QVERIFY(errorSpy.wait(kWaitMs));
    QCOMPARE(errorSpy.first().at(0).toString(), QStringLiteral("Action service not available"));
}

QTEST_GUILESS_MAIN(TestAiWorkers)
#include "tst_aiworkers.moc"
