#pragma once

#include "ai/ILLMClient.h"

#include <QByteArray>
#include <QNetworkReply>
#include <QObject>
#include <QString>

class QNetworkAccessManager;
class QNetworkRequest;

// Client of an OpenAI-compatible chat-completions service: one user message per request, answered either as
// a stream of server-sent events (completeStreaming) or as one blocking call (complete). GUI thread only;
// every instance keeps its own connection state, so several may stream at once.
class OpenAIClient final : public QObject, public ILLMClient
{
    Q_OBJECT

public:
    explicit OpenAIClient(QObject *parent = nullptr);
    OpenAIClient(const QString &apiUrl, const QString &apiKey, const QString &model,
                 QObject *parent = nullptr);
    ~OpenAIClient() override;

    // None of the setters validates or affects a request already in flight.
    void setApiUrl(const QString &url);
    void setApiKey(const QString &key);
    void setModel(const QString &model);
    // Limit of the blocking call in milliseconds; a streaming request has no time-out of its own.
    void setTimeout(int ms);

    QString apiUrl() const { return m_apiUrl; }
    QString apiKey() const { return m_apiKey; }
    QString model() const { return m_model; }
    int timeout() const { return m_timeout; }

    // False when the URL, the key or the model is empty.
    bool isConfigured() const override;
    // Text of the last failure; cleared by the next request.
    QString lastError() const override;

    // Starts a streaming request. Results arrive through streamingChunk, then exactly one of
    // streamingFinished or streamingError; an unconfigured client emits streamingError before returning.
    void completeStreaming(const QString &prompt);
    // Abandons the current stream (or the warm-up before it). Emits nothing.
    void cancelRequest();
    // Blocking request bounded by timeout(); the trimmed answer, or empty with lastError() set.
    QString complete(const QString &prompt) override;

    // The endpoint for a base URL: "/chat/completions" is appended unless the URL already ends with it.
    static QString endpointUrl(const QString &apiUrl);
    // "Vontrel.app/<version> (<os>; <arch>)".
    static QByteArray userAgent();

    // An incomplete line longer than this ends the stream, so a broken server cannot exhaust memory.
    static constexpr qsizetype kMaxPendingLineBytes = 16 * 1024 * 1024;

signals:
    void streamingChunk(const QString &chunk);
    void streamingFinished(const QString &fullResponse);
    void streamingError(const QString &error);

private slots:
    void onReadyRead();
    void onStreamFinished();
    void onStreamError(QNetworkReply::NetworkError code);

private:
    enum class ReplyKind { Stale, NonCurrent, Current };

    void ensureNetworkManager();
    QNetworkRequest buildRequest(bool streaming) const;
    static QByteArray buildBody(const QString &model, const QString &prompt, bool streaming);
    void startWarmUp(quint64 streamId, const QNetworkRequest &request, const QByteArray &body);
    void sendStreamingRequest(quint64 streamId, const QNetworkRequest &request, const QByteArray &body);
    void setupReplyConnections(QNetworkReply *reply);
    ReplyKind classifyReply(QNetworkReply *reply, const char *what, const QString &errorText = QString());
    void dropReply(QNetworkReply *reply, bool abort);
    void processSSEData(const QByteArray &data);
    void failStream(const QString &message);
    void emitErrorQueued(const QString &message);

    QString m_apiUrl;
    QString m_apiKey;
    QString m_model;
    int m_timeout = 30000;
    QString m_lastError;
    QNetworkAccessManager *m_networkManager = nullptr;
    QNetworkReply *m_currentReply = nullptr;
    QByteArray m_pendingData;
    QString m_fullResponse;
    quint64 m_streamId = 0;
};
