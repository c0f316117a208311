#include "FakeLLMClient.h"
#include "LoopbackHttpServer.h"
#include "ai/ActionService.h"
#include "ai/OpenAIClient.h"
#include "config/ConfigManager.h"

#include <QTest>

namespace {

// The built-in translation instructions with "%1" standing for the target language.
const QString kTranslateTemplate = QStringLiteral(
    "You are a professional translator. Your task is to translate the input text into "
    "%1.\n\nInstructions:\n1. "
    "Auto-detect Source Language: Identify the language of the input text automatically.\n2. Handle Mixed "
    "Languages: If the input contains multiple languages, translate all non-%1 parts into %1. Keep %1 parts "
    "as "
    "is.\n3. Maintain Structure: Preserve paragraphs, lists, and formatting.\n4. Reformat for Readability:\n "
    "  - "
    "Convert chaotic or poorly formatted text into clean paragraphs.\n   - Use appropriate line breaks and "
    "spacing.\n   - Ensure the output is easy to read and well-organized.\n5. Output Only Translation: "
    "Provide "
    "only the translated and reformatted text. Do not add explanations, notes, or markdown code blocks "
    "unless "
    "they exist in the original.");

QString filled(QString templ, const QString &value)
{
    return templ.replace(QLatin1String("%1"), value);
}

} // namespace

class TestActionService final : public QObject
{
    Q_OBJECT

private slots:
    void init() { ConfigManager::instance()->resetToDefaults(); }

    void templatesHaveTheirExactLength();
    void buildPrompt_data();
    void buildPrompt();
    void executeAction_data();
    void executeAction();
    void executeActionThroughRealClient();
};

void TestActionService::templatesHaveTheirExactLength()
{
    ActionService service(nullptr);
    service.setTargetLanguage(QStringLiteral("%1"));
    ConfigManager::instance()->setSystemPrompt(QString());
    const QString suffix = QStringLiteral("\n\nInput:\n");
    QCOMPARE(service.buildPrompt(ActionService::Translate, QString()).size(), 751 + suffix.size());
    QCOMPARE(service.buildPrompt(ActionService::Summarize, QStringLiteral("%1")).size(), 145);
    QCOMPARE(service.buildPrompt(ActionService::Cleanup, QStringLiteral("%1")).size(), 203);
}

void TestActionService::buildPrompt_data()
{
    QTest::addColumn<int>("type");
    QTest::addColumn<QString>("systemPrompt"); // "<default>" keeps the configuration's default
    QTest::addColumn<QString>("language");
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("expected");

    const QString input = QStringLiteral("Hallo  Welt\n");
    QTest::newRow("default prompt equals built-in")
        << 1 << "<default>"
        << "Japanese" << input
        << filled(kTranslateTemplate, QStringLiteral("Japanese")) + "\n\nInput:\n" + input;
    QTest::newRow("empty prompt uses built-in")
        << 1 << QString() << "Brazilian Portuguese (pt-BR)" << input
        << filled(kTranslateTemplate, QStringLiteral("Brazilian Portuguese (pt-BR)")) + "\n\nInput:\n" +
               input;
    QTest::newRow("every placeholder replaced, others kept")
        << 1 << "To ${target_language}; again ${target_language}; keep ${TARGET_LANGUAGE} %1 ${other}"
        << "German"
        << "x"
        << "To German; again German; keep ${TARGET_LANGUAGE} %1 ${other}\n\nInput:\nx";
    QTest::newRow("prompt without placeholder unchanged") << 1 << "Translate politely."
                                                          << "German"
                                                          << "x"
                                                          << "Translate politely.\n\nInput:\nx";
    QTest::newRow("placeholders in the input survive")
        << 1 << "Into ${target_language}."
        << "French"
        << "%1 and ${target_language} %2"
        << "Into French.\n\nInput:\n%1 and ${target_language} %2";
    QTest::newRow("summarize ignores language and prompt")
        << 2 << "Into ${target_language}."
        << "French"
        << "a %1 b %2 ${target_language}"
        << "Summarize the following text into 3-5 bullet points. Be concise and focus on the key "
           "information. "
           "Format each point with a bullet (-).\n\nInput:\na %1 b %2 ${target_language}";
    QTest::newRow("cleanup")
        << 3 << "<default>"
        << "French"
        << " raw "
        << "Reformat the following text into clean, well-structured Markdown. Fix any "
           "typos, improve structure and readability, but preserve the original meaning. "
           "Do not add extra content or explanations.\n\nInput:\n raw ";
    QTest::newRow("unknown 0") << 0 << "<default>"
                               << "French"
                               << "x" << QString();
    QTest::newRow("unknown 4") << 4 << "<default>"
                               << "French"
                               << "x" << QString();
}

void TestActionService::buildPrompt()
{
    QFETCH(int, type);
    QFETCH(QString, systemPrompt);
    QFETCH(QString, language);
    QFETCH(QString, text);
    QFETCH(QString, expected);
    if (systemPrompt != QLatin1String("<default>"))
        ConfigManager::instance()->setSystemPrompt(systemPrompt);
    ActionService service(nullptr);
    service.setTargetLanguage(language);
    QCOMPARE(service.buildPrompt(ActionService::ActionType(type), text), expected);
}

void TestActionService::executeAction_data()
{
    QTest::addColumn<bool>("withClient");
    QTest::addColumn<bool>("configured");
    QTest::addColumn<int>("type");
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("answer");
    QTest::addColumn<QString>("clientError");
    QTest::addColumn<QString>("result");
    QTest::addColumn<QString>("error");
    QTest::addColumn<bool>("called");

    QTest::newRow("no client") << false << true << 1 << "x"
                               << "y" << QString() << QString() << "LLM client not available" << false;
    QTest::newRow("not configured") << true << false << 1 << "x"
                                    << "y" << QString() << QString() << "LLM client not configured" << false;
    QTest::newRow("blank input") << true << true << 1 << " \n\t \n"
                                 << "y" << QString() << QString() << "Input text is empty" << false;
    QTest::newRow("unknown action") << true << true << 9 << "x"
                                    << "y" << QString() << QString() << "Unknown action type" << false;
    QTest::newRow("client error passes through")
        << true << true << 2 << "x" << QString() << "Request timed out" << QString() << "Request timed out"
        << true;
    QTest::newRow("empty answer without reason") << true << true << 3 << "x" << QString() << QString()
                                                 << QString() << "Empty response from LLM" << true;
    QTest::newRow("answer returned untrimmed") << true << true << 1 << "  word  "
                                               << " Wort\n"
                                               << QString() << " Wort\n"
                                               << QString() << true;
}

void TestActionService::executeAction()
{
    QFETCH(bool, withClient);
    QFETCH(bool, configured);
    QFETCH(int, type);
    QFETCH(QString, text);
    QFETCH(QString, answer);
    QFETCH(QString, clientError);
    QFETCH(QString, result);
    QFETCH(QString, error);
    QFETCH(bool, called);

    FakeLLMClient client;
    client.setConfigured(configured);
    client.setAnswer(answer, clientError);
    ActionService service(withClient ? &client : nullptr);
    service.setTargetLanguage(QStringLiteral("German"));
    QCOMPARE(service.executeAction(ActionService::ActionType(type), text), result);
    QCOMPARE(service.lastError(), error);
    QCOMPARE(client.prompts().size(), called ? 1 : 0);
    if (called) {
        // The untrimmed text is what the model sees.
        QCOMPARE(client.prompts().first(), service.buildPrompt(ActionService::ActionType(type), text));
    }
}

void TestActionService::executeActionThroughRealClient()
{
    LoopbackHttpServer server;
    QVERIFY(server.listen());
    server.enqueue(ScriptedResponse::json(200, R"({"choices":[{"message":{"content":"Guten Tag"}}]})"));
    server.enqueue(ScriptedResponse::json(200, R"({"error":{"message":"quota exceeded"}})"));
    OpenAIClient client(server.baseUrl(), QStringLiteral("k"), QStringLiteral("m"));
    ActionService service(&client);
    service.setTargetLanguage(QStringLiteral("German"));
    QCOMPARE(service.executeAction(ActionService::Translate, QStringLiteral("Good day")),
             QStringLiteral("Guten Tag"));
    QCOMPARE(service.lastError(), QString());
    QVERIFY(server.requests().first().body.contains("Good day"));
    QCOMPARE(service.executeAction(ActionService::Summarize, QStringLiteral("text")), QString());
    QCOMPARE(service.lastError(), QStringLiteral("API error: quota exceeded"));
}

QTEST_GUILESS_MAIN(TestActionService)
#include "tst_actionservice.moc"
