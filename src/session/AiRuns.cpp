#include "session/AiRuns.h"

#include "ai/OpenAIClient.h"

#include <QDebug>

AiRuns::AiRuns(QObject *parent)
    : QObject(parent)
{}

AiRuns::~AiRuns()
{
    cancelAll();
}

OpenAIClient *AiRuns::makeClient()
{
    // Children, so a client on its way back to the idle list is freed with the runs all the same.
    return new OpenAIClient(m_provider.apiUrl, m_provider.apiKey, m_provider.model, this);
}

void AiRuns::setProvider(const Provider &provider)
{
    if (provider == m_provider && !m_idle.isEmpty())
        return;
    m_provider = provider;
    qDeleteAll(m_idle);
    m_idle = {makeClient()};
}

void AiRuns::start(const QString &windowId, const QString &prompt)
{
    release(windowId, true, false);
    OpenAIClient *client = m_idle.isEmpty() ? makeClient() : m_idle.takeLast();
    m_running.insert(windowId, client);
    qInfo().noquote() << "AiRuns: Starting streaming AI request for window" << windowId;

    connect(client, &OpenAIClient::streamingChunk, this,
            [this, windowId](const QString &text) { emit chunk(windowId, text); });
    connect(client, &OpenAIClient::streamingFinished, this, [this, windowId](const QString &response) {
        release(windowId, false, true);
        emit finished(windowId, response);
    });
    connect(client, &OpenAIClient::streamingError, this, [this, windowId](const QString &message) {
        release(windowId, false, true);
        emit failed(windowId, message);
    });
    client->completeStreaming(prompt);
}

void AiRuns::cancel(const QString &windowId)
{
    release(windowId, true, false);
}

void AiRuns::cancelAll()
{
    const QList<QString> windowIds = m_running.keys();
    for (const QString &windowId : windowIds)
        release(windowId, true, false);
}

bool AiRuns::isCurrent(const OpenAIClient *client) const
{
    return client->apiUrl() == m_provider.apiUrl && client->apiKey() == m_provider.apiKey &&
           client->model() == m_provider.model;
}

void AiRuns::release(const QString &windowId, bool cancel, bool fromClientSignal)
{
    OpenAIClient *client = m_running.take(windowId);
    if (!client)
        return;
    disconnect(client, nullptr, this, nullptr);
    if (cancel)
        client->cancelRequest();
    if (!isCurrent(client)) {
        client->deleteLater();
        return;
    }
    if (!fromClientSignal) {
        m_idle.append(client);
        return;
    }
    // Still inside the client's own signal: reusing it at once would start a request in the middle of the
    // old one's ending.
    QMetaObject::invokeMethod(
        this,
        [this, client] {
            if (isCurrent(client))
                m_idle.append(client);
            else
                client->deleteLater();
        },
        Qt::QueuedConnection);
}
