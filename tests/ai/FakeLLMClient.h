#pragma once

#include "ai/ILLMClient.h"

#include <QStringList>

// A model client that answers from a script and records its prompts.
class FakeLLMClient final : public ILLMClient
{
public:
    QString complete(const QString &prompt) override
    {
        prompts.append(prompt);
        return answer;
    }
    bool isConfigured() const override { return configured; }
    QString lastError() const override { return error; }

    bool configured = true;
    QString answer, error;
    QStringList prompts;
};
