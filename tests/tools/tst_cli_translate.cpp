#include "LoopbackHttpServer.h"
#include "TestEnv.h"
#include "config/ConfigManager.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QSignalSpy>
#include <QTest>

namespace {

constexpr int kWaitMs = 30000;

QByteArray delta(const QString &content)
{
    const QJsonObject object{{QStringLiteral("choices"),
                              QJsonArray{QJsonObject{{QStringLiteral("delta"),
                                                      QJsonObject{{QStringLiteral("content"), content}}}}}}};
    return "data: " + QJsonDocument(object).toJson(QJsonDocument::Compact) + "\n\n";
}

struct CliResult
{
    int exitCode = -1;
    QByteArray out;
    QByteArray err;
};

} // namespace

class TestCliTranslate final : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void cleanup();

    void streamsAnswerAsItArrives();
    void readsStandardInput_data();
    void readsStandardInput();
    void optionsOverrideWithoutSaving();
    void blockingAction();
    void failures_data();
    void failures();
    void helpAndVersion();

private:
    // Runs vontrel-cli while this thread's event loop keeps serving the loopback server.
    CliResult run(const QStringList &arguments, const QByteArray &input = QByteArray(),
                  QProcess **started = nullptr);
    void writeConfig(const QJsonObject &ai);
    QJsonObject requestBody(int index) const;

    std::unique_ptr<LoopbackHttpServer> m_server;
    QString m_configPath;
    std::unique_ptr<QProcess> m_process;
};

void TestCliTranslate::initTestCase()
{
    QCoreApplication::setApplicationName(QStringLiteral("Vontrel"));
    QCoreApplication::setOrganizationName(QStringLiteral("Vontrel"));
    m_configPath = ConfigManager::configFilePath();
    QVERIFY(QFile::exists(TestEnv::binaryDir() + QStringLiteral("/tools/cli/vontrel-cli")));
}

void TestCliTranslate::init()
{
    QFile::remove(m_configPath);
    m_server = std::make_unique<LoopbackHttpServer>();
    QVERIFY(m_server->listen());
}

void TestCliTranslate::cleanup()
{
    if (m_process && m_process->state() != QProcess::NotRunning) {
        m_process->kill();
        m_process->waitForFinished();
    }
    m_process.reset();
    m_server.reset();
}

CliResult TestCliTranslate::run(const QStringList &arguments, const QByteArray &input, QProcess **started)
{
    m_process = std::make_unique<QProcess>();
    QSignalSpy finished(m_process.get(), &QProcess::finished);
    m_process->start(TestEnv::binaryDir() + QStringLiteral("/tools/cli/vontrel-cli"),
                     QStringList{QStringLiteral("translate")} + arguments);
    if (!m_process->waitForStarted())
        return {};
    m_process->write(input);
    m_process->closeWriteChannel();
    if (started)
        *started = m_process.get();
    if (!finished.wait(kWaitMs))
        return {};
    return CliResult{m_process->exitCode(), m_process->readAllStandardOutput(),
                     m_process->readAllStandardError()};
}

void TestCliTranslate::writeConfig(const QJsonObject &ai)
{
    QFile file(m_configPath);
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write(QJsonDocument(QJsonObject{{QStringLiteral("ai"), ai}}).toJson());
}

QJsonObject TestCliTranslate::requestBody(int index) const
{
    return QJsonDocument::fromJson(m_server->requests().at(index).body).object();
}

static QString promptOf(const QJsonObject &body)
{
    return body.value(QLatin1String("messages"))
        .toArray()
        .at(0)
        .toObject()
        .value(QLatin1String("content"))
        .toString();
}

void TestCliTranslate::streamsAnswerAsItArrives()
{
    writeConfig(QJsonObject{{QStringLiteral("api_url"), m_server->baseUrl()},
                            {QStringLiteral("api_key"), QStringLiteral("sk-config")},
                            {QStringLiteral("model"), QStringLiteral("config-model")},
                            {QStringLiteral("target_language"), QStringLiteral("German")},
                            {QStringLiteral("system_prompt"), QString()}});
    QFile config(m_configPath);
    QVERIFY(config.open(QIODevice::ReadOnly));
    const QByteArray configBefore = config.readAll();
    config.close();

    m_server->enqueue(ScriptedResponse::sse()
                          .send(delta(QStringLiteral("Guten")))
                          .holdUntilReleased()
                          .send(delta(QStringLiteral(" Morgen, Grüße 🙂")) + "data: [DONE]\n\n"));
    // The first piece must reach standard output while the service still holds back the rest.
    m_process = std::make_unique<QProcess>();
    QSignalSpy finished(m_process.get(), &QProcess::finished);
    m_process->start(TestEnv::binaryDir() + QStringLiteral("/tools/cli/vontrel-cli"),
                     {QStringLiteral("translate"), QStringLiteral("Good"), QStringLiteral("morning")});
    QByteArray out;
    QTRY_VERIFY_WITH_TIMEOUT((out += m_process->readAllStandardOutput()) == "Guten", kWaitMs);
    m_server->releaseHeld();
    QVERIFY(finished.wait(kWaitMs));
    out += m_process->readAllStandardOutput();
    QCOMPARE(QString::fromUtf8(out), QStringLiteral("Guten Morgen, Grüße 🙂\n"));
    QCOMPARE(m_process->readAllStandardError(), QByteArray());
    QCOMPARE(m_process->exitCode(), 0);

    const RecordedRequest request = m_server->requests().first();
    QCOMPARE(request.header("Authorization"), QByteArray("Bearer sk-config"));
    QCOMPARE(request.header("User-Agent").left(19), QByteArray("Vontrel.app/0.2.7 ("));
    const QJsonObject body = requestBody(0);
    QCOMPARE(body.value(QLatin1String("model")).toString(), QStringLiteral("config-model"));
    QCOMPARE(body.value(QLatin1String("stream")).toBool(), true);
    const QString prompt = promptOf(body);
    QVERIFY(
        prompt.startsWith(QStringLiteral("You are a professional translator. Your task is to translate the "
                                         "input text into German.")));
    QVERIFY(prompt.endsWith(QStringLiteral("\n\nInput:\nGood morning")));

    QVERIFY(config.open(QIODevice::ReadOnly));
    QCOMPARE(config.readAll(), configBefore);
}

void TestCliTranslate::readsStandardInput_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::newRow("no arguments") << QStringList();
    QTest::newRow("dash") << QStringList{QStringLiteral("-")};
}

void TestCliTranslate::readsStandardInput()
{
    QFETCH(QStringList, arguments);
    writeConfig(QJsonObject{{QStringLiteral("api_url"), m_server->baseUrl()},
                            {QStringLiteral("api_key"), QStringLiteral("k")},
                            {QStringLiteral("target_language"), QStringLiteral("French")}});
    m_server->enqueue(ScriptedResponse::sse().send(delta(QStringLiteral("ok")) + "data: [DONE]\n\n"));
    const QByteArray input = QStringLiteral("  Zeile eins\nZeile zwei – ß\n").toUtf8();
    const CliResult result = run(arguments, input);
    QCOMPARE(result.exitCode, 0);
    QCOMPARE(result.out, QByteArray("ok\n"));
    QVERIFY(promptOf(requestBody(0)).endsWith(QStringLiteral("\n\nInput:\n") + QString::fromUtf8(input)));
}

void TestCliTranslate::optionsOverrideWithoutSaving()
{
    const QString promptFile = QDir::temp().filePath(QStringLiteral("prompt.txt"));
    {
        QFile file(promptFile);
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write("Render in ${target_language}, keep %1.\n");
    }
    m_server->enqueue(ScriptedResponse::sse().send(delta(QStringLiteral("x")) + "data: [DONE]\n\n"));
    const CliResult result = run({QStringLiteral("--api-url"), m_server->baseUrl(QStringLiteral("/custom/")),
                                  QStringLiteral("--api-key"), QStringLiteral("sk-option"),
                                  QStringLiteral("--model"), QStringLiteral("option-model"),
                                  QStringLiteral("--target"), QStringLiteral("Brazilian Portuguese"),
                                  QStringLiteral("--prompt-file"), promptFile, QStringLiteral("hello")});
    QCOMPARE(result.err, QByteArray());
    QCOMPARE(result.exitCode, 0);
    const RecordedRequest request = m_server->requests().first();
    QCOMPARE(request.target, QByteArray("/custom/chat/completions"));
    QCOMPARE(request.header("Authorization"), QByteArray("Bearer sk-option"));
    QCOMPARE(requestBody(0).value(QLatin1String("model")).toString(), QStringLiteral("option-model"));
    QCOMPARE(promptOf(requestBody(0)),
             QStringLiteral("Render in Brazilian Portuguese, keep %1.\n\nInput:\nhello"));
    QVERIFY2(!QFile::exists(m_configPath), "the CLI must never write the settings");
}

void TestCliTranslate::blockingAction()
{
    writeConfig(QJsonObject{{QStringLiteral("api_url"), m_server->baseUrl()},
                            {QStringLiteral("api_key"), QStringLiteral("k")}});
    m_server->enqueue(
        ScriptedResponse::json(200, R"({"choices":[{"message":{"content":"- point one\n- point two\n"}}]})"));
    const CliResult result = run({QStringLiteral("--blocking"), QStringLiteral("--action"),
                                  QStringLiteral("summarize"), QStringLiteral("long text")});
    QCOMPARE(result.exitCode, 0);
    QCOMPARE(result.out, QByteArray("- point one\n- point two\n"));
    const QJsonObject body = requestBody(0);
    QVERIFY(!body.contains(QLatin1String("stream")));
    QVERIFY(
        promptOf(body).startsWith(QStringLiteral("Summarize the following text into 3-5 bullet points.")));
    QVERIFY(promptOf(body).endsWith(QStringLiteral("Input:\nlong text")));
}

void TestCliTranslate::failures_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<bool>("configured");
    QTest::addColumn<int>("status");
    QTest::addColumn<QByteArray>("body");
    QTest::addColumn<int>("exitCode");
    QTest::addColumn<QString>("error");

    const QByteArray sseError =
        delta(QStringLiteral("partial")) + R"(data: {"error":{"message":"quota exceeded"}})" + "\n\n";
    QTest::newRow("401 streaming") << QStringList{"hi"} << true << 401
                                   << QByteArray(R"({"error":{"message":"bad"}})") << 1
                                   << "vontrel-cli: Network error: ";
    QTest::newRow("500 blocking") << QStringList{"--blocking", "hi"} << true << 500 << QByteArray("{}") << 1
                                  << "vontrel-cli: Network error: ";
    QTest::newRow("error object") << QStringList{"hi"} << true << 200 << sseError << 1
                                  << "vontrel-cli: API error: quota exceeded";
    QTest::newRow("missing key") << QStringList{"hi"} << false << 0 << QByteArray() << 1
                                 << "vontrel-cli: AI not configured. Please set API key.";
    QTest::newRow("blank input") << QStringList{" ", "\n"} << true << 0 << QByteArray() << 1
                                 << "vontrel-cli: Input text is empty";
    QTest::newRow("unknown action") << QStringList{"--action", "poem", "hi"} << true << 0 << QByteArray() << 2
                                    << "vontrel-cli: unknown action 'poem'";
    QTest::newRow("unknown option") << QStringList{"--frobnicate", "hi"} << true << 0 << QByteArray() << 2
                                    << "vontrel-cli: Unknown option 'frobnicate'.";
    QTest::newRow("missing prompt file")
        << QStringList{"--prompt-file", "/nonexistent/p.txt", "hi"} << true << 0 << QByteArray() << 2
        << "vontrel-cli: cannot read /nonexistent/p.txt";
}

void TestCliTranslate::failures()
{
    QFETCH(QStringList, arguments);
    QFETCH(bool, configured);
    QFETCH(int, status);
    QFETCH(QByteArray, body);
    QFETCH(int, exitCode);
    QFETCH(QString, error);

    if (configured)
        writeConfig(QJsonObject{{QStringLiteral("api_url"), m_server->baseUrl()},
                                {QStringLiteral("api_key"), QStringLiteral("k")}});
    if (status == 200)
        m_server->enqueue(ScriptedResponse::sse().send(body));
    else if (status)
        m_server->enqueue(ScriptedResponse::json(status, body));
    const CliResult result = run(arguments);
    QCOMPARE(result.exitCode, exitCode);
    QVERIFY2(QString::fromUtf8(result.err).startsWith(error), result.err.constData());
    if (!status)
        QCOMPARE(m_server->requestCount(), 0);
}

void TestCliTranslate::helpAndVersion()
{
    CliResult result = run({QStringLiteral("--help")});
    QCOMPARE(result.exitCode, 0);
    QVERIFY(result.out.startsWith("Usage: vontrel-cli translate"));
    QVERIFY(result.out.contains(m_configPath.toUtf8()));
    result = run({QStringLiteral("--version")});
    QCOMPARE(result.exitCode, 0);
    QCOMPARE(result.out, QByteArray("vontrel-cli 0.2.7\n"));
}

QTEST_GUILESS_MAIN(TestCliTranslate)
#include "tst_cli_translate.moc"
