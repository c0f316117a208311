#include "LoopbackHttpServer.h"
#include "SseBuilder.h"
#include "ai/StreamingAiWorker.h"

#include <QCoreApplication>
#include <QTest>

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
};

QTEST_GUILESS_MAIN(TestAiWorkers)
#include "tst_aiworkers.moc"
