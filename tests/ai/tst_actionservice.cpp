#include "FakeLLMClient.h"
#include "LoopbackHttpServer.h"
#include "ai/ActionService.h"
#include "ai/OpenAIClient.h"
#include "config/ConfigManager.h"

#include <QTest>

// The built-in instructions of each action; "%1" stands for the target language.
const QString kTranslate = QStringLiteral(
    "You are a professional translator. Your task is to translate the input text into %1.\n\nInstructions:\n"
    "1. Auto-detect Source Language: Identify the language of the input text automatically.\n"
    "2. Handle Mixed Languages: If the input contains multiple languages, translate all non-%1 parts into "
    "%1. "
    "Keep %1 parts as is.\n3. Maintain Structure: Preserve paragraphs, lists, and formatting.\n"
    "4. Reformat for Readability:\n   - Convert chaotic or poorly formatted text into clean paragraphs.\n"
    "   - Use appropriate line breaks and spacing.\n   - Ensure the output is easy to read and "
    "well-organized.\n"
    "5. Output Only Translation: Provide only the translated and reformatted text. Do not add explanations, "
    "notes, or markdown code blocks unless they exist in the original.");
const QString kSummarize =
    QStringLiteral("Summarize the following text into 3-5 bullet points. Be concise and "
                   "focus on the key information. Format each point with a bullet (-).");
const QString kCleanup = QStringLiteral(
    "Reformat the following text into clean, well-structured Markdown. Fix any typos, improve structure and "
    "readability, but preserve the original meaning. Do not add extra content or explanations.");

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
        QTest::addColumn<QString>("expected");
        const QString german = QString(kTranslate).replace("%1", "German");
        QTest::newRow("default prompt is built-in") << 1 << QString() << "Hi  \n"
                                                    << german + "\n\nInput:\nHi  \n";
        QTest::newRow("empty prompt uses built-in") << 1 << ""
                                                    << "x" << german + "\n\nInput:\nx";
        QTest::newRow("every placeholder replaced")
            << 1 << "To ${target_language}, ${target_language}; ${TARGET_LANGUAGE} %1 ${other}"
            << "%1 ${target_language}"
            << "To German, German; ${TARGET_LANGUAGE} %1 ${other}\n\nInput:\n%1 "
               "${target_language}";
        QTest::newRow("summarize ignores prompt") << 2 << "Into ${target_language}."
                                                  << "a %1" << kSummarize + "\n\nInput:\na %1";
        QTest::newRow("cleanup") << 3 << QString() << " raw " << kCleanup + "\n\nInput:\n raw ";
        QTest::newRow("unknown 0") << 0 << QString() << "x" << QString();
        QTest::newRow("unknown 4") << 4 << QString() << "x" << QString();
    }

    void buildPrompt()
    {
        QFETCH(int, type);
        QFETCH(QString, systemPrompt);
        QFETCH(QString, text);
        QFETCH(QString, expected);
        if (!systemPrompt.isNull())
            ConfigManager::instance()->setSystemPrompt(systemPrompt);
        ActionService service(nullptr);
        service.setTargetLanguage(QStringLiteral("German"));
        QCOMPARE(service.buildPrompt(ActionService::ActionType(type), text), expected);
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
        QTest::newRow("no client") << false << true << 1 << "x"
                                   << "y" << QString() << "LLM client not available";
        QTest::newRow("not configured") << true << false << 1 << "x"
                                        << "y" << QString() << "LLM client not configured";
        QTest::newRow("blank input") << true << true << 1 << " \n\t "
                                     << "y" << QString() << "Input text is empty";
        QTest::newRow("unknown action") << true << true << 9 << "x"
                                        << "y" << QString() << "Unknown action type";
        QTest::newRow("client error") << true << true << 2 << "x" << QString() << "Request timed out"
                                      << "Request timed out";
        QTest::newRow("empty answer")
            << true << true << 3 << "x" << QString() << QString() << "Empty response from LLM";
        QTest::newRow("answer untrimmed") << true << true << 1 << "  word  "
                                          << " Wort\n"
                                          << QString() << QString();
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
        service.setTargetLanguage(QStringLiteral("German"));
        const auto action = ActionService::ActionType(type);
        QCOMPARE(service.executeAction(action, text), error.isEmpty() ? answer : QString());
        QCOMPARE(service.lastError(), error);
        const bool called = error.isEmpty() || !clientError.isEmpty() || answer.isEmpty();
        // The untrimmed text is what the model sees.
        QCOMPARE(client.prompts, called ? QStringList{service.buildPrompt(action, text)} : QStringList());
    }

    void executeActionThroughRealClient()
    {
        LoopbackHttpServer server;
        QVERIFY(server.listen());
        server.enqueue(ScriptedResponse::json(200, R"({"choices":[{"message":{"content":"Guten Tag"}}]})"));
        server.enqueue(ScriptedResponse::json(200, R"({"error":{"message":"quota exceeded"}})"));
        OpenAIClient client(server.baseUrl(), QStringLiteral("k"), QStringLiteral("m"));
        ActionService service(&client);
        QCOMPARE(service.executeAction(ActionService::Translate, QStringLiteral("Good day")), "Guten Tag");
        QCOMPARE(service.lastError(), QString());
        QVERIFY(server.requests().first().body.contains("Good day"));
        QCOMPARE(service.executeAction(ActionService::Summarize, QStringLiteral("text")), QString());
        QCOMPARE(service.lastError(), QStringLiteral("API error: quota exceeded"));
    }
};

QTEST_GUILESS_MAIN(TestActionService)
#include "tst_actionservice.moc"
