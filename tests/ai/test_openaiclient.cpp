#include "EventStreamFuzz.h"
#include "LoopbackHttpServer.h"
#include "SseBuilder.h"
#include "StreamRecorder.h"
#include "ai/ConnectionWarmUp.h"
#include "ai/OpenAIClient.h"
#include "ai/ProviderErrors.h"

#include <QCoreApplication>
#include <QSignalSpy>
#include <QSysInfo>
#include <QTest>

namespace {

constexpr int kWaitMs = 20000;
const QString kNotConfigured = "API not configured. Please set API URL and key in config.";

} // namespace

class TestOpenAIClient final : public QObject
{
    Q_OBJECT
    std::unique_ptr<LoopbackHttpServer> m_server;

private slots:
    void initTestCase() { QCoreApplication::setApplicationVersion("9.8.7"); }
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
            streaming ? ScriptedResponse::sse().send(Sse::stream({"ok"}))
                      : ScriptedResponse::json(200, "{\"choices\":[{\"message\":{\"content\":\"ok\"}}]}"));
        OpenAIClient client(m_server->baseUrl(base), "sk-ключ", "test-model");
        StreamRecorder recorder(&client);
        const QString prompt = "Say \"hi\"\nnow";
        if (streaming)
            client.completeStreaming(prompt);
        QCOMPARE(streaming ? (recorder.waitForEnd(), recorder.finished.value(0).value(0).toString())
                           : client.complete(prompt),
                 "ok");
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
        const QStringList utf8{"Grüße, ", "你好世界", " 🙂🚀\n“q”"};
        const QStringList xy{"x", "y"};
        QTest::newRow("utf-8 in 1-byte pieces") << Sse::stream(utf8) << 1 << utf8;
        // The byte order mark an event stream may begin with, itself split between reads.
        QTest::newRow("byte order mark") << ("\xEF\xBB\xBF" + Sse::stream(xy)) << 1 << xy;
        QTest::newRow("role-only, null, empty, non-string")
            << QByteArray("data: {\"choices\":[{\"delta\":{\"role\":\"assistant\"}}]}\n"
                          "data: {\"choices\":[{\"delta\":{\"role\":\"assistant\",\"content\":null}}]}\n"
                          "data: {\"choices\":[{\"delta\":{\"content\":\"\"}}]}\n"
                          "data: {\"choices\":[]}\ndata: {\"usage\":{\"total_tokens\":3}}\n"
                          "data: {\"choices\":[{\"delta\":{\"content\":42}}]}\n") +
                   Sse::stream(xy)
            << 64 << xy;
        // Compact streams leave out the blank after the colon; "[DONE]" ends them all the same.
        QTest::newRow("no blank after colon")
            << QByteArray("data:{\"choices\":[{\"delta\":{\"content\":\"x\"}}]}\n"
                          "data:\t{\"choices\":[{\"delta\":{\"content\":\"y\"}}]}\n"
                          "data:[DONE]\n")
            << 3 << xy;
        QTest::newRow("garbage and upper case skipped")
            << ("data: {not json\nDATA: " + Sse::delta("no") + "database: 1\n" + Sse::stream(xy)) << 64 << xy;
    }

    void streamsContentPieces()
    {
        QFETCH(QByteArray, body);
        QFETCH(int, maxPiece);
        QFETCH(QStringList, chunks);
        m_server->enqueue(ScriptedResponse::sse().sendInPieces(body, 1, maxPiece, 42));
        OpenAIClient client(m_server->baseUrl(), "k", "m");
        StreamRecorder recorder(&client);
        client.completeStreaming("p");
        QVERIFY(recorder.waitForEnd());
        QCOMPARE(recorder.error(), QString());
        QCOMPARE(recorder.chunkTexts(), chunks);
        QCOMPARE(recorder.finished.first().at(0).toString(), chunks.join(QString()));
    }

    // Refused before anything is sent; a line break in a header value would smuggle in a header of its own.
    void badSettingsFailAtOnce_data()
    {
        QTest::addColumn<QStringList>("urlKeyModel"); // "%1" in the URL: the loopback server's port
        QTest::addColumn<QString>("error");
        const QString url = "http://127.0.0.1:%1/v1";
        const QString badKey = QStringLiteral(
            "The API key contains a line break or another control character. Paste the key again.");
        QTest::newRow("no url") << QStringList{"", "k", "m"} << kNotConfigured;
        QTest::newRow("no key") << QStringList{url, "", "m"} << kNotConfigured;
        QTest::newRow("no model") << QStringList{url, "k", ""} << kNotConfigured;
        QTest::newRow("key with CR LF") << QStringList{url, "sk-a\r\nX-Injected: 1", "m"} << badKey;
        QTest::newRow("key with NUL")
            << QStringList{url, QStringLiteral("sk-a") + QChar(0) + "b", "m"} << badKey;
        QTest::newRow("url with LF") << QStringList{url + "\nX-Injected: 1", "k", "m"}
                                     << "The API URL contains a line break or another control character.";
        QTest::newRow("url without scheme")
            << QStringList{"127.0.0.1:%1/v1", "k", "m"} << "The API URL is not an http or https address.";
    }

    void badSettingsFailAtOnce()
    {
        QFETCH(QStringList, urlKeyModel);
        QFETCH(QString, error);
        const QString url =
            urlKeyModel[0].isEmpty() ? QString() : urlKeyModel[0].arg(QUrl(m_server->baseUrl()).port());
        OpenAIClient client(url, urlKeyModel[1], urlKeyModel[2]);
        StreamRecorder recorder(&client);
        client.completeStreaming("p");
        QCOMPARE(recorder.error(), error); // before completeStreaming returned
        QCOMPARE(client.complete("p"), QString());
        QCOMPARE(client.lastError(), error);
        QCOMPARE(m_server->requestCount(), 0);
    }

    // Once cancelled, a request reports nothing more: during the warm-up it is never sent, and the idle limit
    // of a stalled stream does not fire afterwards.
    void cancelIsSilent_data()
    {
        QTest::addColumn<bool>("streaming");
        QTest::newRow("during the warm-up") << false;
        QTest::newRow("while the stream stalls") << true;
    }

    void cancelIsSilent()
    {
        QFETCH(bool, streaming);
        m_server->setFallback(ScriptedResponse::sse().send(Sse::delta("Hello")).holdUntilReleased());
        OpenAIClient client(m_server->baseUrl(), "k", "m");
        OpenAIClient later(m_server->baseUrl(), "k", "m");
        client.setLimits({100, 60000, 1 << 20});
        later.setLimits({100, 60000, 1 << 20});
        StreamRecorder recorder(&client), laterRecorder(&later);
        client.completeStreaming("p");
        if (streaming)
            QVERIFY(recorder.chunks.wait(kWaitMs));
        client.cancelRequest();
        // A request started after the cancel goes through the same warm-up and then stalls: by its end the
        // cancelled one would have been sent, and its idle limit have fired.
        later.completeStreaming("p");
        QVERIFY(laterRecorder.waitForEnd(kWaitMs) && laterRecorder.errors.size() == 1);
        QCOMPARE(m_server->requestCount(), streaming ? 2 : 1);
        QCOMPARE(recorder.finished.size() + recorder.errors.size(), 0);
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
        OpenAIClient client(m_server->baseUrl(), "k", "m");
        StreamRecorder recorder(&client);
        // Back to back: the first request is never sent.
        client.completeStreaming("first");
        client.completeStreaming("second");
        QVERIFY(recorder.waitForEnd());
        QCOMPARE(recorder.chunkTexts(), (QStringList{"second1", "second2"}));
        QCOMPARE(m_server->requestCount(), 1);

        // While the first streams: its later pieces never arrive.
        StreamRecorder second(&client);
        client.completeStreaming("held");
        QVERIFY(second.chunks.wait(kWaitMs));
        client.completeStreaming("heldnext");
        QTRY_COMPARE_WITH_TIMEOUT(second.chunks.size(), 2, kWaitMs);
        m_server->releaseHeld();
        QVERIFY(second.waitForEnd());
        QCOMPARE(second.chunkTexts(), (QStringList{"held1", "heldnext1", "heldnext2"}));
        QCOMPARE(second.finished.first().at(0).toString(), "heldnext1heldnext2");
    }

    // Answers with status 200; the others, and those a stream may carry instead, are in test_hostileprovider.
    void blockingComplete_data()
    {
        QTest::addColumn<QByteArray>("body");
        QTest::addColumn<QString>("answer");
        QTest::addColumn<QString>("error");
        QTest::newRow("not json") << QByteArray("<html>") << QString() << "Failed to parse response: *";
        QTest::newRow("no choices") << QByteArray("{\"choices\":[]}") << QString() << "No response from API";
        QTest::newRow("error null is no error, answer trimmed")
            << QByteArray("{\"error\":null,\"choices\":[{\"message\":{\"content\":\" ok\\n\"}}]}") << "ok"
            << QString();
    }

    void blockingComplete()
    {
        QFETCH(QByteArray, body);
        QFETCH(QString, error);
        m_server->enqueue(ScriptedResponse::json(200, body));
        OpenAIClient client(m_server->baseUrl(), "k", "m");
        QSignalSpy streamingError(&client, &OpenAIClient::streamingError);
        QTEST(client.complete("p"), "answer");
        QVERIFY2(matches(client.lastError(), error), qPrintable(client.lastError()));
        QCOMPARE(streamingError.size(), 0);
    }

    // The warm-up dials the port the request will use; 443 for a plain http address would wait out the whole
    // time-out wherever that port drops packets.
    void warmUpDialsTheRequestsPort_data()
    {
        QTest::addColumn<QString>("url");
        QTest::addColumn<int>("port");
        QTest::newRow("http") << "http://llm.example/v1" << 80;
        QTest::newRow("HTTP") << "HTTP://llm.example/v1" << 80;
        QTest::newRow("https") << "https://llm.example/v1" << 443;
        QTest::newRow("own port") << "http://llm.example:8080/v1" << 8080;
    }

    void warmUpDialsTheRequestsPort()
    {
        QFETCH(QString, url);
        const WarmUpTarget target = vontrelWarmUpTarget(nullptr, QUrl(url));
        QCOMPARE(target.host, "llm.example");
        QTEST(int(target.port), "port");
    }

    // The key travels in clear text over plain http; that is warned of only when it leaves this machine and
    // the local network.
    void clearTextWarning_data()
    {
        QTest::addColumn<QString>("url");
        QTest::addColumn<bool>("warned");
        QTest::newRow("public name") << "http://llm.example.com/v1" << true;
        QTest::newRow("public address") << "HTTP://8.8.8.8:8080/v1" << true;
        QTest::newRow("just outside 172.16/12") << "http://172.32.0.1/v1" << true;
        QTest::newRow("https") << "https://llm.example.com/v1" << false;
        QTest::newRow("localhost") << "http://localhost:11434/v1" << false;
        QTest::newRow("loopback v6") << "http://[::1]:8000/v1" << false;
        QTest::newRow("private v4") << "http://192.168.1.20/v1" << false;
        QTest::newRow("unique local v6") << "http://[fd12::1]/v1" << false;
        QTest::newRow("name without a dot") << "http://gpu-box:8000/v1" << false;
        QTest::newRow("mdns name") << "http://nas.local/v1" << false;
    }

    void clearTextWarning()
    {
        QFETCH(QString, url);
        QFETCH(bool, warned);
        const QString warning = ProviderErrors::clearTextWarning(url);
        QCOMPARE(!warning.isEmpty(), warned);
        if (warned)
            QVERIFY(warning.contains(QUrl(url).host()));
    }

    // The event-stream parser on its own. CR LF split between two reads is one line ending: taken as two, the
    // empty line between would end the event and lose its type.
    void crLfSplitBetweenReads()
    {
        EventStreamParser parser;
        QStringList pieces;
        parser.feed("event: error\r", &pieces);
        parser.feed("\ndata: {\"message\":\"boom\"}\n", &pieces);
        QVERIFY(parser.failed());
        QCOMPARE(parser.errorMessage(), "boom");
    }

    // A short seeded fuzz (the long run is bench_sse_fuzz; this one runs under ASan too). Well-formed streams
    // give their pieces whatever the split; damaged ones give the same outcome split or
    // whole, and nothing made up: the pieces together are never longer than the bytes they came from.
    void randomStreamsInAnySplit()
    {
        using namespace EventStreamFuzz;
        for (quint32 seed = 1; seed <= 1000; ++seed) {
            QRandomGenerator random(seed);
            const WellFormed stream = wellFormed(random);
            const Outcome outcome = parse(split(stream.bytes, random));
            QVERIFY2(outcome.pieces == stream.pieces && !outcome.failed, qPrintable(QString::number(seed)));
            const QByteArray bytes = damaged(random);
            const Outcome whole = parse({bytes});
            QVERIFY2(whole == parse(split(bytes, random)), qPrintable(QString::number(seed)));
            QVERIFY(whole.pieces.join(QString()).size() <= bytes.size());
        }
    }
};

QTEST_GUILESS_MAIN(TestOpenAIClient)
#include "test_openaiclient.moc"
