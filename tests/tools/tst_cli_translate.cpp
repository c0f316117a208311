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
    QByteArray writeConfig(QJsonObject ai = {})
    {
        ai.insert(QStringLiteral("api_url"), m_server->baseUrl());
        ai.insert(QStringLiteral("api_key"),
                  ai.value(QLatin1String("api_key")).toString(QStringLiteral("k")));
        QFile file(m_configPath);
        const QByteArray bytes = QJsonDocument(QJsonObject{{QStringLiteral("ai"), ai}}).toJson();
        return file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size() ? bytes : QByteArray();
    }
    QByteArray readConfig() const
    {
        QFile file(m_configPath);
        return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
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
        if (m_process && m_process->state() != QProcess::NotRunning) {
            m_process->kill();
            m_process->waitForFinished();
        }
        m_process.reset();
        m_server.reset();
    }

    void streamsAnswerAsItArrives()
    {
        const QByteArray config =
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
        QCOMPARE(request.header("Authorization"), QByteArray("Bearer sk-config"));
        QVERIFY(request.header("User-Agent").startsWith("Vontrel.app/0.2.7 ("));
        QVERIFY(request.body.contains(R"("model":"config-model")") &&
                request.body.contains(R"("stream":true)"));
        QVERIFY(
            promptOf(request).startsWith("You are a professional translator. Your task is to translate the "
                                         "input text into German."));
        QVERIFY(promptOf(request).endsWith("\n\nInput:\nGood morning"));
        QCOMPARE(readConfig(), config);
    }

    void readsStandardInput_data()
    {
        QTest::addColumn<QStringList>("arguments");
        QTest::newRow("no arguments") << QStringList();
        QTest::newRow("dash") << QStringList{QStringLiteral("-")};
    }
    void readsStandardInput()
    {
        QFETCH(QStringList, arguments);
        writeConfig();
        m_server->enqueue(ScriptedResponse::sse().send(Sse::stream({QStringLiteral("ok")})));
        const QByteArray input = QStringLiteral("  Zeile eins\nZeile zwei – ß\n").toUtf8();
        const CliResult result = run(arguments, input);
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
        QCOMPARE(request.header("Authorization"), QByteArray("Bearer sk-option"));
        QVERIFY(request.body.contains(R"("model":"option-model")"));
        QCOMPARE(promptOf(request),
                 QStringLiteral("Render in Brazilian Portuguese, keep %1.\n\nInput:\nhello"));
        QVERIFY2(!QFile::exists(m_configPath), "the CLI must never write the settings");
    }

    void blockingAction()
    {
        writeConfig();
        m_server->enqueue(
            ScriptedResponse::json(200, R"({"choices":[{"message":{"content":"- one\n- two\n"}}]})"));
        const CliResult result = run({"--blocking", "--action", "summarize", "long text"});
        QCOMPARE(result.exitCode, 0);
        QCOMPARE(result.out, QByteArray("- one\n- two\n"));
        const RecordedRequest request = m_server->requests().first();
        QVERIFY(!request.body.contains("\"stream\""));
        QVERIFY(promptOf(request).startsWith("Summarize the following text into 3-5 bullet points."));
        QVERIFY(promptOf(request).endsWith("Input:\nlong text"));
    }

    void failures_data()
    {
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<bool>("configured");
        QTest::addColumn<ScriptedResponse>("response"); // status 0: no request may be made
        QTest::addColumn<int>("exitCode");
        QTest::addColumn<QString>("error");
        const ScriptedResponse none = ScriptedResponse().setStatus(0);
        QTest::newRow("401 streaming") << QStringList{"hi"} << true << ScriptedResponse::json(401, "{}") << 1
                                       << "vontrel-cli: Network error: ";
        QTest::newRow("500 blocking")
            << QStringList{"--blocking", "hi"} << true << ScriptedResponse::json(500, "{}") << 1
            << "vontrel-cli: Network error: ";
        QTest::newRow("error object")
            << QStringList{"hi"} << true
            << ScriptedResponse::sse().send(Sse::delta("partial") + R"(data: {"error":{"message":"quota"}})" +
                                            "\n\n")
            << 1 << "vontrel-cli: API error: quota";
        QTest::newRow("missing key") << QStringList{"hi"} << false << none << 1
                                     << "vontrel-cli: AI not configured. Please set API key.";
        QTest::newRow("blank input") << QStringList{" ", "\n"} << true << none << 1
                                     << "vontrel-cli: Input text is empty";
        QTest::newRow("unknown action") << QStringList{"--action", "poem", "hi"} << true << none << 2
                                        << "vontrel-cli: unknown action 'poem'";
        QTest::newRow("unknown option") << QStringList{"--frobnicate", "hi"} << true << none << 2
                                        << "vontrel-cli: Unknown option 'frobnicate'.";
        QTest::newRow("missing prompt file")
            << QStringList{"--prompt-file", "/nonexistent/p.txt", "hi"} << true << none << 2
            << "vontrel-cli: cannot read /nonexistent/p.txt";
    }
    void failures()
    {
        QFETCH(QStringList, arguments);
        QFETCH(bool, configured);
        QFETCH(ScriptedResponse, response);
        QFETCH(int, exitCode);
        QFETCH(QString, error);
        if (configured)
            writeConfig();
        if (response.status())
            m_server->enqueue(response);
        const CliResult result = run(arguments);
        QCOMPARE(result.exitCode, exitCode);
        QVERIFY2(QString::fromUtf8(result.err).startsWith(error), result.err.constData());
        QCOMPARE(m_server->requestCount(), response.status() ? 1 : 0);
    }

    void helpAndVersion()
    {
        CliResult result = run({QStringLiteral("--help")});
        QCOMPARE(result.exitCode, 0);
        QVERIFY(result.out.startsWith("Usage: vontrel-cli translate") &&
                result.out.contains(m_configPath.toUtf8()));
        result = run({QStringLiteral("--version")});
        QCOMPARE(result.exitCode, 0);
        QCOMPARE(result.out, QByteArray("vontrel-cli 0.2.7\n"));
    }
};

QTEST_GUILESS_MAIN(TestCliTranslate)
#include "tst_cli_translate.moc"
