#include "../ai/SseBuilder.h"
#include "LoopbackHttpServer.h"
#include "TestEnv.h"
#include "config/ConfigManager.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QProcess>
#include <QSignalSpy>
#include <QTest>

Q_DECLARE_METATYPE(ScriptedResponse)

namespace {

constexpr int kWaitMs = 30000;

struct CliResult
{
    int exitCode = -1;
    QByteArray out;
    QByteArray err;
};

QString promptOf(const RecordedRequest &request)
{
    return QJsonDocument::fromJson(request.body)["messages"][0]["content"].toString();
}

} // namespace

class TestCliTranslate final : public QObject
{
    Q_OBJECT
    std::unique_ptr<LoopbackHttpServer> m_server;
    std::unique_ptr<QProcess> m_process;
    QString m_configPath;

    // Starts vontrel-cli translate; finish() waits while this thread keeps serving the loopback server.
    void start(const QStringList &arguments, const QByteArray &input = QByteArray())
    {
        m_process = std::make_unique<QProcess>();
        m_process->start(TestEnv::binaryDir() + QStringLiteral("/tools/cli/vontrel-cli"),
                         QStringList{QStringLiteral("translate")} + arguments);
        QVERIFY(m_process->waitForStarted());
        m_process->write(input);
        m_process->closeWriteChannel();
    }
    CliResult finish()
    {
        QSignalSpy finished(m_process.get(), &QProcess::finished);
        if (m_process->state() != QProcess::NotRunning && !finished.wait(kWaitMs))
            return {};
        return {m_process->exitCode(), m_process->readAllStandardOutput(), m_process->readAllStandardError()};
    }
    CliResult run(const QStringList &arguments, const QByteArray &input = QByteArray())
    {
        start(arguments, input);
        return finish();
    }
    void writeConfig(QJsonObject ai = {})
    {
        ai.insert(QStringLiteral("api_url"), m_server->baseUrl());
        ai.insert(QStringLiteral("api_key"),
                  ai.value(QLatin1String("api_key")).toString(QStringLiteral("k")));
        QFile file(m_configPath);
        const QByteArray bytes = QJsonDocument(QJsonObject{{QStringLiteral("ai"), ai}}).toJson();
        QVERIFY(file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size());
    }

private slots:
    void initTestCase()
    {
        QCoreApplication::setApplicationName(QStringLiteral("Vontrel"));
        QCoreApplication::setOrganizationName(QStringLiteral("Vontrel"));
        m_configPath = ConfigManager::configFilePath();
    }
    void init()
    {
        QFile::remove(m_configPath);
        m_server = std::make_unique<LoopbackHttpServer>();
        QVERIFY(m_server->listen());
    }
    void cleanup()
    {
        m_process.reset(); // kills a CLI still running
        m_server.reset();
    }

    void streamsAnswerAsItArrives()
    {
        writeConfig({{QStringLiteral("api_key"), QStringLiteral("sk-config")},
                     {QStringLiteral("model"), QStringLiteral("config-model")},
                     {QStringLiteral("target_language"), QStringLiteral("German")}});
        m_server->enqueue(ScriptedResponse::sse()
                              .send(Sse::delta(QStringLiteral("Guten")))
                              .holdUntilReleased()
                              .send(Sse::stream({QStringLiteral(" Morgen, Grüße 🙂")})));
        start({QStringLiteral("Good"), QStringLiteral("morning")});
        // The first piece reaches standard output while the service still holds back the rest.
        QByteArray out;
        QTRY_VERIFY_WITH_TIMEOUT((out += m_process->readAllStandardOutput()) == "Guten", kWaitMs);
        m_server->releaseHeld();
        const CliResult result = finish();
        QCOMPARE(QString::fromUtf8(out + result.out), QStringLiteral("Guten Morgen, Grüße 🙂\n"));
        QCOMPARE(result.err, QByteArray());
        QCOMPARE(result.exitCode, 0);

        const RecordedRequest request = m_server->requests().first();
        QVERIFY(request.header("Authorization") == "Bearer sk-config" &&
                request.body.contains("config-model"));
        const QString prompt = promptOf(request);
        QVERIFY(
            prompt.startsWith("You are a professional translator. Your task is to translate the input text "
                              "into German.") &&
            prompt.endsWith("\n\nInput:\nGood morning"));
    }

    void readsStandardInput()
    {
        writeConfig();
        m_server->enqueue(ScriptedResponse::sse().send(Sse::stream({QStringLiteral("ok")})));
        const QByteArray input = QStringLiteral("  Zeile eins\nZeile zwei – ß\n").toUtf8();
        const CliResult result = run({QStringLiteral("-")}, input);
        QCOMPARE(result.exitCode, 0);
        QCOMPARE(result.out, QByteArray("ok\n"));
        QVERIFY(promptOf(m_server->requests().first()).endsWith("\n\nInput:\n" + QString::fromUtf8(input)));
    }

    void optionsOverrideWithoutSaving()
    {
        const QString promptFile = QDir::temp().filePath(QStringLiteral("prompt.txt"));
        QFile file(promptFile);
        QVERIFY(file.open(QIODevice::WriteOnly) &&
                file.write("Render in ${target_language}, keep %1.\n") > 0);
        file.close();
        m_server->enqueue(ScriptedResponse::sse().send(Sse::stream({QStringLiteral("x")})));
        const CliResult result = run({"--api-url", m_server->baseUrl(QStringLiteral("/custom/")), "--api-key",
                                      "sk-option", "--model", "option-model", "--target",
                                      "Brazilian Portuguese", "--prompt-file", promptFile, "hello"});
        QCOMPARE(result.err, QByteArray());
        QCOMPARE(result.exitCode, 0);
        const RecordedRequest request = m_server->requests().first();
        QCOMPARE(request.target, QByteArray("/custom/chat/completions"));
        QVERIFY(request.header("Authorization") == "Bearer sk-option" &&
                request.body.contains("option-model"));
        QCOMPARE(promptOf(request),
                 QStringLiteral("Render in Brazilian Portuguese, keep %1.\n\nInput:\nhello"));
        QVERIFY2(!QFile::exists(m_configPath), "the CLI must never write the settings");
    }

    // What a misbehaving service leaves on the terminal: the text that came, then the reason, and status 1.
    void hostileProvider_data()
    {
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<ScriptedResponse>("response");
        QTest::addColumn<QByteArray>("out"); // "*" at the end: any longer output
        QTest::addColumn<QString>("error");
        const QByteArray hello = Sse::delta(QStringLiteral("Hello"));
        const QStringList hi{QStringLiteral("hi")};
        QTest::newRow("stalls after the first piece")
            << QStringList{"--timeout", "0.5", "hi"}
            << ScriptedResponse::sse().send(hello).holdUntilReleased() << QByteArray("Hello\n")
            << "The provider sent nothing for 0.5 seconds; the answer is incomplete.";
        QTest::newRow("blocking call stalls")
            << QStringList{"--blocking", "--timeout", "0.5", "hi"}
            << ScriptedResponse::json(200, "").holdUntilReleased().send("{}") << QByteArray()
            << "Request timed out";
        QTest::newRow("cut off mid-line")
            << hi << ScriptedResponse::sse().send(hello + "data: {\"cho").closeConnection()
            << QByteArray("Hello\n")
            << "The connection was closed in the middle of the answer; the answer is incomplete.";
        QTest::newRow("endless stream")
            << hi << ScriptedResponse::sse().repeat(Sse::delta(QStringLiteral("la"))) << QByteArray("lalala*")
            << "The provider sent more than 8 MiB; the answer was stopped there.";
        QTest::newRow("html page")
            << hi << ScriptedResponse::json(200, "<html></html>").setHeader("Content-Type", "text/html")
            << QByteArray() << "The provider answered with text/html, not an event stream.";
        const ScriptedResponse unauthorized =
            ScriptedResponse::json(401, R"({"error":{"message":"Incorrect API key provided"}})");
        QTest::newRow("401") << hi << unauthorized << QByteArray()
                             << "API error 401: Incorrect API key provided";
        QTest::newRow("401 blocking") << QStringList{"--blocking", "hi"} << unauthorized << QByteArray()
                                      << "API error 401: Incorrect API key provided";
        QTest::newRow("redirect to another server")
            << hi << ScriptedResponse::redirect(307, "http://127.0.0.1:1/v1/chat/completions") << QByteArray()
            << "The provider redirected the request to http://127.0.0.1:1; Vontrel does not send the API key "
               "to "
               "another server. Set the API URL to the address that answers.";
        QTest::newRow("line break in the key")
            << QStringList{"--api-key", "sk-a\r\nX-Injected: 1", "hi"} << ScriptedResponse() << QByteArray()
            << "The API key contains a line break or another control character. Paste the key again.";
    }
    void hostileProvider()
    {
        QFETCH(QStringList, arguments);
        QFETCH(ScriptedResponse, response);
        QFETCH(QByteArray, out);
        QFETCH(QString, error);
        writeConfig();
        m_server->setFallback(response);
        const CliResult result = run(arguments);
        QCOMPARE(result.exitCode, 1);
        QCOMPARE(QString::fromUtf8(result.err), "vontrel-cli: " + error + '\n');
        QVERIFY2(out.endsWith('*') ? result.out.startsWith(out.chopped(1)) : result.out == out,
                 result.out.left(80).constData());
        QVERIFY(result.out.size() <= 8 * 1024 * 1024 + 1);
    }

    void failures_data()
    {
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<bool>("configured");
        QTest::addColumn<QByteArray>("stream"); // empty: no request may be made
        QTest::addColumn<int>("exitCode");
        QTest::addColumn<QString>("error");
        QTest::newRow("error object")
            << QStringList{"hi"} << true
            << Sse::delta("partial") + "data: {\"error\":{\"message\":\"quota\"}}\n\n"
            << 1 << "vontrel-cli: API error: quota";
        QTest::newRow("missing key") << QStringList{"hi"} << false << QByteArray() << 1
                                     << "vontrel-cli: AI not configured. Please set API key.";
        QTest::newRow("blank input") << QStringList{" ", "\n"} << true << QByteArray() << 1
                                     << "vontrel-cli: Input text is empty";
        QTest::newRow("unknown action") << QStringList{"--action", "poem", "hi"} << true << QByteArray() << 2
                                        << "vontrel-cli: unknown action 'poem'";
        QTest::newRow("missing prompt file")
            << QStringList{"--prompt-file", "/nonexistent/p.txt", "hi"} << true << QByteArray() << 2
            << "vontrel-cli: cannot read /nonexistent/p.txt";
    }
    void failures()
    {
        QFETCH(QStringList, arguments);
        QFETCH(bool, configured);
        QFETCH(QByteArray, stream);
        QFETCH(int, exitCode);
        QFETCH(QString, error);
        if (configured)
            writeConfig();
        if (!stream.isEmpty())
            m_server->enqueue(ScriptedResponse::sse().send(stream));
        const CliResult result = run(arguments);
        QCOMPARE(result.exitCode, exitCode);
        QVERIFY2(QString::fromUtf8(result.err).startsWith(error), result.err.constData());
        QCOMPARE(m_server->requestCount(), stream.isEmpty() ? 0 : 1);
    }
};

QTEST_GUILESS_MAIN(TestCliTranslate)
#include "tst_cli_translate.moc"
