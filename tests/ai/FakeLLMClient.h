#pragma once

#include "ai/ILLMClient.h"

#include <QMutex>
#include <QStringList>

// A model client that answers from a script and records its prompts (from any thread).
class FakeLLMClient final : public ILLMClient
{
public:
    QString complete(const QString &prompt) override
    {
        QMutexLocker locker(&mutex);
        prompts.append(prompt);
        return answer;
    }
    bool isConfigured() const override { return configured; }
    QString lastError() const override { return error; }

    bool configured = true; // set before use; prompts read after the calls are done
    QString answer, error;
    QStringList prompts;

private:
    QMutex mutex;
};
