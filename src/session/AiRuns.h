#pragma once

#include <QHash>
#include <QList>
#include <QObject>
#include <QString>
#include <QThread>

class OpenAIClient;

// The streaming requests of the result windows, each tagged with the number of the window's run so that
// several windows may stream at once and a late answer finds its own run or nothing. Clients are made for the
// provider settings in advance and reused run after run, so a run starts on a client whose network stack is
// already warm (a new one costs its first request tens of milliseconds), and they live on a thread of their
// own, so the window being laid out and painted on the GUI thread does not hold a request back. Called on the
// GUI thread.
class AiRuns final : public QObject
{
    Q_OBJECT

public:
    struct Provider
    {
        QString apiUrl;
        QString apiKey;
        QString model;
        bool operator==(const Provider &other) const
        {
            return apiUrl == other.apiUrl && apiKey == other.apiKey && model == other.model;
        }
    };

    explicit AiRuns(QObject *parent = nullptr);
    ~AiRuns() override;

    // Keeps one idle client ready for these settings. Clients of earlier settings go once their run ends.
    void setProvider(const Provider &provider);

    // Starts the request of this run, replacing one it may have. Results arrive through the signals: chunks,
    // then exactly one of finished or failed.
    void start(quint64 run, const QString &prompt);
    // Ends the run's request; nothing more is emitted for it. Does nothing when the run has none.
    void cancel(quint64 run);
    void cancelAll();
    int runningCount() const { return static_cast<int>(m_running.size()); }
    // Clients waiting for a run.
    int idleCount() const { return static_cast<int>(m_idle.size()); }

signals:
    void chunk(quint64 run, const QString &text);
    void finished(quint64 run, const QString &fullResponse);
    void failed(quint64 run, const QString &message);

private:
    struct Client
    {
        OpenAIClient *client = nullptr;
        Provider provider;
    };
    struct Request
    {
        Client client;
        quint64 number = 0;
    };

    Client makeClient();
    void destroy(const Client &client);
    bool isCurrent(quint64 run, quint64 number) const;
    // Takes the run's request off the list; its client waits for the next request or goes.
    void release(quint64 run, bool cancel);

    QThread m_thread;
    Provider m_provider;
    QList<Client> m_idle;
    QHash<quint64, Request> m_running;
    quint64 m_lastRequest = 0;
};
