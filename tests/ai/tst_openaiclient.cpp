#include "LogCapture.h"
#include "LoopbackHttpServer.h"
#include "SseBuilder.h"
#include "ai/OpenAIClient.h"

#include <QCoreApplication>
#include <QRegularExpression>
#include <QSignalSpy>
#include <QSysInfo>
#include <QTest>

namespace {

constexpr int kWaitMs = 20000;
const QString kNotConfigured = QStringLiteral("API not configured. Please set API URL and key in config.");

// Collects everything one client reports, in order.
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

    QSignalSpy chunks;
    QSignalSpy finished;
    QSignalSpy errors;
};

} // namespace

class TestOpenAIClient final : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void cleanup();

    void endpointUrl_data();
    void endpointUrl();
    void streamingRequestOnTheWire();
    void openRouterHeadersThroughProxy();
    void streamsContentPieces_data();
    void streamsContentPieces();
    void errorObjectEndsStream();
    void httpErrorStatus_data();
    void httpErrorStatus();
    void connectionResetMidStream();
    void unconfiguredFailsAtOnce_data();
    void unconfiguredFailsAtOnce();
    void cancelDuringWarmUpSendsNothing();
    void newRequestReplacesRunningStream();
    void overlongLineEndsStream();
    void blockingComplete_data();
    void blockingComplete();
    void blockingRequestOnTheWire();
    void blockingTimeout();

private:
    std::unique_ptr<LoopbackHttpServer> m_server;
};

void TestOpenAIClient::initTestCase()
{
    QCoreApplication::setApplicationVersion(QStringLiteral("9.8.7"));
}

void TestOpenAIClient::init()
{
    m_server = std::make_unique<LoopbackHttpServer>();
    QVERIFY(m_server->listen());
}

void TestOpenAIClient::cleanup()
{
    m_server.reset();
}

void TestOpenAIClient::endpointUrl_data()
{
    QTest::addColumn<QString>("base");
    QTest::addColumn<QString>("endpoint");
    QTest::newRow("v1") << "https://h/v1"
                        << "https://h/v1/chat/completions";
    QTest::newRow("v1 slash") << "https://h/v1/"
                              << "https://h/v1/chat/completions";
    QTest::newRow("complete") << "https://h/v1/chat/completions"
                              << "https://h/v1/chat/completions";
    QTest::newRow("case-sensitive") << "https://h/V1/CHAT/COMPLETIONS"
                                    << "https://h/V1/CHAT/COMPLETIONS/chat/completions";
    QTest::newRow("query kept") << "https://h/v1?x=1"
                                << "https://h/v1?x=1/chat/completions";
    QTest::newRow("host only") << "http://h"
                               << "http://h/chat/completions";
}

void TestOpenAIClient::endpointUrl()
{
    QFETCH(QString, base);
    QFETCH(QString, endpoint);
    QCOMPARE(OpenAIClient::endpointUrl(base), endpoint);
}

void TestOpenAIClient::streamingRequestOnTheWire()
{
    m_server->enqueue(ScriptedResponse::sse().send(Sse::stream({QStringLiteral("ok")})));
    OpenAIClient client(m_server->baseUrl(QStringLiteral("/v1/")), QStringLiteral("sk-ключ"),
                        QStringLiteral("test-model"));
    StreamRecorder recorder(&client);
    client.completeStreaming(QStringLiteral("Say \"hi\"\nnow"));
    QVERIFY(recorder.waitForEnd());
    QCOMPARE(recorder.error(), QString());

    QCOMPARE(m_server->requestCount(), 1);
    const RecordedRequest request = m_server->requests().first();
    QCOMPARE(request.method, QByteArray("POST"));
    QCOMPARE(request.target, QByteArray("/v1/chat/completions"));
    QCOMPARE(request.version, QByteArray("HTTP/1.1"));
    QCOMPARE(request.header("Content-Type"), QByteArray("application/json"));
    QCOMPARE(request.header("Authorization"), QStringLiteral("Bearer sk-ключ").toUtf8());
    QCOMPARE(request.header("Accept"), QByteArray("text/event-stream"));
    const QString os =
        QSysInfo::prettyProductName().isEmpty() ? QSysInfo::productType() : QSysInfo::prettyProductName();
    QCOMPARE(QString::fromUtf8(request.header("User-Agent")),
             QStringLiteral("Vontrel.app/9.8.7 (%1; %2)").arg(os, QSysInfo::currentCpuArchitecture()));
    QVERIFY(!request.hasHeader("HTTP-Referer"));
    QVERIFY(!request.hasHeader("X-OpenRouter-Title"));
    QCOMPARE(request.body,
             QByteArray(R"({"enable_thinking":false,"max_tokens":2048,"messages":[{"content":)"
                        R"("Say \"hi\"\nnow","role":"user"}],"model":"test-model","stream":true,)"
                        R"("temperature":0.7})"));
    // The warm-up opened a connection of its own before the request.
    QVERIFY(m_server->connectionCount() >= 2);
}

void TestOpenAIClient::openRouterHeadersThroughProxy()
{
    // The loopback server stands in for a proxy, so a request to an OpenRouter host never leaves the machine;
    // this also proves that the client honours the system's proxy settings.
    const QByteArray proxy = m_server->baseUrl(QString()).toUtf8();
    qputenv("http_proxy", proxy);
    qputenv("HTTP_PROXY", proxy);
    qunsetenv("no_proxy");
    qunsetenv("NO_PROXY");
    m_server->enqueue(ScriptedResponse::sse().send(Sse::stream({QStringLiteral("routed")})));
    OpenAIClient client(QStringLiteral("http://api.OpenRouter.AI/api/v1"), QStringLiteral("k"),
                        QStringLiteral("m"));
    StreamRecorder recorder(&client);
    client.completeStreaming(QStringLiteral("p"));
    const bool ended = recorder.waitForEnd();
    qunsetenv("http_proxy");
    qunsetenv("HTTP_PROXY");
    QVERIFY(ended);
    QCOMPARE(recorder.error(), QString());
    QCOMPARE(recorder.chunkTexts(), QStringList{QStringLiteral("routed")});
    const RecordedRequest request = m_server->requests().first();
    QCOMPARE(request.path(), QByteArray("http://api.openrouter.ai/api/v1/chat/completions"));
    QCOMPARE(request.header("HTTP-Referer"), QByteArray("https://vontrel.app"));
    QCOMPARE(request.header("X-OpenRouter-Title"), QByteArray("Vontrel.app"));
}

void TestOpenAIClient::streamsContentPieces_data()
{
    QTest::addColumn<QByteArray>("body");
    QTest::addColumn<int>("maxPiece");
    QTest::addColumn<QStringList>("chunks");

    const QStringList multiByte{QStringLiteral("Grüße, "), QStringLiteral("你好世界"),
                                QStringLiteral(" 🙂🚀"), QStringLiteral("\nÆØÅ — “quoted”")};
    QTest::newRow("utf-8 split in 1-byte pieces") << Sse::stream(multiByte) << 1 << multiByte;
    QTest::newRow("utf-8 split in 1..7-byte pieces") << Sse::stream(multiByte) << 7 << multiByte;
    QTest::newRow("crlf line ends") << (Sse::delta(QStringLiteral("a"), "\r\n\r\n") +
                                        Sse::delta(QStringLiteral("b"), "\r\n\r\n") + "data: [DONE]\r\n\r\n")
                                    << 5 << QStringList{QStringLiteral("a"), QStringLiteral("b")};
    QTest::newRow("comments, fields, keep-alive")
        << (": keep-alive\n\nevent: message\nid: 7\nretry: 10\n" + Sse::delta(QStringLiteral("x")) +
            ":\n\n   \n\t\n" + Sse::delta(QStringLiteral("y")))
        << 64 << QStringList{QStringLiteral("x"), QStringLiteral("y")};
    QTest::newRow("data after [DONE]")
        << ("data: [DONE]\n\n" + Sse::delta(QStringLiteral("late")) + "data: [DONE]\n") << 64
        << QStringList{QStringLiteral("late")};
    QTest::newRow("role-only, null, empty, missing content")
        << QByteArray(R"(data: {"choices":[{"delta":{"role":"assistant"}}]})"
                      "\n"
                      R"(data: {"choices":[{"delta":{"role":"assistant","content":null}}]})"
                      "\n"
                      R"(data: {"choices":[{"delta":{"content":""}}]})"
                      "\n"
                      R"(data: {"choices":[]})"
                      "\n"
                      R"(data: {"choices":[{"finish_reason":"stop"}]})"
                      "\n"
                      R"(data: {"usage":{"total_tokens":3}})"
                      "\n"
                      R"(data: {"choices":[{"delta":{"content":42}}]})"
                      "\n") +
               Sse::delta(QStringLiteral("only"))
        << 64 << QStringList{QStringLiteral("only")};
    QTest::newRow("no blank after colon, garbage skipped")
        << (QByteArray(R"(data:{"choices":[{"delta":{"content":"nope"}}]})") + "\n" + "data: {not json\n" +
            "DATA: " + Sse::delta(QStringLiteral("upper")) + Sse::delta(QStringLiteral("yes")))
        << 64 << QStringList{QStringLiteral("yes")};
    QTest::newRow("last line without line feed is not used")
        << (Sse::delta(QStringLiteral("kept")) + Sse::delta(QStringLiteral("cut")).chopped(2)) << 64
        << QStringList{QStringLiteral("kept")};
    QTest::newRow("no content at all") << QByteArray("data: [DONE]\n\n") << 64 << QStringList();
}

void TestOpenAIClient::streamsContentPieces()
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
    QCOMPARE(recorder.finished.size(), 1);
    QCOMPARE(recorder.finished.first().at(0).toString(), chunks.join(QString()));
    QCOMPARE(client.lastError(), QString());
}

void TestOpenAIClient::errorObjectEndsStream()
{
    m_server->enqueue(ScriptedResponse::sse()
                          .send(Sse::delta(QStringLiteral("Hello ")))
                          .pause(5)
                          .send(R"(data: {"error":{"message":"Rate limit reached","type":"requests"}})"
                                "\n\n" +
                                Sse::delta(QStringLiteral("after")))
                          .pause(5)
                          .send(Sse::delta(QStringLiteral("later"))));
    OpenAIClient client(m_server->baseUrl(), QStringLiteral("k"), QStringLiteral("m"));
    StreamRecorder recorder(&client);
    client.completeStreaming(QStringLiteral("p"));
    QVERIFY(recorder.waitForEnd());
    QCOMPARE(recorder.chunkTexts(), QStringList{QStringLiteral("Hello ")});
    QCOMPARE(recorder.error(), QStringLiteral("API error: Rate limit reached"));
    QCOMPARE(client.lastError(), QStringLiteral("API error: Rate limit reached"));
    // The end of the response must not add a finish after the error: wait until the reply is gone.
    QTRY_VERIFY_WITH_TIMEOUT(client.findChildren<QNetworkReply *>().isEmpty(), kWaitMs);
    QCoreApplication::processEvents();
    QCOMPARE(recorder.errors.size(), 1);
    QCOMPARE(recorder.finished.size(), 0);
    QCOMPARE(recorder.chunkTexts(), QStringList{QStringLiteral("Hello ")});
}

void TestOpenAIClient::httpErrorStatus_data()
{
    QTest::addColumn<int>("status");
    QTest::addColumn<QByteArray>("body");
    QTest::newRow("401") << 401 << QByteArray(R"({"error":{"message":"Incorrect API key provided"}})");
    QTest::newRow("429") << 429 << QByteArray(R"({"error":{"message":"Rate limit"}})");
    QTest::newRow("500") << 500 << QByteArray(R"({"error":{"message":"boom"}})");
    QTest::newRow("503 with data lines") << 503 << QByteArray("data: {\"choices\":[]}\n\n");
}

void TestOpenAIClient::httpErrorStatus()
{
    QFETCH(int, status);
    QFETCH(QByteArray, body);
    m_server->enqueue(ScriptedResponse::json(status, body));
    OpenAIClient client(m_server->baseUrl(), QStringLiteral("bad"), QStringLiteral("m"));
    StreamRecorder recorder(&client);
    client.completeStreaming(QStringLiteral("p"));
    QVERIFY(recorder.waitForEnd());
    QVERIFY2(recorder.error().startsWith(QStringLiteral("Network error: ")), qPrintable(recorder.error()));
    QVERIFY(recorder.error().size() > QStringLiteral("Network error: ").size());
    QCOMPARE(client.lastError(), recorder.error());
    QCOMPARE(recorder.errors.size(), 1);
    QCOMPARE(recorder.finished.size(), 0);
    QCOMPARE(recorder.chunks.size(), 0);
}

void TestOpenAIClient::connectionResetMidStream()
{
    m_server->enqueue(
        ScriptedResponse::sse().send(Sse::delta(QStringLiteral("partial"))).pause(20).resetConnection());
    OpenAIClient client(m_server->baseUrl(), QStringLiteral("k"), QStringLiteral("m"));
    StreamRecorder recorder(&client);
    client.completeStreaming(QStringLiteral("p"));
    QVERIFY(recorder.waitForEnd());
    QCOMPARE(recorder.chunkTexts(), QStringList{QStringLiteral("partial")});
    QVERIFY2(recorder.error().startsWith(QStringLiteral("Network error: ")), qPrintable(recorder.error()));
    QCOMPARE(recorder.finished.size(), 0);

    // The client is idle again and serves the next request.
    m_server->enqueue(ScriptedResponse::sse().send(Sse::stream({QStringLiteral("again")})));
    StreamRecorder second(&client);
    client.completeStreaming(QStringLiteral("p"));
    QVERIFY(second.waitForEnd());
    QCOMPARE(second.error(), QString());
    QCOMPARE(client.lastError(), QString());
    QCOMPARE(second.chunkTexts(), QStringList{QStringLiteral("again")});
}

void TestOpenAIClient::unconfiguredFailsAtOnce_data()
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

void TestOpenAIClient::unconfiguredFailsAtOnce()
{
    QFETCH(QString, url);
    QFETCH(QString, key);
    QFETCH(QString, model);
    if (url == QLatin1String("URL"))
        url = m_server->baseUrl();
    OpenAIClient client(url, key, model);
    QVERIFY(!client.isConfigured());
    StreamRecorder recorder(&client);
    client.completeStreaming(QStringLiteral("p"));
    QCOMPARE(recorder.errors.size(), 1);
    QCOMPARE(recorder.error(), kNotConfigured);
    QCOMPARE(client.complete(QStringLiteral("p")), QString());
    QCOMPARE(client.lastError(), kNotConfigured);
    QCOMPARE(m_server->connectionCount(), 0);
}

void TestOpenAIClient::cancelDuringWarmUpSendsNothing()
{
    LogCapture log;
    OpenAIClient client(m_server->baseUrl(), QStringLiteral("k"), QStringLiteral("m"));
    StreamRecorder recorder(&client);
    client.completeStreaming(QStringLiteral("p"));
    client.cancelRequest();
    QTRY_VERIFY_WITH_TIMEOUT(
        log.contains(QStringLiteral("OpenAIClient: Request cancelled during connection setup")), kWaitMs);
    QCoreApplication::processEvents();
    QCOMPARE(m_server->requestCount(), 0);
    QCOMPARE(recorder.chunks.size() + recorder.finished.size() + recorder.errors.size(), 0);
}

void TestOpenAIClient::newRequestReplacesRunningStream()
{
    // Back to back: the first request is never sent.
    m_server->setHandler([](const RecordedRequest &request) {
        const bool first = request.body.contains("\"first\"");
        return ScriptedResponse::sse().send(
            Sse::stream({first ? QStringLiteral("A1") : QStringLiteral("B1"),
                         first ? QStringLiteral("A2") : QStringLiteral("B2")}));
    });
    OpenAIClient client(m_server->baseUrl(), QStringLiteral("k"), QStringLiteral("m"));
    StreamRecorder recorder(&client);
    client.completeStreaming(QStringLiteral("first"));
    client.completeStreaming(QStringLiteral("second"));
    QVERIFY(recorder.waitForEnd());
    QCOMPARE(recorder.chunkTexts(), (QStringList{QStringLiteral("B1"), QStringLiteral("B2")}));
    QCOMPARE(recorder.finished.first().at(0).toString(), QStringLiteral("B1B2"));
    QCOMPARE(m_server->requestCount(), 1);

    // While the first is streaming: its reply is aborted and its later pieces never arrive.
    m_server->setHandler([](const RecordedRequest &request) {
        if (request.body.contains("\"held\""))
            return ScriptedResponse::sse()
                .send(Sse::delta(QStringLiteral("H1")))
                .holdUntilReleased()
                .send(Sse::stream({QStringLiteral("H2")}));
        return ScriptedResponse::sse()
            .send(Sse::delta(QStringLiteral("N1")))
            .holdUntilReleased()
            .send(Sse::stream({QStringLiteral("N2")}));
    });
    StreamRecorder second(&client);
    client.completeStreaming(QStringLiteral("held"));
    QVERIFY(second.chunks.wait(kWaitMs));
    client.completeStreaming(QStringLiteral("next"));
    QTRY_COMPARE_WITH_TIMEOUT(second.chunks.size(), 2, kWaitMs);
    m_server->releaseHeld();
    QVERIFY(second.waitForEnd());
    QCOMPARE(second.error(), QString());
    QCOMPARE(second.chunkTexts(),
             (QStringList{QStringLiteral("H1"), QStringLiteral("N1"), QStringLiteral("N2")}));
    QCOMPARE(second.finished.first().at(0).toString(), QStringLiteral("N1N2"));

    // A cancelled stream stays silent even when its server goes on.
    StreamRecorder third(&client);
    client.completeStreaming(QStringLiteral("held"));
    QVERIFY(third.chunks.wait(kWaitMs));
    client.cancelRequest();
    m_server->releaseHeld();
    m_server->setHandler([](const RecordedRequest &) {
        return ScriptedResponse::sse().send(Sse::stream({QStringLiteral("Z")}));
    });
    StreamRecorder fourth(&client);
    client.completeStreaming(QStringLiteral("last"));
    QVERIFY(fourth.waitForEnd());
    QCOMPARE(third.chunkTexts(), (QStringList{QStringLiteral("H1"), QStringLiteral("Z")}));
    QCOMPARE(third.finished.size(), 1);
    QCOMPARE(third.errors.size(), 0);
}

void TestOpenAIClient::overlongLineEndsStream()
{
    const QByteArray line = "data: " + QByteArray(OpenAIClient::kMaxPendingLineBytes + 1024, 'x');
    m_server->enqueue(ScriptedResponse::sse()
                          .send(Sse::delta(QStringLiteral("before")))
                          .sendInPieces(line, 1 << 20, 1 << 20, 1, 0));
    OpenAIClient client(m_server->baseUrl(), QStringLiteral("k"), QStringLiteral("m"));
    StreamRecorder recorder(&client);
    client.completeStreaming(QStringLiteral("p"));
    QVERIFY(recorder.waitForEnd());
    QCOMPARE(recorder.chunkTexts(), QStringList{QStringLiteral("before")});
    QCOMPARE(recorder.error(), QStringLiteral("Invalid response: a line of the event stream exceeds 16 MiB"));
    QCOMPARE(recorder.finished.size(), 0);
}

void TestOpenAIClient::blockingComplete_data()
{
    QTest::addColumn<int>("status");
    QTest::addColumn<QByteArray>("body");
    QTest::addColumn<QString>("answer");
    QTest::addColumn<QString>("error");

    QTest::newRow("answer trimmed") << 200
                                    << QByteArray(
                                           R"({"choices":[{"message":{"content":"  Hallo Welt\n "}}]})")
                                    << "Hallo Welt" << QString();
    QTest::newRow("error object") << 200 << QByteArray(R"({"error":{"message":"model not found"}})")
                                  << QString() << "API error: model not found";
    QTest::newRow("error object without message")
        << 200 << QByteArray(R"({"error":{}})") << QString() << "API error: ";
    QTest::newRow("not json") << 200 << QByteArray("<html>") << QString() << "Failed to parse response: *";
    QTest::newRow("no choices") << 200 << QByteArray(R"({"choices":[]})") << QString()
                                << "No response from API";
    QTest::newRow("missing choices") << 200 << QByteArray(R"({"id":"x"})") << QString()
                                     << "No response from API";
    QTest::newRow("no content") << 200 << QByteArray(R"({"choices":[{"message":{}}]})") << QString()
                                << QString();
    QTest::newRow("401 body not read")
        << 401 << QByteArray(R"({"error":{"message":"bad key"}})") << QString() << "Network error: *";
}

void TestOpenAIClient::blockingComplete()
{
    QFETCH(int, status);
    QFETCH(QByteArray, body);
    QFETCH(QString, answer);
    QFETCH(QString, error);
    m_server->enqueue(ScriptedResponse::json(status, body));
    OpenAIClient client(m_server->baseUrl(), QStringLiteral("k"), QStringLiteral("m"));
    QSignalSpy anySignal(&client, &OpenAIClient::streamingError);
    QCOMPARE(client.complete(QStringLiteral("p")), answer);
    if (error.endsWith(QLatin1Char('*'))) {
        QVERIFY2(client.lastError().startsWith(error.chopped(1)), qPrintable(client.lastError()));
        QVERIFY(client.lastError().size() > error.size());
    } else {
        QCOMPARE(client.lastError(), error);
    }
    QVERIFY(!client.lastError().contains(QLatin1String("bad key")));
    QCOMPARE(anySignal.size(), 0);
}

void TestOpenAIClient::blockingRequestOnTheWire()
{
    m_server->enqueue(ScriptedResponse::json(200, R"({"choices":[{"message":{"content":"x"}}]})"));
    OpenAIClient client(m_server->baseUrl(QStringLiteral("/api/v1/chat/completions")), QStringLiteral("k"),
                        QStringLiteral("m"));
    QCOMPARE(client.complete(QStringLiteral("hello")), QStringLiteral("x"));
    const RecordedRequest request = m_server->requests().first();
    QCOMPARE(request.method, QByteArray("POST"));
    QCOMPARE(request.target, QByteArray("/api/v1/chat/completions"));
    QVERIFY(!request.hasHeader("Accept"));
    QCOMPARE(request.header("Authorization"), QByteArray("Bearer k"));
    QVERIFY(request.header("User-Agent").startsWith("Vontrel.app/9.8.7 ("));
    QCOMPARE(request.body, QByteArray(R"({"max_tokens":2048,"messages":[{"content":"hello","role":"user"}],)"
                                      R"("model":"m","temperature":0.7})"));
}

void TestOpenAIClient::blockingTimeout()
{
    m_server->setHandler([](const RecordedRequest &request) {
        if (request.body.contains("\"slow\""))
            return ScriptedResponse::sse()
                .setHeader("Content-Type", "application/json")
                .holdUntilReleased()
                .send(R"({"choices":[{"message":{"content":"late"}}]})");
        return ScriptedResponse::json(200, R"({"choices":[{"message":{"content":"fresh"}}]})");
    });
    OpenAIClient client(m_server->baseUrl(), QStringLiteral("k"), QStringLiteral("m"));
    client.setTimeout(0);
    QCOMPARE(client.complete(QStringLiteral("slow")), QString());
    QCOMPARE(client.lastError(), QStringLiteral("Request timed out"));

    // A later call on the same client is not disturbed by the abandoned one.
    m_server->releaseHeld();
    client.setTimeout(20000);
    QCOMPARE(client.complete(QStringLiteral("quick")), QStringLiteral("fresh"));
    QCOMPARE(client.lastError(), QString());
}

QTEST_GUILESS_MAIN(TestOpenAIClient)
#include "tst_openaiclient.moc"
