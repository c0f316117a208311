#include "LoopbackHttpServer.h"
#include "SseBuilder.h"
#include "ai/OpenAIClient.h"

#include <QCoreApplication>
#include <QSignalSpy>
#include <QSysInfo>
#include <QTest>

Q_DECLARE_METATYPE(ScriptedResponse)

namespace {

constexpr int kWaitMs = 20000;
const QString kNotConfigured = QStringLiteral("API not configured. Please set API URL and key in config.");
std::atomic<bool> s_warmUpCancelLogged{false};

// Everything one client reports, in order.
struct StreamRecorder
{
    explicit StreamRecorder(OpenAIClient *client)
        : chunks(client, &OpenAIClient::streamingChunk)
        , finished(client, &OpenAIClient::streamingFinished)
        , errors(client, &OpenAIClient::streamingError)
    {}
    QStringList chunkTexts() const
    {
        QStringList texts;
        for (const QList<QVariant> &arguments : chunks)
            texts << arguments.at(0).toString();
        return texts;
    }
    bool waitForEnd()
    {
        return QTest::qWaitFor([this] { return !finished.isEmpty() || !errors.isEmpty(); }, kWaitMs);
    }
    QString error() const { return errors.isEmpty() ? QString() : errors.first().at(0).toString(); }

    QSignalSpy chunks, finished, errors;
};

// "Prefix*" matches any longer text with that prefix.
void verifyText(const QString &actual, const QString &expected)
{
    if (expected.endsWith(QLatin1Char('*')))
        QVERIFY2(actual.startsWith(expected.chopped(1)) && actual.size() >= expected.size(),
                 qPrintable(actual));
    else
        QCOMPARE(actual, expected);
}

} // namespace

class TestOpenAIClient final : public QObject
{
    Q_OBJECT
    std::unique_ptr<LoopbackHttpServer> m_server;

private slots:
    void initTestCase() { QCoreApplication::setApplicationVersion(QStringLiteral("9.8.7")); }
    void init()
    {
        m_server = std::make_unique<LoopbackHttpServer>();
        QVERIFY(m_server->listen());
    }
    void cleanup() { m_server.reset(); }

    void endpointUrl_data()
    {
        QTest::addColumn<QString>("base");
        QTest::addColumn<QString>("endpoint");
        QTest::newRow("slash") << "https://h/v1/"
                               << "https://h/v1/chat/completions";
        QTest::newRow("complete") << "https://h/v1/chat/completions"
                                  << "https://h/v1/chat/completions";
        QTest::newRow("case") << "https://h/V1/CHAT/COMPLETIONS"
                              << "https://h/V1/CHAT/COMPLETIONS/chat/completions";
    }

    void endpointUrl()
    {
        QFETCH(QString, base);
        QFETCH(QString, endpoint);
        QCOMPARE(OpenAIClient::endpointUrl(base), endpoint);
    }

    void requestOnTheWire_data()
    {
        QTest::addColumn<bool>("streaming");
        QTest::addColumn<QString>("base");
        QTest::addColumn<QByteArray>("target");
        QTest::addColumn<QByteArray>("body");
        QTest::newRow("streaming")
            << true << "/v1/" << QByteArray("/v1/chat/completions")
            << QByteArray("{\"enable_thinking\":false,\"max_tokens\":2048,\"messages\":[{\"content\":"
                          "\"Say \\\"hi\\\"\\nnow\",\"role\":\"user\"}],\"model\":\"test-model\","
                          "\"stream\":true,\"temperature\":0.7}");
        QTest::newRow("blocking")
            << false << "/api/v1/chat/completions" << QByteArray("/api/v1/chat/completions")
            << QByteArray("{\"max_tokens\":2048,\"messages\":[{\"content\":\"Say \\\"hi\\\"\\nnow\","
                          "\"role\":\"user\"}],\"model\":\"test-model\",\"temperature\":0.7}");
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
        if (streaming) {
            client.completeStreaming(prompt);
            QVERIFY(recorder.waitForEnd());
            QCOMPARE(recorder.finished.first().at(0).toString(), QStringLiteral("ok"));
        } else {
            QCOMPARE(client.complete(prompt), QStringLiteral("ok"));
        }
        QCOMPARE(m_server->requestCount(), 1);
        const RecordedRequest request = m_server->requests().first();
        QCOMPARE(request.method + ' ' + request.target + ' ' + request.version,
                 "POST " + target + " HTTP/1.1");
        QCOMPARE(request.header("Content-Type"), QByteArray("application/json"));
        QCOMPARE(request.header("Authorization"), QStringLiteral("Bearer sk-ключ").toUtf8());
        QCOMPARE(request.header("Accept"), streaming ? QByteArray("text/event-stream") : QByteArray());
        const QString os =
            QSysInfo::prettyProductName().isEmpty() ? QSysInfo::productType() : QSysInfo::prettyProductName();
        QCOMPARE(QString::fromUtf8(request.header("User-Agent")),
                 QStringLiteral("Vontrel.app/9.8.7 (%1; %2)").arg(os, QSysInfo::currentCpuArchitecture()));
        QVERIFY(!request.hasHeader("HTTP-Referer") && !request.hasHeader("X-OpenRouter-Title"));
        QCOMPARE(request.body, body);
    }

    void openRouterHeadersThroughProxy()
    {
        // The loopback server stands in for the system's proxy, so the OpenRouter host is never reached.
        const QByteArray proxy = m_server->baseUrl(QString()).toUtf8();
        qputenv("http_proxy", proxy);
        qunsetenv("no_proxy");
        m_server->enqueue(ScriptedResponse::sse().send(Sse::stream({QStringLiteral("routed")})));
        OpenAIClient client(QStringLiteral("http://api.OpenRouter.AI/api/v1"), QStringLiteral("k"),
                            QStringLiteral("m"));
        StreamRecorder recorder(&client);
        client.completeStreaming(QStringLiteral("p"));
        const bool ended = recorder.waitForEnd();
        qunsetenv("http_proxy");
        QVERIFY(ended);
        QCOMPARE(recorder.chunkTexts(), QStringList{QStringLiteral("routed")});
        const RecordedRequest request = m_server->requests().first();
        QCOMPARE(request.path(), QByteArray("http://api.openrouter.ai/api/v1/chat/completions"));
        QCOMPARE(request.header("HTTP-Referer"), QByteArray("https://vontrel.app"));
        QCOMPARE(request.header("X-OpenRouter-Title"), QByteArray("Vontrel.app"));
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
        QTest::newRow("last line without line feed unused")
            << (Sse::delta("x") + Sse::delta("y") + Sse::delta("z").chopped(2)) << 64 << xy;
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

    void streamFailure_data()
    {
        QTest::addColumn<ScriptedResponse>("response");
        QTest::addColumn<QStringList>("chunks");
        QTest::addColumn<QString>("error");
        const QStringList hello{QStringLiteral("Hello")};
        QTest::newRow("error object after content")
            << ScriptedResponse::sse()
                   .send(Sse::delta("Hello"))
                   .pause(5)
                   .send("data: {\"error\":{\"message\":\"Rate limit reached\",\"type\":\"x\"}}\n\n" +
                         Sse::delta("after"))
                   .pause(5)
                   .send(Sse::stream({QStringLiteral("later")}))
            << hello << "API error: Rate limit reached";
        QTest::newRow("401") << ScriptedResponse::json(401, "{\"error\":{\"message\":\"Incorrect API key\"}}")
                             << QStringList() << "Network error: *";
        QTest::newRow("429") << ScriptedResponse::json(429, "{\"error\":{\"message\":\"Rate limit\"}}")
                             << QStringList() << "Network error: *";
        QTest::newRow("500 with data lines") << ScriptedResponse::json(500, "data: {\"choices\":[]}\n\n")
                                             << QStringList() << "Network error: *";
        QTest::newRow("reset mid-stream")
            << ScriptedResponse::sse().send(Sse::delta("Hello")).pause(20).resetConnection() << hello
            << "Network error: *";
        const QByteArray longLine = "data: " + QByteArray(OpenAIClient::kMaxPendingLineBytes + 1024, 'x');
        QTest::newRow("line over 16 MiB")
            << ScriptedResponse::sse()
                   .send(Sse::delta("Hello"))
                   .sendInPieces(longLine, 1 << 20, 1 << 20, 1, 0)
            << hello << "Invalid response: a line of the event stream exceeds 16 MiB";
    }

    void streamFailure()
    {
        QFETCH(ScriptedResponse, response);
        QFETCH(QStringList, chunks);
        QFETCH(QString, error);
        m_server->enqueue(response);
        OpenAIClient client(m_server->baseUrl(), QStringLiteral("k"), QStringLiteral("m"));
        {
            StreamRecorder recorder(&client);
            client.completeStreaming(QStringLiteral("p"));
            QVERIFY(recorder.waitForEnd());
            // Nothing more once the reply is gone: no chunk after the error, no finish.
            QTRY_VERIFY_WITH_TIMEOUT(client.findChildren<QNetworkReply *>().isEmpty(), kWaitMs);
            QCoreApplication::processEvents();
            QCOMPARE(recorder.chunkTexts(), chunks);
            QCOMPARE(recorder.errors.size() + recorder.finished.size(), 1);
            verifyText(recorder.error(), error);
            QCOMPARE(client.lastError(), recorder.error());
        }
        // The same client serves the next request.
        m_server->enqueue(ScriptedResponse::sse().send(Sse::stream({QStringLiteral("again")})));
        StreamRecorder next(&client);
        client.completeStreaming(QStringLiteral("p"));
        QVERIFY(next.waitForEnd());
        QCOMPARE(next.chunkTexts(), QStringList{QStringLiteral("again")});
        QCOMPARE(client.lastError(), QString());
    }

    void unconfiguredFailsAtOnce_data()
    {
        QTest::addColumn<QString>("url");
        QTest::addColumn<QString>("key");
        QTest::addColumn<QString>("model");
        QTest::newRow("no url") << QString() << "k"
                                << "m";
        QTest::newRow("no key") << "URL" << QString() << "m";
        QTest::newRow("no model") << "URL"
                                  << "k" << QString();
    }

    void unconfiguredFailsAtOnce()
    {
        QFETCH(QString, url);
        QFETCH(QString, key);
        QFETCH(QString, model);
        OpenAIClient client(url.isEmpty() ? url : m_server->baseUrl(), key, model);
        StreamRecorder recorder(&client);
        client.completeStreaming(QStringLiteral("p"));
        QCOMPARE(recorder.error(), kNotConfigured); // before completeStreaming returned
        QCOMPARE(client.complete(QStringLiteral("p")), QString());
        QCOMPARE(client.lastError(), kNotConfigured);
        QCOMPARE(m_server->connectionCount(), 0);
    }

    void cancelDuringWarmUpSendsNothing()
    {
        static QtMessageHandler previous = nullptr;
        previous = qInstallMessageHandler(
            [](QtMsgType type, const QMessageLogContext &context, const QString &text) {
                if (text.contains(QLatin1String("Request cancelled during connection setup")))
                    s_warmUpCancelLogged = true;
                previous(type, context, text);
            });
        OpenAIClient client(m_server->baseUrl(), QStringLiteral("k"), QStringLiteral("m"));
        StreamRecorder recorder(&client);
        client.completeStreaming(QStringLiteral("p"));
        client.cancelRequest();
        const bool logged = QTest::qWaitFor([] { return s_warmUpCancelLogged.load(); }, kWaitMs);
        qInstallMessageHandler(previous);
        QVERIFY(logged);
        QCoreApplication::processEvents();
        QCOMPARE(m_server->requestCount(), 0);
        QCOMPARE(recorder.chunks.size() + recorder.finished.size() + recorder.errors.size(), 0);
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

        // A cancelled stream stays silent even when its server goes on.
        StreamRecorder third(&client);
        client.completeStreaming(QStringLiteral("held"));
        QVERIFY(third.chunks.wait(kWaitMs));
        client.cancelRequest();
        m_server->releaseHeld();
        client.completeStreaming(QStringLiteral("last"));
        QVERIFY(third.finished.wait(kWaitMs));
        QCOMPARE(third.chunkTexts(),
                 (QStringList{QStringLiteral("held1"), QStringLiteral("last1"), QStringLiteral("last2")}));
        QCOMPARE(third.errors.size(), 0);
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
        QTest::newRow("401, body not shown")
            << 401 << QByteArray("{\"error\":{\"message\":\"bad key\"}}") << QString() << "Network error: *";
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
        QVERIFY(!client.lastError().contains(QLatin1String("bad key")));
        QCOMPARE(streamingError.size(), 0);
    }

    void blockingTimeout()
    {
        m_server->setHandler([](const RecordedRequest &request) {
            if (request.body.contains("\"slow\""))
                return ScriptedResponse::sse()
                    .setHeader("Content-Type", "application/json")
                    .holdUntilReleased();
            return ScriptedResponse::json(200, "{\"choices\":[{\"message\":{\"content\":\"fresh\"}}]}");
        });
        OpenAIClient client(m_server->baseUrl(), QStringLiteral("k"), QStringLiteral("m"));
        client.setTimeout(0);
        QCOMPARE(client.complete(QStringLiteral("slow")), QString());
        QCOMPARE(client.lastError(), QStringLiteral("Request timed out"));
        // A later call is not disturbed by the abandoned one.
        m_server->releaseHeld();
        client.setTimeout(20000);
        QCOMPARE(client.complete(QStringLiteral("quick")), QStringLiteral("fresh"));
        QCOMPARE(client.lastError(), QString());
    }
};

QTEST_GUILESS_MAIN(TestOpenAIClient)
#include "tst_openaiclient.moc"
