#include "LoopbackHttpServer.h"
#include "SseBuilder.h"
#include "StreamRecorder.h"
#include "ai/OpenAIClient.h"

#include <QCoreApplication>
#include <QLoggingCategory>
#include <QSignalSpy>
#include <QSysInfo>
#include <QTest>

#include <atomic>

Q_DECLARE_METATYPE(ScriptedResponse)

namespace {

constexpr int kWaitMs = 20000;
const QString kNotConfigured = QStringLiteral("API not configured. Please set API URL and key in config.");

// "Prefix*" matches any longer text with that prefix.
void verifyText(const QString &actual, const QString &expected)
{
    const bool prefix = expected.endsWith(QLatin1Char('*'));
    QVERIFY2(prefix ? actual.startsWith(expected.chopped(1)) && actual.size() >= expected.size()
                    : actual == expected,
             qPrintable(actual));
}

} // namespace

class TestOpenAIClient final : public QObject
{
    Q_OBJECT
    std::unique_ptr<LoopbackHttpServer> m_server;

private slots:
    void initTestCase()
    {
        QCoreApplication::setApplicationVersion(QStringLiteral("9.8.7"));
        // Some checks read the client's debug lines, which are off by default.
        QLoggingCategory::setFilterRules(QStringLiteral("vontrel.ai.debug=true"));
    }
    void init()
    {
        m_server = std::make_unique<LoopbackHttpServer>();
        QVERIFY(m_server->listen());
    }
    void cleanup() { m_server.reset(); }

    void requestOnTheWire_data()
    {
        QTest::addColumn<bool>("streaming");
        QTest::addColumn<QString>("base");
        QTest::addColumn<QByteArray>("target");
        QTest::addColumn<QByteArray>("body");
        const QByteArray message = "\"messages\":[{\"content\":\"Say "
                                   "\\\"hi\\\"\\nnow\",\"role\":\"user\"}],\"model\":\"test-model\",";
        QTest::newRow("streaming") << true << "/v1/" << QByteArray("/v1/chat/completions")
                                   << "{\"enable_thinking\":false,\"max_tokens\":2048," + message +
                                          "\"stream\":true,\"temperature\":0.7}";
        QTest::newRow("blocking") << false << "/api/v1/chat/completions"
                                  << QByteArray("/api/v1/chat/completions")
                                  << "{\"max_tokens\":2048," + message + "\"temperature\":0.7}";
    }

    void requestOnTheWire()
    {
        QFETCH(bool, streaming);
        QFETCH(QString, base);
        QFETCH(QByteArray, target);
        QFETCH(QByteArray, body);
        m_server->enqueue(
            streaming ? ScriptedResponse::sse().send(Sse::stream({QStringLiteral("ok")}))
                      : ScriptedResponse::json(200, "{\"choices\":[{\"message\":{\"content\":\"ok\"}}]}"));
        OpenAIClient client(m_server->baseUrl(base), QStringLiteral("sk-ключ"), QStringLiteral("test-model"));
        StreamRecorder recorder(&client);
        const QString prompt = QStringLiteral("Say \"hi\"\nnow");
        if (streaming)
            client.completeStreaming(prompt);
        QCOMPARE(streaming ? (recorder.waitForEnd(), recorder.finished.value(0).value(0).toString())
                           : client.complete(prompt),
                 QStringLiteral("ok"));
        const RecordedRequest request = m_server->requests().value(0);
        QCOMPARE(m_server->requestCount(), 1);
        QCOMPARE(request.method + ' ' + request.target + ' ' + request.version,
                 "POST " + target + " HTTP/1.1");
        QCOMPARE(request.header("Content-Type"), QByteArray("application/json"));
        QCOMPARE(request.header("Authorization"), QStringLiteral("Bearer sk-ключ").toUtf8());
        QCOMPARE(request.header("Accept"), streaming ? QByteArray("text/event-stream") : QByteArray());
        const QString os =
            QSysInfo::prettyProductName().isEmpty() ? QSysInfo::productType() : QSysInfo::prettyProductName();
        QCOMPARE(QString::fromUtf8(request.header("User-Agent")),
                 QStringLiteral("Vontrel.app/9.8.7 (%1; %2)").arg(os, QSysInfo::currentCpuArchitecture()));
        QCOMPARE(request.body, body);
    }

    void streamsContentPieces_data()
    {
        QTest::addColumn<QByteArray>("body");
        QTest::addColumn<int>("maxPiece");
        QTest::addColumn<QStringList>("chunks");
        const QStringList utf8{QStringLiteral("Grüße, "), QStringLiteral("你好世界"),
                               QStringLiteral(" 🙂🚀\n“q”")};
        const QStringList xy{QStringLiteral("x"), QStringLiteral("y")};
        QTest::newRow("utf-8 in 1-byte pieces") << Sse::stream(utf8) << 1 << utf8;
        QTest::newRow("utf-8 in 1..7-byte pieces") << Sse::stream(utf8) << 7 << utf8;
        QTest::newRow("crlf") << (Sse::delta("x", "\r\n\r\n") + Sse::delta("y", "\r\n\r\n") +
                                  "data: [DONE]\r\n\r\n")
                              << 5 << xy;
        // CR LF split between two reads must not count as two line endings, nor a bare CR as none.
        QTest::newRow("bare cr") << (Sse::delta("x", "\r\r") + Sse::delta("y", "\r\r") + "data: [DONE]\r\r")
                                 << 3 << xy;
        QTest::newRow("cr, lf and crlf mixed")
            << (": hi\r" + Sse::delta("x", "\r\n\n") + Sse::delta("y", "\n\r") + "data: [DONE]\r\n") << 2
            << xy;
        QTest::newRow("comments, fields, keep-alive")
            << (": keep-alive\n\nevent: message\nid: 7\nretry: 10\n" + Sse::delta("x") + ":\n\n  \n" +
                Sse::delta("y"))
            << 64 << xy;
        QTest::newRow("data after [DONE]")
            << ("data: [DONE]\n\n" + Sse::delta("x") + Sse::delta("y") + "data: [DONE]\n") << 64 << xy;
        QTest::newRow("role-only, null, empty, non-string")
            << QByteArray("data: {\"choices\":[{\"delta\":{\"role\":\"assistant\"}}]}\n"
                          "data: {\"choices\":[{\"delta\":{\"role\":\"assistant\",\"content\":null}}]}\n"
                          "data: {\"choices\":[{\"delta\":{\"content\":\"\"}}]}\n"
                          "data: {\"choices\":[]}\ndata: {\"usage\":{\"total_tokens\":3}}\n"
                          "data: {\"choices\":[{\"delta\":{\"content\":42}}]}\n") +
                   Sse::delta("x") + Sse::delta("y")
            << 64 << xy;
        QTest::newRow("no blank after colon, garbage, upper case skipped")
            << ("data:{\"choices\":[{\"delta\":{\"content\":\"no\"}}]}\ndata: {not json\nDATA: " +
                Sse::delta("no") + Sse::delta("x") + Sse::delta("y"))
            << 64 << xy;
    }

    void streamsContentPieces()
    {
        QFETCH(QByteArray, body);
        QFETCH(int, maxPiece);
        QFETCH(QStringList, chunks);
        m_server->enqueue(ScriptedResponse::sse().sendInPieces(body, 1, maxPiece, 42));
        OpenAIClient client(m_server->baseUrl(), QStringLiteral("k"), QStringLiteral("m"));
        StreamRecorder recorder(&client);
        client.completeStreaming(QStringLiteral("p"));
        QVERIFY(recorder.waitForEnd());
        QCOMPARE(recorder.error(), QString());
        QCOMPARE(recorder.chunkTexts(), chunks);
        QCOMPARE(recorder.finished.first().at(0).toString(), chunks.join(QString()));
    }

    void unconfiguredFailsAtOnce_data()
    {
        QTest::addColumn<QStringList>("urlKeyModel"); // "URL": the loopback server
        QTest::newRow("no url") << QStringList{"", "k", "m"};
        QTest::newRow("no key") << QStringList{"URL", "", "m"};
        QTest::newRow("no model") << QStringList{"URL", "k", ""};
    }

    void unconfiguredFailsAtOnce()
    {
        QFETCH(QStringList, urlKeyModel);
        const QString url = urlKeyModel[0].isEmpty() ? QString() : m_server->baseUrl();
        OpenAIClient client(url, urlKeyModel[1], urlKeyModel[2]);
        StreamRecorder recorder(&client);
        client.completeStreaming(QStringLiteral("p"));
        QCOMPARE(recorder.error(), kNotConfigured); // before completeStreaming returned
        QCOMPARE(client.complete(QStringLiteral("p")), QString());
        QCOMPARE(client.lastError(), kNotConfigured);
        QCOMPARE(m_server->requestCount(), 0);
    }

    void cancelDuringWarmUpSendsNothing()
    {
        static std::atomic<bool> cancelLogged{false};
        static QtMessageHandler previous = nullptr;
        previous = qInstallMessageHandler(
            [](QtMsgType type, const QMessageLogContext &context, const QString &text) {
                if (text.contains(QLatin1String("Request cancelled during connection setup")))
                    cancelLogged = true;
                previous(type, context, text);
            });
        OpenAIClient client(m_server->baseUrl(), QStringLiteral("k"), QStringLiteral("m"));
        QSignalSpy finished(&client, &OpenAIClient::streamingFinished);
        QSignalSpy failed(&client, &OpenAIClient::streamingError);
        client.completeStreaming(QStringLiteral("p"));
        client.cancelRequest();
        const bool logged = QTest::qWaitFor([] { return cancelLogged.load(); }, 10000);
        qInstallMessageHandler(previous);
        QVERIFY(logged);
        QCoreApplication::processEvents();
        QCOMPARE(m_server->requestCount(), 0);
        QCOMPARE(finished.count() + failed.count(), 0);
    }

    void newRequestReplacesRunningStream()
    {
        // Each answer is the prompt twice, the second piece after a hold when the prompt says so.
        m_server->setHandler([](const RecordedRequest &request) {
            const QString word = QJsonDocument::fromJson(request.body)["messages"][0]["content"].toString();
            ScriptedResponse response = ScriptedResponse::sse().send(Sse::delta(word + '1'));
            if (word.startsWith(QLatin1String("held")))
                response.holdUntilReleased();
            return response.send(Sse::stream({word + '2'}));
        });
        OpenAIClient client(m_server->baseUrl(), QStringLiteral("k"), QStringLiteral("m"));
        StreamRecorder recorder(&client);
        // Back to back: the first request is never sent.
        client.completeStreaming(QStringLiteral("first"));
        client.completeStreaming(QStringLiteral("second"));
        QVERIFY(recorder.waitForEnd());
        QCOMPARE(recorder.chunkTexts(), (QStringList{QStringLiteral("second1"), QStringLiteral("second2")}));
        QCOMPARE(m_server->requestCount(), 1);

        // While the first streams: its later pieces never arrive.
        StreamRecorder second(&client);
        client.completeStreaming(QStringLiteral("held"));
        QVERIFY(second.chunks.wait(kWaitMs));
        client.completeStreaming(QStringLiteral("heldnext"));
        QTRY_COMPARE_WITH_TIMEOUT(second.chunks.size(), 2, kWaitMs);
        m_server->releaseHeld();
        QVERIFY(second.waitForEnd());
        QCOMPARE(second.chunkTexts(), (QStringList{QStringLiteral("held1"), QStringLiteral("heldnext1"),
                                                   QStringLiteral("heldnext2")}));
        QCOMPARE(second.finished.first().at(0).toString(), QStringLiteral("heldnext1heldnext2"));
    }

    void blockingComplete_data()
    {
        QTest::addColumn<int>("status");
        QTest::addColumn<QByteArray>("body");
        QTest::addColumn<QString>("answer");
        QTest::addColumn<QString>("error");
        QTest::newRow("answer trimmed")
            << 200 << QByteArray("{\"choices\":[{\"message\":{\"content\":\" Hallo\\n \"}}]}") << "Hallo"
            << QString();
        QTest::newRow("error object") << 200 << QByteArray("{\"error\":{\"message\":\"model not found\"}}")
                                      << QString() << "API error: model not found";
        QTest::newRow("not json") << 200 << QByteArray("<html>") << QString()
                                  << "Failed to parse response: *";
        QTest::newRow("no choices") << 200 << QByteArray("{\"choices\":[]}") << QString()
                                    << "No response from API";
        QTest::newRow("error null is no error")
            << 200 << QByteArray("{\"error\":null,\"choices\":[{\"message\":{\"content\":\"ok\"}}]}") << "ok"
            << QString();
    }

    void blockingComplete()
    {
        QFETCH(int, status);
        QFETCH(QByteArray, body);
        QFETCH(QString, answer);
        QFETCH(QString, error);
        m_server->enqueue(ScriptedResponse::json(status, body));
        OpenAIClient client(m_server->baseUrl(), QStringLiteral("k"), QStringLiteral("m"));
        QSignalSpy streamingError(&client, &OpenAIClient::streamingError);
        QCOMPARE(client.complete(QStringLiteral("p")), answer);
        verifyText(client.lastError(), error);
        QCOMPARE(streamingError.size(), 0);
    }

    void blockingTimeout()
    {
        m_server->enqueue(
            ScriptedResponse::sse().setHeader("Content-Type", "application/json").holdUntilReleased());
        OpenAIClient client(m_server->baseUrl(), QStringLiteral("k"), QStringLiteral("m"));
        client.setTimeout(0);
        QCOMPARE(client.complete(QStringLiteral("slow")), QString());
        QCOMPARE(client.lastError(), QStringLiteral("Request timed out"));
    }
};

QTEST_GUILESS_MAIN(TestOpenAIClient)
#include "tst_openaiclient.moc"
