#include "FakeLLMClient.h"
#include "LoopbackHttpServer.h"
#include "SseBuilder.h"
#include "ai/AiWorker.h"
#include "ai/StreamingAiWorker.h"

#include <QCoreApplication>
#include <QTest>
#include <QThreadPool>

namespace {

constexpr int kWaitMs = 20000;

// Every signal of one worker in order, as "signal|windowId|text".
struct WorkerLog
{
    explicit WorkerLog(StreamingAiWorker *worker)
    {
        const auto add = [this](const char *name, bool last) {
            return [this, name, last](const QString &id, const QString &text = QString()) {
                events << QStringLiteral("%1|%2|%3").arg(QLatin1String(name), id, text);
                ended = ended || last;
            };
        };
        QObject::connect(worker, &StreamingAiWorker::started, add("started", false));
        QObject::connect(worker, &StreamingAiWorker::chunkReceived, add("chunk", false));
        QObject::connect(worker, &StreamingAiWorker::finished, add("finished", true));
        QObject::connect(worker, &StreamingAiWorker::errorOccurred, add("error", true));
    }
    QStringList events;
    bool ended = false;
};

} // namespace

class TestAiWorkers final : public QObject
{
    Q_OBJECT
    LoopbackHttpServer m_server;
    StreamingAiWorker::Config config() const
    {
        return {m_server.baseUrl(), QStringLiteral("k"), QStringLiteral("m")};
    }

private slots:
    void initTestCase() { QVERIFY(m_server.listen()); }

    void unconfiguredReportsStartedThenError()
    {
        StreamingAiWorker worker(QStringLiteral("p"), QStringLiteral("w1"), StreamingAiWorker::Config{});
        WorkerLog log(&worker);
        worker.cancel(); // on an idle worker: no effect
        QVERIFY(!worker.isCancelled());
        worker.start();
        QVERIFY(log.events.isEmpty()); // nothing before the caller is back in the event loop
        QTRY_VERIFY_WITH_TIMEOUT(log.ended, kWaitMs);
        QCOMPARE(log.events,
                 (QStringList{"started|w1|", "error|w1|API not configured. Please set API URL and "
                                             "key in config."}));
        QVERIFY(!worker.isRunning());
    }

    void cancelBeforeQueuedStartIsSilent()
    {
        const int connections = m_server.connectionCount();
        StreamingAiWorker worker(QStringLiteral("p"), QStringLiteral("w2"), config());
        WorkerLog log(&worker);
        worker.start();
        worker.cancel();
        QTest::ignoreMessage(QtWarningMsg, "StreamingAiWorker: Already running for window w2");
        worker.start(); // single use
        QCoreApplication::processEvents();
        QVERIFY(log.events.isEmpty());
        QCOMPARE(m_server.connectionCount(), connections);
    }

    void secondStartWhileRunningIsIgnored()
    {
        m_server.enqueue(ScriptedResponse::sse().send(Sse::stream({QStringLiteral("once")})));
        const int requests = m_server.requestCount();
        StreamingAiWorker worker(QStringLiteral("p"), QStringLiteral("w4"), config());
        WorkerLog log(&worker);
        worker.start();
        QTest::ignoreMessage(QtWarningMsg, "StreamingAiWorker: Already running for window w4");
        worker.start();
        QTRY_VERIFY_WITH_TIMEOUT(log.ended, kWaitMs);
        QCOMPARE(log.events, (QStringList{"started|w4|", "chunk|w4|once", "finished|w4|once"}));
        QCOMPARE(m_server.requestCount(), requests + 1);
    }

    void twoWorkersStreamAtOnce()
    {
        // Each answer is many small pieces starting with its prompt's letter, interleaved with the other's.
        m_server.setHandler([](const RecordedRequest &request) {
            const QString letter =
                request.body.contains("\"left\"") ? QStringLiteral("L") : QStringLiteral("R");
            QStringList pieces;
            for (int i = 0; i < 40; ++i)
                pieces << letter + QString::number(i);
            return ScriptedResponse::sse().sendInPieces(Sse::stream(pieces), 1, 40, letter == "L" ? 1 : 2);
        });
        StreamingAiWorker left(QStringLiteral("left"), QStringLiteral("w10"), config());
        StreamingAiWorker right(QStringLiteral("right"), QStringLiteral("w11"), config());
        WorkerLog leftLog(&left), rightLog(&right);
        left.start();
        right.start();
        QTRY_VERIFY_WITH_TIMEOUT(leftLog.ended && rightLog.ended, kWaitMs);
        m_server.setHandler(nullptr);
        for (const auto &[log, prefix] : {std::pair{&leftLog, QStringLiteral("|w10|L")},
                                          std::pair{&rightLog, QStringLiteral("|w11|R")}}) {
            QString joined;
            for (const QString &event : log->events.mid(1, log->events.size() - 2)) {
                QVERIFY2(event.startsWith(QLatin1String("chunk") + prefix), qPrintable(event));
                joined += event.section('|', 2);
            }
            QCOMPARE(log->events.last(), QLatin1String("finished") + prefix.chopped(1) + joined);
            QVERIFY(joined.size() > 80);
        }
    }

    void cancelWhileStreamingIsSilent()
    {
        m_server.enqueue(ScriptedResponse::sse()
                             .send(Sse::delta(QStringLiteral("first")))
                             .holdUntilReleased()
                             .send(Sse::stream({QStringLiteral("second")})));
        auto *worker = new StreamingAiWorker(QStringLiteral("p"), QStringLiteral("w5"), config());
        WorkerLog log(worker);
        worker->start();
        QTRY_COMPARE_WITH_TIMEOUT(log.events.size(), 2, kWaitMs);
        worker->cancel();
        m_server.releaseHeld();
        // A second worker on the same server finishing proves the server went on.
        m_server.enqueue(ScriptedResponse::sse().send(Sse::stream({QStringLiteral("other")})));
        StreamingAiWorker probe(QStringLiteral("p"), QStringLiteral("w6"), config());
        WorkerLog probeLog(&probe);
        probe.start();
        QTRY_VERIFY_WITH_TIMEOUT(probeLog.ended, kWaitMs);
        delete worker; // destroying a cancelled worker emits nothing either
        QCOMPARE(log.events, (QStringList{"started|w5|", "chunk|w5|first"}));
    }

    void aiWorkerDelivers_data()
    {
        QTest::addColumn<bool>("withService");
        QTest::addColumn<QString>("text");
        QTest::addColumn<QString>("answer");
        QTest::addColumn<QString>("clientError");
        QTest::addColumn<QString>("outcome"); // "finished|..." or "error|..."
        QTest::newRow("answer") << true << " Hello "
                                << "Hallo" << QString() << "finished|Hallo";
        QTest::newRow("blank input") << true << " \n "
                                     << "Hallo" << QString() << "error|Input text is empty";
        QTest::newRow("service error") << true << "x" << QString() << "Network error: refused"
                                       << "error|Network error: refused";
        QTest::newRow("empty answer")
            << true << "x" << QString() << QString() << "error|Empty response from LLM";
        QTest::newRow("no service") << false << "x"
                                    << "y" << QString() << "error|Action service not available";
    }

    void aiWorkerDelivers()
    {
        QFETCH(bool, withService);
        QFETCH(QString, text);
        QFETCH(QString, answer);
        QFETCH(QString, clientError);
        QFETCH(QString, outcome);
        FakeLLMClient client;
        client.answer = answer;
        client.error = clientError;
        ActionService service(&client);
        AiWorkerResult result;
        QStringList outcomes;
        const auto record = [&](const char *name) {
            return [&, name](const QString &value) {
                QCOMPARE(QThread::currentThread(), thread()); // delivered on the creating thread
                outcomes << QLatin1String(name) + '|' + value;
            };
        };
        connect(&result, &AiWorkerResult::finished, this, record("finished"));
        connect(&result, &AiWorkerResult::error, this, record("error"));
        QThreadPool::globalInstance()->start(
            new AiWorker(ActionService::Translate, text, withService ? &service : nullptr, &result));
        QThreadPool::globalInstance()->waitForDone();
        QTRY_COMPARE_WITH_TIMEOUT(outcomes, QStringList{outcome}, kWaitMs);
        QCOMPARE(client.prompts.size(), withService && !text.trimmed().isEmpty() ? 1 : 0);
        if (!client.prompts.isEmpty())
            QVERIFY(client.prompts.first().endsWith("Input:\n" + text));
    }
};

QTEST_GUILESS_MAIN(TestAiWorkers)
#include "tst_aiworkers.moc"
