#include "LoopbackHttpServer.h"
#include "SseBuilder.h"
#include "TestEnv.h"
#include "ai/InputLimit.h"
#include "config/ConfigManager.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QProcess>
#include <QSignalSpy>
#include <QTest>

#include <sys/stat.h>

namespace {

constexpr int kWaitMs = 30000;

struct CliResult
{
    int exitCode = -1;
    QByteArray out, err;
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
        m_process->start(TestEnv::binaryDir() + "/tools/cli/vontrel-cli",
                         QStringList{"translate"} + arguments);
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
    void writeConfig(QJsonObject ai = {})
    {
        ai.insert("api_url", m_server->baseUrl());
        ai.insert("api_key", ai.value(QLatin1String("api_key")).toString("k"));
        QVERIFY(TestEnv::writeFile(m_configPath, QJsonDocument(QJsonObject{{"ai", ai}}).toJson()));
    }

private slots:
    void initTestCase()
    {
        QCoreApplication::setApplicationName("Vontrel");
        QCoreApplication::setOrganizationName("Vontrel");
        m_configPath = ConfigManager::configFilePath();
    }
    void init()
    {
        QFile::remove(m_configPath);
        m_server = std::make_unique<LoopbackHttpServer>();
        QVERIFY(m_server->listen());
        // Any request no test scripted gets a short answer.
        m_server->setFallback(ScriptedResponse::sse().send(Sse::stream({"x"})));
    }
    void cleanup()
    {
        m_process.reset(); // kills a CLI still running
        m_server.reset();
    }

    void streamsAnswerAsItArrives()
    {
        writeConfig({{"api_key", "sk-config"}, {"model", "config-model"}, {"target_language", "German"}});
        m_server->enqueue(ScriptedResponse::sse()
                              .send(Sse::delta("Guten"))
                              .holdUntilReleased()
                              .send(Sse::stream({" Morgen, Grüße 🙂"})));
        start({"Good", "morning"});
        // The first piece reaches standard output while the service still holds back the rest.
        QByteArray out;
        QTRY_VERIFY_WITH_TIMEOUT((out += m_process->readAllStandardOutput()) == "Guten", kWaitMs);
        m_server->releaseHeld();
        const CliResult result = finish();
        QCOMPARE(QString::fromUtf8(out + result.out), "Guten Morgen, Grüße 🙂\n");
        QCOMPARE(result.err, QByteArray());
        QCOMPARE(result.exitCode, 0);

        const RecordedRequest request = m_server->requests().first();
        QVERIFY(request.header("Authorization") == "Bearer sk-config" &&
                request.body.contains("config-model"));
        const QString prompt = promptOf(request);
        QVERIFY(prompt.contains("into German.") && prompt.endsWith("\n\nInput:\nGood morning"));
    }

    void optionsOverrideWithoutSaving()
    {
        const QString promptFile = QDir::temp().filePath("prompt.txt");
        QVERIFY(TestEnv::writeFile(promptFile, "Render in ${target_language}, keep %1.\n"));
        // "-" reads the text from standard input, kept as it came.
        const QByteArray input = QStringLiteral("  Zeile eins\nZeile zwei – ß\n").toUtf8();
        start({"--api-url", m_server->baseUrl("/custom/"), "--api-key", "sk-option", "--model",
               "option-model", "--target", "Brazilian Portuguese", "--prompt-file", promptFile, "-"},
              input);
        const CliResult result = finish();
        QCOMPARE(result.err, QByteArray());
        QCOMPARE(result.exitCode, 0);
        const RecordedRequest request = m_server->requests().first();
        QCOMPARE(request.target, QByteArray("/custom/chat/completions"));
        QVERIFY(request.header("Authorization") == "Bearer sk-option" &&
                request.body.contains("option-model"));
        QCOMPARE(promptOf(request),
                 "Render in Brazilian Portuguese, keep %1.\n\nInput:\n" + QString::fromUtf8(input));
        QVERIFY2(!QFile::exists(m_configPath), "the CLI must never write the settings");
    }

    // A text beyond the input limit is cut, and the terminal says by how much; standard input is read to its
    // end without being kept whole.
    void longInputIsCut()
    {
        writeConfig();
        QByteArray input;
        while (input.size() < 8 * 1024 * 1024)
            input += "Zeile mit Grüßen\n"; // 17 characters, 19 bytes
        start({}, input);
        const CliResult result = finish();
        QCOMPARE(result.exitCode, 0);
        const qsizetype length = QString::fromUtf8(input).size();
        const QString prompt = promptOf(m_server->requests().value(0));
        const QString sent = prompt.mid(prompt.indexOf(QLatin1String("\n\nInput:\n")) + 9);
        QVERIFY(sent.size() <= kVontrelMaxInputChars && sent.size() > kVontrelMaxInputChars - 17);
        QVERIFY(sent.endsWith("Grüßen\n") && QString::fromUtf8(input).startsWith(sent));
        QCOMPARE(
            QString::fromUtf8(result.err),
            QStringLiteral("vontrel-cli: the text has %1 characters; only the first %2 are sent (the limit "
                           "is %3 per request)\n")
                .arg(length)
                .arg(sent.size())
                .arg(kVontrelMaxInputChars));
    }

    // Anything but a file at the settings path (a named pipe would block a plain read for ever) is refused
    // at once with the reason; the options still make a working run.
    void settingsPathIsNotAFile()
    {
        QVERIFY(::mkfifo(QFile::encodeName(m_configPath).constData(), 0600) == 0);
        start({"--api-url", m_server->baseUrl(), "--api-key", "k", "hi"});
        const CliResult result = finish();
        QFile::remove(m_configPath);
        QCOMPARE(result.exitCode, 0);
        QCOMPARE(
            QString::fromUtf8(result.err),
            QStringLiteral("vontrel-cli: cannot read the settings in %1 (it is a named pipe, not a regular "
                           "file); using the defaults and the options given\n")
                .arg(m_configPath));
    }

    // What the terminal shows when a translation fails: the text that came, then the reason, and the status.
    // The reasons themselves are the client's; here --timeout must reach both kinds of request, and input or
    // options that cannot work must fail before anything is sent.
    void failures_data()
    {
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<bool>("configured");
        QTest::addColumn<QList<ScriptedResponse>>("responses"); // none: no request may be made
        QTest::addColumn<QByteArray>("out");
        QTest::addColumn<int>("exitCode");
        QTest::addColumn<QString>("error");
        const QList<ScriptedResponse> none;
        QTest::newRow("stalls after the first piece")
            << QStringList{"--timeout", "0.5", "hi"} << true
            << QList{ScriptedResponse::sse().send(Sse::delta("Hello")).holdUntilReleased()}
            << QByteArray("Hello\n") << 1
            << "The provider sent nothing for 0.5 seconds; the answer is incomplete.";
        QTest::newRow("blocking call stalls")
            << QStringList{"--blocking", "--timeout", "0.5", "hi"} << true
            << QList{ScriptedResponse::json(200, "").holdUntilReleased().send("{}")} << QByteArray() << 1
            << "Request timed out";
        QTest::newRow("missing key") << QStringList{"hi"} << false << none << QByteArray() << 1
                                     << "AI not configured. Please set API key.";
        QTest::newRow("blank input") << QStringList{" ", "\n"} << true << none << QByteArray() << 1
                                     << "Input text is empty";
        QTest::newRow("missing prompt file")
            << QStringList{"--prompt-file", "/nonexistent/p.txt", "hi"} << true << none << QByteArray() << 2
            << "cannot read /nonexistent/p.txt";
    }
    void failures()
    {
        QFETCH(QStringList, arguments);
        QFETCH(bool, configured);
        QFETCH(QList<ScriptedResponse>, responses);
        QFETCH(QByteArray, out);
        QFETCH(int, exitCode);
        QFETCH(QString, error);
        if (configured)
            writeConfig();
        for (const ScriptedResponse &response : responses)
            m_server->enqueue(response);
        start(arguments);
        const CliResult result = finish();
        QCOMPARE(result.exitCode, exitCode);
        QVERIFY2(QString::fromUtf8(result.err).startsWith("vontrel-cli: " + error), result.err.constData());
        QCOMPARE(result.out, out);
        QCOMPARE(m_server->requestCount(), responses.size());
    }
};

QTEST_GUILESS_MAIN(TestCliTranslate)
#include "test_cli_translate.moc"
