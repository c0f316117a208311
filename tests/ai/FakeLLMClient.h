#pragma once

#include "ai/ILLMClient.h"

#include <QMutex>
#include <QMutexLocker>
#include <QStringList>

// A model client that answers from a script and records the prompts it was given (from any thread).
class FakeLLMClient final : public ILLMClient
{
public:
    QString complete(const QString &prompt) override
    {
        QMutexLocker locker(&m_mutex);
        m_prompts.append(prompt);
        m_lastError = m_errorToReport;
        return m_answer;
    }
    bool isConfigured() const override { return m_configured; }
    QString lastError() const override
    {
        QMutexLocker locker(&m_mutex);
        return m_lastError;
    }

    void setConfigured(bool configured) { m_configured = configured; }
    void setAnswer(const QString &answer, const QString &error = QString())
    {
        QMutexLocker locker(&m_mutex);
        m_answer = answer;
        m_errorToReport = error;
    }
    QStringList prompts() const
    {
        QMutexLocker locker(&m_mutex);
        return m_prompts;
    }

private:
    mutable QMutex m_mutex;
    bool m_configured = true;
    QString m_answer;
    QString m_errorToReport;
    QString m_lastError;
    QStringList m_prompts;
};
