#include "ai/ActionService.h"

#include "ai/ILLMClient.h"
#include "ai/InputLimit.h"
#include "config/ConfigManager.h"
#include "log/LogCategories.h"

#include <QDebug>
#include <QMetaEnum>

namespace {

// Prompt templates are sent to the model as they are and never translated.
const char kSummarizeTemplate[] =
    "Summarize the following text into 3-5 bullet points. Be concise and focus on the key information. "
    "Format each point with a bullet (-).\n\nInput:\n%1";

const char kCleanupTemplate[] =
    "Reformat the following text into clean, well-structured Markdown. Fix any typos, improve structure and "
    "readability, but preserve the original meaning. Do not add extra content or explanations.\n\nInput:\n%1";

// Fills "%1" in a template in one pass, so placeholders inside the inserted text are left alone (QString::arg
// would also renumber the template's other markers).
QString fillTemplate(const char *templ, const QString &value)
{
    return QString::fromUtf8(templ).replace(QLatin1String("%1"), value);
}

} // namespace

ActionService::ActionService(ILLMClient *client, QObject *parent)
    : QObject(parent)
    , m_client(client)
{}

void ActionService::setTargetLanguage(const QString &language)
{
    m_targetLanguage = language;
}

void ActionService::setSystemPromptOverride(const QString &prompt)
{
    m_systemPromptOverride = prompt;
    m_hasSystemPromptOverride = true;
}

void ActionService::clearSystemPromptOverride()
{
    m_systemPromptOverride.clear();
    m_hasSystemPromptOverride = false;
}

QString ActionService::actionName(ActionType type)
{
    const char *key = QMetaEnum::fromType<ActionType>().valueToKey(type);
    return key ? QString::fromLatin1(key) : QString::number(int(type));
}

QString ActionService::buildPrompt(ActionType type, const QString &input) const
{
    // Whatever the caller passes, no more than the window shows and the model can take is sent.
    const QString text = vontrelBoundInput(input).text;
    switch (type) {
    case Translate:
        return buildTranslatePrompt(text);
    case Summarize:
        return buildSummarizePrompt(text);
    case Cleanup:
        return buildCleanupPrompt(text);
    }
    return QString();
}

QString ActionService::buildTranslatePrompt(const QString &text) const
{
    QString prompt =
        m_hasSystemPromptOverride ? m_systemPromptOverride : ConfigManager::instance()->systemPrompt();
    // The built-in template is the default system prompt itself, so both give the same text until the user
    // edits the prompt.
    if (prompt.isEmpty())
        prompt = ConfigManager::defaultSystemPrompt();
    prompt.replace(QLatin1String("${target_language}"), m_targetLanguage);
    prompt += QLatin1String("\n\nInput:\n");
    prompt += text;
    qCDebug(lcAi).noquote() << "ActionService: Target Language:" << m_targetLanguage;
    qCDebug(lcAi).noquote() << "ActionService: Final Prompt Length:" << prompt.size();
    return prompt;
}

QString ActionService::buildSummarizePrompt(const QString &text) const
{
    return fillTemplate(kSummarizeTemplate, text);
}

QString ActionService::buildCleanupPrompt(const QString &text) const
{
    return fillTemplate(kCleanupTemplate, text);
}

QString ActionService::executeAction(ActionType type, const QString &text)
{
    m_lastError.clear();
    if (!m_client) {
        m_lastError = tr("LLM client not available");
        return QString();
    }
    if (!m_client->isConfigured()) {
        m_lastError = tr("LLM client not configured");
        return QString();
    }
    if (text.trimmed().isEmpty()) {
        m_lastError = tr("Input text is empty");
        return QString();
    }
    if (type != Translate && type != Summarize && type != Cleanup) {
        m_lastError = tr("Unknown action type");
        return QString();
    }
    const QString prompt = buildPrompt(type, text);
    qCDebug(lcAi).noquote() << "ActionService: Executing action" << actionName(type)
                            << "with prompt length:" << prompt.size();
    const QString answer = m_client->complete(prompt);
    if (answer.isEmpty()) {
        const QString clientError = m_client->lastError();
        m_lastError = clientError.isEmpty() ? tr("Empty response from LLM") : clientError;
    }
    return answer;
}
