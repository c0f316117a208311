#pragma once

#include <QObject>
#include <QString>

class OpenAIClient;

// Runs one streaming request for one result window with a private client, and tags everything it reports with
// the window's id so that several windows can stream at once. Single use; silent once cancelled.
class StreamingAiWorker final : public QObject
{
    Q_OBJECT

public:
    struct Config
    {
        QString apiUrl;
        QString apiKey;
        QString model;
        int timeoutMs = 30000;
    };

    StreamingAiWorker(const QString &prompt, const QString &windowId, const Config &config,
                      QObject *parent = nullptr);
    ~StreamingAiWorker() override;

    // Starts the request once the caller is back in the event loop (so it can still connect the signals).
    void start();
    // Stops a running request; nothing is emitted afterwards. Does nothing on a worker that is not running.
    void cancel();

    QString windowId() const { return m_windowId; }
    bool isRunning() const { return m_running; }
    bool isCancelled() const { return m_cancelled; }

signals:
    void chunkReceived(const QString &windowId, const QString &chunk);
    void finished(const QString &windowId, const QString &fullResponse);
    void errorOccurred(const QString &windowId, const QString &errorMessage);
    void started(const QString &windowId);

private slots:
    void onStreamingChunk(const QString &chunk);
    void onStreamingFinished(const QString &fullResponse);
    void onStreamingError(const QString &error);
    void doStart();

private:
    QString m_prompt;
    QString m_windowId;
    Config m_config;
    OpenAIClient *m_client = nullptr;
    bool m_running = false;
    bool m_cancelled = false;
};
