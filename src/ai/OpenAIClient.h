#pragma once

#include "ai/EventStreamParser.h"
#include "ai/ILLMClient.h"
#include "ai/StreamBody.h"

#include <QByteArray>
#include <QNetworkReply>
#include <QObject>
#include <QString>
#include <QTimer>

class ProviderErrors;
class QNetworkAccessManager;
class QNetworkRequest;

// Client of an OpenAI-compatible chat-completions service: one user message per request, answered either as
// a stream of server-sent events (completeStreaming) or as one blocking call (complete). Used only on the
// thread it belongs to; every instance keeps its own connection state, so several may stream at once.
class OpenAIClient final : public QObject, public ILLMClient
{
    Q_OBJECT

public:
    // Bounds of one request against a service that stalls or never stops. Far beyond any real translation, so
    // only a broken or hostile service meets them.
    struct Limits
    {
        int idleMs = 30000;                       // streaming: no byte for this long ends the stream
        int totalMs = 10 * 60 * 1000;             // streaming: the whole request, warm-up included
        qsizetype maxBodyBytes = 8 * 1024 * 1024; // response body, both kinds of request
    };

    explicit OpenAIClient(QObject *parent = nullptr);
    OpenAIClient(const QString &apiUrl, const QString &apiKey, const QString &model,
                 QObject *parent = nullptr);
    ~OpenAIClient() override;

    // None of the setters validates or affects a request already in flight.
    void setApiUrl(const QString &url) { m_apiUrl = url; }
    void setApiKey(const QString &key) { m_apiKey = key; }
    void setModel(const QString &model) { m_model = model; }
    // Limit of the blocking call in milliseconds; a streaming request has the limits below instead.
    void setTimeout(int ms) { m_timeout = ms; }
    // Takes effect with the next request.
    void setLimits(const Limits &limits) { m_limits = limits; }

    QString apiUrl() const { return m_apiUrl; }
    QString apiKey() const { return m_apiKey; }
    QString model() const { return m_model; }
    int timeout() const { return m_timeout; }
    Limits limits() const { return m_limits; }

    // False when the URL, the key or the model is empty.
    bool isConfigured() const override;
    // Text of the last failure; cleared by the next request.
    QString lastError() const override;

    // Starts a streaming request. Results arrive through streamingChunk, then exactly one of
    // streamingFinished or streamingError. Settings that must not be sent (missing, or with a line break that
    // would smuggle in a header) give streamingError before this returns.
    void completeStreaming(const QString &prompt);
    // Abandons the current stream (or the warm-up before it). Emits nothing.
    void cancelRequest();
    // Blocking request bounded by timeout(); the trimmed answer, or empty with lastError() set.
    QString complete(const QString &prompt) override;

signals:
    void streamingChunk(const QString &chunk);
    void streamingFinished(const QString &fullResponse);
    void streamingError(const QString &error);

private slots:
    void onReadyRead();
    void onStreamFinished();
    void onStreamError(QNetworkReply::NetworkError code);
    void onRedirected(const QUrl &target);
    void onIdleTimeout();
    void onTotalTimeout();

private:
    enum class ReplyKind { Stale, NonCurrent, Current };

    void ensureNetworkManager();
    void startWarmUp(quint64 streamId, const QNetworkRequest &request, const QByteArray &body);
    void sendStreamingRequest(quint64 streamId, const QNetworkRequest &request, const QByteArray &body);
    void setupReplyConnections(QNetworkReply *reply);
    ReplyKind classifyReply(QNetworkReply *reply, const char *what, const QString &errorText = QString());
    void dropReply(QNetworkReply *reply, bool abort);
    void processSSEData(const QByteArray &data);
    void failStream(const QString &message);
    void emitErrorQueued(const QString &message);
    void stopTimers();
    void warnOfClearText();
    // Error texts with the current settings' credentials kept out.
    ProviderErrors errors() const;

    QString m_apiUrl;
    QString m_apiKey;
    QString m_model;
    int m_timeout = 30000;
    QString m_lastError;
    QNetworkAccessManager *m_networkManager = nullptr;
    QNetworkReply *m_currentReply = nullptr;
    EventStreamParser m_parser;
    QString m_fullResponse;
    quint64 m_streamId = 0;
    Limits m_limits;
    QTimer m_idleTimer;
    QTimer m_totalTimer;
    StreamBody m_body;
    QString m_clearTextWarned; // the address the key-in-clear-text warning was logged for
};
