#pragma once

#include <QObject>
#include <QString>

class ILLMClient;

// Turns an action on a piece of text into the one prompt sent to the model, and can run an action end to end
// through the client's blocking call.
class ActionService final : public QObject
{
    Q_OBJECT

public:
    // A fixed underlying type keeps any int a valid value, so unknown numbers can be reported, not misread.
    enum ActionType : int { Translate = 1, Summarize = 2, Cleanup = 3 };
    Q_ENUM(ActionType)

    // The client is not owned and may be null (executeAction then fails).
    explicit ActionService(ILLMClient *client, QObject *parent = nullptr);

    void setTargetLanguage(const QString &language);
    // Uses this translation prompt instead of the configured one, without storing it (the CLI's
    // --prompt-file). An empty override stands for the built-in prompt, as an empty configured one does.
    void setSystemPromptOverride(const QString &prompt);
    void clearSystemPromptOverride();
    QString targetLanguage() const { return m_targetLanguage; }
    // Text of the last failure of executeAction; empty after a success.
    QString lastError() const { return m_lastError; }

    // The prompt for the action, with the text cut to the input limit (InputLimit.h); empty for an unknown
    // type (never send an empty prompt).
    QString buildPrompt(ActionType type, const QString &text) const;
    // Blocking: the model's answer, or empty with lastError() set. Runs the calling thread's event loop.
    QString executeAction(ActionType type, const QString &text);

    // The action's enumerator name ("Translate"), or its number when it has none.
    static QString actionName(ActionType type);

private:
    QString buildTranslatePrompt(const QString &text) const;
    QString buildSummarizePrompt(const QString &text) const;
    QString buildCleanupPrompt(const QString &text) const;

    ILLMClient *m_client = nullptr;
    QString m_targetLanguage = QStringLiteral("Chinese");
    QString m_lastError;
    QString m_systemPromptOverride;
    bool m_hasSystemPromptOverride = false;
};
