#include "FakeLLMClient.h"
#include "ai/ActionService.h"
#include "ai/InputLimit.h"
#include "config/ConfigManager.h"

#include <QTest>

class TestActionService final : public QObject
{
    Q_OBJECT

private slots:
    void init() { ConfigManager::instance()->resetToDefaults(); }

    void buildPrompt_data()
    {
        QTest::addColumn<int>("type");
        QTest::addColumn<QString>("systemPrompt"); // null keeps the configuration's default
        QTest::addColumn<QString>("text");
        QTest::addColumn<QString>("instructions"); // before "\n\nInput:\n" + text; "Prefix*" for a prefix
        const QString translate =
            QStringLiteral("You are a professional translator. Your task is to translate the input text into "
                           "German.*");
        QTest::newRow("default prompt is built-in") << 1 << QString() << "Hi  \n" << translate;
        QTest::newRow("empty prompt uses built-in") << 1 << QString("") << "x" << translate;
        QTest::newRow("every placeholder replaced")
            << 1 << "To ${target_language}, ${target_language}; ${TARGET_LANGUAGE} %1 ${other}"
            << "%1 ${target_language}"
            << "To German, German; ${TARGET_LANGUAGE} %1 ${other}";
        QTest::newRow("summarize ignores prompt")
            << 2 << "Into ${target_language}."
            << "a %1"
            << "Summarize the following text into 3-5 bullet points. Be concise and focus on the key "
               "information. Format each point with a bullet (-).";
        QTest::newRow("cleanup") << 3 << QString() << " raw "
                                 << "Reformat the following text into clean, well-structured Markdown.*";
        QTest::newRow("unknown 0") << 0 << QString() << "x" << QString();
    }

    void buildPrompt()
    {
        QFETCH(int, type);
        QFETCH(QString, systemPrompt);
        QFETCH(QString, text);
        QFETCH(QString, instructions);
        if (!systemPrompt.isNull())
            ConfigManager::instance()->setSystemPrompt(systemPrompt);
        ActionService service(nullptr);
        service.setTargetLanguage("German");
        const QString prompt = service.buildPrompt(ActionService::ActionType(type), text);
        const QString suffix = instructions.isEmpty() ? QString() : "\n\nInput:\n" + text;
        const qsizetype head = qMax<qsizetype>(0, prompt.size() - suffix.size());
        QCOMPARE(prompt.mid(head), suffix);
        if (instructions.endsWith('*')) // the built-in text, every "%1" in it replaced
            QVERIFY2(prompt.startsWith(instructions.chopped(1)) && !prompt.left(head).contains("%1"),
                     qPrintable(prompt));
        else
            QCOMPARE(prompt.left(head), instructions);
    }

    // Text beyond the limit is cut where a reader would end it: after a line or a word near the limit, never
    // inside a character; the prompt carries exactly the kept part.
    void inputLimit_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<QString>("kept");
        const QString smile = "\U0001F642";
        QTest::newRow("fits exactly") << "abcdefghij"
                                      << "abcdefghij";
        QTest::newRow("no break near the end") << "abcdefghijk"
                                               << "abcdefghij";
        QTest::newRow("character of two units at the limit") << "abcdefghi" + smile << "abcdefghi";
        QTest::newRow("after the last line")
            << QString(96, 'a') + "\n" + QString(20, 'b') << QString(96, 'a') + "\n";
        QTest::newRow("after the last word") << QString(99, 'a') + " bb" << QString(99, 'a') + " ";
        QTest::newRow("line break too far back")
            << QString(10, 'a') + "\n" + QString(200, 'b') << QString(10, 'a') + "\n" + QString(89, 'b');
    }

    void inputLimit()
    {
        QFETCH(QString, text);
        QFETCH(QString, kept);
        const qsizetype limit = text.size() > 20 ? 100 : 10;
        const BoundedInput input = vontrelBoundInput(text, limit);
        QCOMPARE(input.text, kept);
        QCOMPARE(input.originalLength, text.size());
        QCOMPARE(input.isCut(), kept.size() < text.size());

        ActionService service(nullptr);
        const QString huge = QString(3 * kVontrelMaxInputChars, QLatin1Char('x'));
        QVERIFY(service.buildPrompt(ActionService::Cleanup, huge)
                    .endsWith("\n\nInput:\n" + vontrelBoundInput(huge).text));
    }

    void executeAction_data()
    {
        QTest::addColumn<bool>("withClient");
        QTest::addColumn<bool>("configured");
        QTest::addColumn<int>("type");
        QTest::addColumn<QString>("text");
        QTest::addColumn<QString>("answer");
        QTest::addColumn<QString>("clientError");
        QTest::addColumn<QString>("error");
        const auto row = [](const char *name, bool withClient, bool configured, int type, const char *text,
                            const char *answer, const char *clientError, const char *error) {
            QTest::newRow(name) << withClient << configured << type << QString(text) << QString(answer)
                                << QString(clientError) << QString(error);
        };
        row("no client", false, true, 1, "x", "y", "", "LLM client not available");
        row("not configured", true, false, 1, "x", "y", "", "LLM client not configured");
        row("blank input", true, true, 1, " \n\t ", "y", "", "Input text is empty");
        row("client error", true, true, 2, "x", "", "Request timed out", "Request timed out");
        row("empty answer", true, true, 3, "x", "", "", "Empty response from LLM");
        row("answer untrimmed", true, true, 1, "  word  ", " Wort\n", "", "");
    }

    void executeAction()
    {
        QFETCH(bool, withClient);
        QFETCH(bool, configured);
        QFETCH(int, type);
        QFETCH(QString, text);
        QFETCH(QString, answer);
        QFETCH(QString, clientError);
        QFETCH(QString, error);
        FakeLLMClient client;
        client.configured = configured;
        client.answer = answer;
        client.error = clientError;
        ActionService service(withClient ? &client : nullptr);
        service.setTargetLanguage("German");
        const auto action = ActionService::ActionType(type);
        QCOMPARE(service.executeAction(action, text), error.isEmpty() ? answer : QString());
        QCOMPARE(service.lastError(), error);
        const bool called = error.isEmpty() || !clientError.isEmpty() || answer.isEmpty();
        // The untrimmed text is what the model sees.
        QCOMPARE(client.prompts, called ? QStringList{service.buildPrompt(action, text)} : QStringList());
    }
};

QTEST_GUILESS_MAIN(TestActionService)
#include "test_actionservice.moc"
