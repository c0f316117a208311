#pragma once

#include <QHash>
#include <QList>
#include <QObject>
#include <QString>
#include <QThread>

class OpenAIClient;

// The streaming requests of the result windows, each tagged with its window's id so that several windows
// may stream at once and a late answer finds its own window. Clients are made for the provider settings in
// advance and reused run after run, so a run starts on a client whose network stack is already warm (a new
// one costs its first request tens of milliseconds), and they live on a thread of their own, so the window
// being laid out and painted on the GUI thread does not hold a request back. Called on the GUI thread.
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

    // Starts a run for the window, replacing the one it may have. Results arrive through the signals: chunks,
    // then exactly one of finished or failed.
    void start(const QString &windowId, const QString &prompt);
    // Ends the window's run; nothing more is emitted for it. Does nothing when the window has none.
    void cancel(const QString &windowId);
    void cancelAll();
    int runningCount() const { return static_cast<int>(m_running.size()); }
    // Clients waiting for a run.
    int idleCount() const { return static_cast<int>(m_idle.size()); }

signals:
    void chunk(const QString &windowId, const QString &text);
    void finished(const QString &windowId, const QString &fullResponse);
    void failed(const QString &windowId, const QString &message);

private:
    struct Client
    {
        OpenAIClient *client = nullptr;
        Provider provider;
    };
    struct Run
    {
        Client client;
        quint64 number = 0;
    };

    Client makeClient();
    void destroy(const Client &client);
    bool isCurrent(const QString &windowId, quint64 number) const;
    // Takes the window's run off the list; its client waits for the next run or goes.
    void release(const QString &windowId, bool cancel);

    QThread m_thread;
    Provider m_provider;
    QList<Client> m_idle;
    QHash<QString, Run> m_running;
    quint64 m_lastRun = 0;
};
