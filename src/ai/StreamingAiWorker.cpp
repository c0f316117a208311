#include "ai/StreamingAiWorker.h"

#include "ai/OpenAIClient.h"
#include "log/LogCategories.h"

#include <QDebug>

StreamingAiWorker::StreamingAiWorker(const QString &prompt, const QString &windowId, const Config &config,
                                     QObject *parent)
    : QObject(parent)
    , m_prompt(prompt)
    , m_windowId(windowId)
    , m_config(config)
{}

StreamingAiWorker::~StreamingAiWorker()
{
    if (m_running && !m_cancelled)
        cancel();
}

void StreamingAiWorker::start()
{
    if (m_running) {
        qCWarning(lcAi).noquote() << "StreamingAiWorker: Already running for window" << m_windowId;
        return;
    }
    m_running = true;
    QMetaObject::invokeMethod(this, &StreamingAiWorker::doStart, Qt::QueuedConnection);
}

void StreamingAiWorker::doStart()
{
    if (m_cancelled)
        return;
    if (m_client)
        m_client->deleteLater();
    m_client = new OpenAIClient(m_config.apiUrl, m_config.apiKey, m_config.model, this);
    m_client->setTimeout(m_config.timeoutMs);
    connect(m_client, &OpenAIClient::streamingChunk, this, &StreamingAiWorker::onStreamingChunk);
    connect(m_client, &OpenAIClient::streamingFinished, this, &StreamingAiWorker::onStreamingFinished);
    connect(m_client, &OpenAIClient::streamingError, this, &StreamingAiWorker::onStreamingError);
    emit started(m_windowId);
    m_client->completeStreaming(m_prompt);
}

void StreamingAiWorker::onStreamingChunk(const QString &chunk)
{
    if (!m_cancelled)
        emit chunkReceived(m_windowId, chunk);
}

void StreamingAiWorker::onStreamingFinished(const QString &fullResponse)
{
    if (m_cancelled)
        return;
    m_running = false;
    emit finished(m_windowId, fullResponse);
}

void StreamingAiWorker::onStreamingError(const QString &error)
{
    if (m_cancelled)
        return;
    m_running = false;
    emit errorOccurred(m_windowId, error);
}

void StreamingAiWorker::cancel()
{
    if (!m_running || m_cancelled)
        return;
    m_cancelled = true;
    if (m_client)
        m_client->cancelRequest();
}
