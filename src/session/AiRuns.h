#pragma once

#include <QHash>
#include <QList>
#include <QObject>
#include <QString>

class OpenAIClient;

// The streaming requests of the result windows, each tagged with its window's id so that several windows
// may stream at once and a late answer finds its own window. Clients are made for the provider settings in
// advance and reused run after run, so a run starts on a client whose network stack is already warm: a new
// client costs its first request tens of milliseconds. GUI thread only.
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
    bool isRunning(const QString &windowId) const { return m_running.contains(windowId); }
    int runningCount() const { return static_cast<int>(m_running.size()); }
    // Clients waiting for a run (for tests and the benchmark).
    int idleCount() const { return static_cast<int>(m_idle.size()); }

signals:
    void chunk(const QString &windowId, const QString &text);
    void finished(const QString &windowId, const QString &fullResponse);
    void failed(const QString &windowId, const QString &message);

private:
    OpenAIClient *makeClient();
    bool isCurrent(const OpenAIClient *client) const;
    void release(const QString &windowId, bool cancel, bool fromClientSignal);

    Provider m_provider;
    QList<OpenAIClient *> m_idle;
    QHash<QString, OpenAIClient *> m_running;
};
