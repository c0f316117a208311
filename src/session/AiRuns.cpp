#include "session/AiRuns.h"

#include "ai/OpenAIClient.h"

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

bool AiRuns::isCurrent(quint64 run, quint64 number) const
{
    const auto request = m_running.constFind(run);
    return request != m_running.cend() && request->number == number;
}

void AiRuns::start(quint64 run, const QString &prompt)
{
    release(run, true);
    const Request request{m_idle.isEmpty() ? makeClient() : m_idle.takeLast(), ++m_lastRequest};
    m_running.insert(run, request);

    // The signals cross threads: one already under way when its request was cancelled or replaced is
    // dropped by its request number.
    const quint64 number = request.number;
    OpenAIClient *client = request.client.client;
    connect(client, &OpenAIClient::streamingChunk, this, [this, run, number](const QString &text) {
        if (isCurrent(run, number))
            emit chunk(run, text);
    });
    connect(client, &OpenAIClient::streamingFinished, this, [this, run, number](const QString &response) {
        if (!isCurrent(run, number))
            return;
        release(run, false);
        emit finished(run, response);
    });
    connect(client, &OpenAIClient::streamingError, this, [this, run, number](const QString &message) {
        if (!isCurrent(run, number))
            return;
        release(run, false);
        emit failed(run, message);
    });
    QMetaObject::invokeMethod(client, [client, prompt] { client->completeStreaming(prompt); });
}

void AiRuns::cancel(quint64 run)
{
    release(run, true);
}

void AiRuns::cancelAll()
{
    const QList<quint64> runs = m_running.keys();
    for (const quint64 run : runs)
        release(run, true);
}

void AiRuns::release(quint64 run, bool cancel)
{
    const auto found = m_running.constFind(run);
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
