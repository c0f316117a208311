#include "session/AiRuns.h"

#include "ai/OpenAIClient.h"
#include "log/LogCategories.h"

#include <QDebug>

AiRuns::AiRuns(QObject *parent)
    : QObject(parent)
{
    m_thread.setObjectName(QStringLiteral("vontrel-ai"));
    m_thread.start();
}

AiRuns::~AiRuns()
{
    cancelAll();
    for (const Client &client : std::as_const(m_idle))
        destroy(client);
    m_thread.quit();
    m_thread.wait();
}

AiRuns::Client AiRuns::makeClient()
{
    auto *client = new OpenAIClient(m_provider.apiUrl, m_provider.apiKey, m_provider.model);
    client->moveToThread(&m_thread);
    return {client, m_provider};
}

void AiRuns::destroy(const Client &client)
{
    // Freed on its own thread, where its network objects live; the thread ends only after this has run.
    client.client->disconnect(this);
    client.client->deleteLater();
}

void AiRuns::setProvider(const Provider &provider)
{
    if (provider == m_provider && !m_idle.isEmpty())
        return;
    m_provider = provider;
    for (const Client &client : std::as_const(m_idle))
        destroy(client);
    m_idle = {makeClient()};
}

bool AiRuns::isCurrent(const QString &windowId, quint64 number) const
{
    const auto run = m_running.constFind(windowId);
    return run != m_running.cend() && run->number == number;
}

void AiRuns::start(const QString &windowId, const QString &prompt)
{
    release(windowId, true);
    const Run run{m_idle.isEmpty() ? makeClient() : m_idle.takeLast(), ++m_lastRun};
    m_running.insert(windowId, run);
    qCInfo(lcSession).noquote() << "AiRuns: Starting streaming AI request for window" << windowId;

    // The signals cross threads: one already under way when its run was cancelled or replaced is dropped
    // by its run number.
    const quint64 number = run.number;
    OpenAIClient *client = run.client.client;
    connect(client, &OpenAIClient::streamingChunk, this, [this, windowId, number](const QString &text) {
        if (isCurrent(windowId, number))
            emit chunk(windowId, text);
    });
    connect(client, &OpenAIClient::streamingFinished, this,
            [this, windowId, number](const QString &response) {
                if (!isCurrent(windowId, number))
                    return;
                release(windowId, false);
                emit finished(windowId, response);
            });
    connect(client, &OpenAIClient::streamingError, this, [this, windowId, number](const QString &message) {
        if (!isCurrent(windowId, number))
            return;
        release(windowId, false);
        emit failed(windowId, message);
    });
    QMetaObject::invokeMethod(client, [client, prompt] { client->completeStreaming(prompt); });
}

void AiRuns::cancel(const QString &windowId)
{
    release(windowId, true);
}

void AiRuns::cancelAll()
{
    const QList<QString> windowIds = m_running.keys();
    for (const QString &windowId : windowIds)
        release(windowId, true);
}

void AiRuns::release(const QString &windowId, bool cancel)
{
    const auto found = m_running.constFind(windowId);
    if (found == m_running.cend())
        return;
    const Client client = found->client;
    m_running.erase(found);
    client.client->disconnect(this);
    if (cancel) {
        OpenAIClient *openAi = client.client;
        // Queued on the client's thread, so it runs before any request a later run queues there.
        QMetaObject::invokeMethod(openAi, [openAi] { openAi->cancelRequest(); });
    }
    if (client.provider == m_provider)
        m_idle.append(client);
    else
        destroy(client);
}
