#include "ai/OpenAIClient.h"

#include "ai/BlockingCompletion.h"
#include "ai/ChatRequest.h"
#include "ai/ConnectionWarmUp.h"
#include "ai/ProviderErrors.h"
#include "ai/StreamBody.h"
#include "log/LogCategories.h"

#include <QDebug>
#include <QFutureWatcher>
#include <QNetworkAccessManager>
#include <QNetworkProxyFactory>
#include <QNetworkRequest>
#include <QTimer>
#include <QtConcurrent/QtConcurrentRun>

namespace {

const char kStreamIdProperty[] = "streamId";
// The configured address; the reply's own URL already names the redirect's target when it asks.
const char kOriginProperty[] = "configuredUrl";
const char kAskedProperty[] = "askedUrls";
constexpr qint64 kReadAheadBytes = 256 * 1024;

int httpStatusOf(const QNetworkReply *reply)
{
    return reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
}

} // namespace

OpenAIClient::OpenAIClient(QObject *parent)
    : OpenAIClient(QStringLiteral("https://api.openai.com/v1"), QString(), QStringLiteral("gpt-4o-mini"),
                   parent)
{}

OpenAIClient::OpenAIClient(const QString &apiUrl, const QString &apiKey, const QString &model,
                           QObject *parent)
    : QObject(parent)
    , m_apiUrl(apiUrl)
    , m_apiKey(apiKey)
    , m_model(model)
    // Children, so that they follow the client to the thread it is moved to.
    , m_idleTimer(this)
    , m_totalTimer(this)
{
    m_idleTimer.setSingleShot(true);
    m_totalTimer.setSingleShot(true);
    connect(&m_idleTimer, &QTimer::timeout, this, &OpenAIClient::onIdleTimeout);
    connect(&m_totalTimer, &QTimer::timeout, this, &OpenAIClient::onTotalTimeout);
}

OpenAIClient::~OpenAIClient()
{
    cancelRequest();
}

bool OpenAIClient::isConfigured() const
{
    return !m_apiUrl.isEmpty() && !m_apiKey.isEmpty() && !m_model.isEmpty();
}

QString OpenAIClient::lastError() const
{
    return m_lastError;
}

void OpenAIClient::ensureNetworkManager()
{
    if (m_networkManager)
        return;
    m_networkManager = new QNetworkAccessManager(this);
    m_networkManager->setProxyFactory(vontrelNewProxyFactory());
}

void OpenAIClient::completeStreaming(const QString &prompt)
{
    m_lastError.clear();
    m_parser.reset();
    m_fullResponse.clear();
    m_body.reset();

    if (!isConfigured()) {
        m_lastError = tr("API not configured. Please set API URL and key in config.");
        emit streamingError(m_lastError);
        return;
    }
    if (const QString problem = ProviderErrors::settingsProblem(m_apiUrl, m_apiKey); !problem.isEmpty()) {
        cancelRequest();
        m_lastError = problem;
        emit streamingError(m_lastError);
        return;
    }

    warnOfClearText();
    ensureNetworkManager();
    cancelRequest();
    const quint64 streamId = ++m_streamId;
    m_totalTimer.start(m_limits.totalMs);

    const QNetworkRequest request = vontrelChatRequest(m_apiUrl, m_apiKey, true);
    const QByteArray body = vontrelChatBody(m_model, prompt, true);
    startWarmUp(streamId, request, body);
}

void OpenAIClient::startWarmUp(quint64 streamId, const QNetworkRequest &request, const QByteArray &body)
{
    auto *watcher = new QFutureWatcher<void>(this);
    connect(watcher, &QFutureWatcher<void>::finished, this,
            [this, watcher, streamId, request, body] {
                watcher->deleteLater();
                if (streamId != m_streamId) {
                    qCDebug(lcAi).noquote()
                        << "OpenAIClient: Request cancelled during connection setup, aborting streamId ="
                        << streamId;
                    return;
                }
                sendStreamingRequest(streamId, request, body);
            });
    watcher->setFuture(
        QtConcurrent::run(vontrelConnectionWarmUp(m_networkManager->proxyFactory(), request.url())));
}

void OpenAIClient::sendStreamingRequest(quint64 streamId, const QNetworkRequest &request,
                                        const QByteArray &body)
{
    QNetworkReply *reply = m_networkManager->post(request, body);
    // Qt's throttle on its HTTP thread: no more than this is handed over ahead of what the client has read,
    // so a provider streaming faster than the answer is shown queues less before the size limit sees it.
    reply->setReadBufferSize(kReadAheadBytes);
    m_currentReply = reply;
    reply->setProperty(kStreamIdProperty, QVariant::fromValue<quint64>(streamId));
    reply->setProperty(kOriginProperty, request.url());
    qCDebug(lcAi).noquote() << "OpenAIClient: completeStreaming started streamId =" << streamId
                            << "reply =" << reply;
    setupReplyConnections(reply);
    m_idleTimer.start(m_limits.idleMs);
}

void OpenAIClient::setupReplyConnections(QNetworkReply *reply)
{
    connect(reply, &QObject::destroyed, this, [this](QObject *object) {
        if (m_currentReply == object)
            m_currentReply = nullptr;
    });
    connect(reply, &QNetworkReply::readyRead, this, &OpenAIClient::onReadyRead, Qt::DirectConnection);
    connect(reply, &QNetworkReply::finished, this, &OpenAIClient::onStreamFinished, Qt::DirectConnection);
    connect(reply, &QNetworkReply::errorOccurred, this, &OpenAIClient::onStreamError, Qt::DirectConnection);
    connect(reply, &QNetworkReply::redirected, this, &OpenAIClient::onRedirected, Qt::DirectConnection);
    // Headers count as a sign of life, so a slow first token is measured from them.
    connect(reply, &QNetworkReply::metaDataChanged, this, [this, reply] {
        if (reply == m_currentReply)
            m_idleTimer.start(m_limits.idleMs);
    });
}

void OpenAIClient::dropReply(QNetworkReply *reply, bool abort)
{
    disconnect(reply, nullptr, this, nullptr);
    if (abort)
        reply->abort();
    reply->deleteLater();
}

OpenAIClient::ReplyKind OpenAIClient::classifyReply(QNetworkReply *reply, const char *what,
                                                    const QString &errorText)
{
    const quint64 replyStreamId = reply->property(kStreamIdProperty).toULongLong();
    const bool abort = qstrcmp(what, "finished") != 0;
    if (replyStreamId != m_streamId) {
        const QString stale =
            QStringLiteral("OpenAIClient: %1 ignored stale reply =").arg(QLatin1String(what));
        if (errorText.isNull())
            qCDebug(lcAi).noquote() << stale << reply << "replyStreamId =" << replyStreamId
                                    << "currentStreamId =" << m_streamId;
        else
            qCDebug(lcAi).noquote() << stale << reply << "replyStreamId =" << replyStreamId
                                    << "currentStreamId =" << m_streamId << "error =" << errorText;
        dropReply(reply, abort);
        return ReplyKind::Stale;
    }
    if (reply != m_currentReply) {
        qCDebug(lcAi).noquote()
            << QStringLiteral("OpenAIClient: %1 ignored non-current reply =").arg(QLatin1String(what))
            << reply << "currentReply =" << m_currentReply;
        dropReply(reply, abort);
        return ReplyKind::NonCurrent;
    }
    return ReplyKind::Current;
}

void OpenAIClient::onReadyRead()
{
    auto *reply = qobject_cast<QNetworkReply *>(sender());
    if (!reply || classifyReply(reply, "readyRead") != ReplyKind::Current)
        return;
    m_idleTimer.start(m_limits.idleMs);
    const QByteArray data = reply->readAll();
    m_body.count(data.size());
    if (httpStatusOf(reply) >= 300) {
        // An error body is read for the provider's message when the reply ends, never as events.
        m_body.keepHead(data);
        return;
    }
    if (m_body.bytes() > m_limits.maxBodyBytes) {
        // What fits is still shown, so the user keeps the answer up to the limit.
        const quint64 streamId = m_streamId;
        processSSEData(data.first(data.size() - (m_body.bytes() - m_limits.maxBodyBytes)));
        if (streamId == m_streamId && m_lastError.isEmpty())
            failStream(ProviderErrors::bodyLimitText(m_limits.maxBodyBytes));
        return;
    }
    m_body.noteContentType(reply);
    if (!m_parser.sawData())
        m_body.keepHead(data);
    processSSEData(data);
}

void OpenAIClient::onStreamFinished()
{
    auto *reply = qobject_cast<QNetworkReply *>(sender());
    if (!reply || classifyReply(reply, "finished") != ReplyKind::Current)
        return;
    const quint64 streamId = m_streamId;
    const int status = httpStatusOf(reply);
    const QString networkText = reply->errorString();
    QByteArray rest = reply->readAll();
    m_body.noteContentType(reply);
    dropReply(reply, false);
    m_currentReply = nullptr;
    stopTimers();
    m_body.count(rest.size());
    if (status >= 300) {
        // A redirect that was not followed, or a status the toolkit does not count as an error.
        m_body.keepHead(rest);
        failStream(errors().httpErrorText(status, m_body.head(), networkText));
        return;
    }
    if (!m_parser.sawData())
        m_body.keepHead(rest);
    if (!rest.isEmpty())
        processSSEData(rest);
    if (streamId != m_streamId || !m_lastError.isEmpty())
        return; // cancelled or replaced by a receiver of the last pieces, or failed: already reported
    QString whole;
    if (const QString problem = m_body.endProblem(m_parser, errors(), &whole); !problem.isEmpty()) {
        failStream(problem);
        return;
    }
    if (!whole.isEmpty()) {
        qCInfo(lcAi).noquote() << "OpenAIClient: the service sent the whole answer at once, not streamed";
        m_fullResponse = whole;
        emit streamingChunk(whole);
        if (streamId != m_streamId)
            return;
    }
    qCDebug(lcAi).noquote() << "OpenAIClient: streamingFinished streamId =" << m_streamId
                            << "fullLen =" << m_fullResponse.size();
    emit streamingFinished(m_fullResponse);
}

void OpenAIClient::onStreamError(QNetworkReply::NetworkError code)
{
    auto *reply = qobject_cast<QNetworkReply *>(sender());
    if (!reply || classifyReply(reply, "error", QString::number(code)) != ReplyKind::Current)
        return;
    disconnect(reply, nullptr, this, nullptr);
    m_currentReply = nullptr;
    stopTimers();
    const QString errorText = errors().redacted(reply->errorString());
    const QUrl url = reply->url();
    const int httpStatus = httpStatusOf(reply);
    if (httpStatus >= 300)
        m_body.keepHead(reply->read(ProviderErrors::kMaxKeptBodyBytes));
    reply->deleteLater();

    if (code == QNetworkReply::OperationCanceledError) {
        qCDebug(lcAi).noquote() << "OpenAIClient: request canceled streamId =" << m_streamId;
        return;
    }
    if (httpStatus >= 300) {
        m_lastError = errors().httpErrorText(httpStatus, m_body.head(), errorText);
    } else if (code == QNetworkReply::RemoteHostClosedError && m_body.bytes() > 0) {
        // Servers that close instead of ending the body properly are common; once the answer said it was
        // complete, the close loses nothing.
        if (m_parser.sawEnd() && !m_parser.failed()) {
            qCDebug(lcAi).noquote() << "OpenAIClient: streamingFinished after close streamId =" << m_streamId
                                    << "fullLen =" << m_fullResponse.size();
            emit streamingFinished(m_fullResponse);
            return;
        }
        m_lastError = StreamBody::cutOffText();
    } else
        m_lastError = tr("Network error: %1").arg(errorText);
    qCWarning(lcAi).noquote() << "OpenAIClient: streamingError streamId =" << m_streamId << "error =" << code
                              << "message =" << errorText << "url =" << url.toString(QUrl::RemoveUserInfo)
                              << "httpStatus =" << httpStatus;
    emit streamingError(m_lastError);
}

void OpenAIClient::onRedirected(const QUrl &target)
{
    auto *reply = qobject_cast<QNetworkReply *>(sender());
    if (!reply || classifyReply(reply, "redirected") != ReplyKind::Current)
        return;
    const QUrl configured = reply->property(kOriginProperty).toUrl();
    const QUrl next = configured.resolved(target);
    QString problem = ProviderErrors::redirectProblem(configured, next);
    // A redirect back to an address already asked is a loop; Qt would follow it until its own count runs
    // out and then end the reply in a way that depends on timing.
    QList<QUrl> asked = reply->property(kAskedProperty).value<QList<QUrl>>();
    if (asked.isEmpty())
        asked.append(configured);
    if (problem.isEmpty() && asked.contains(next))
        problem = ProviderErrors::redirectLoopText(
            reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt());
    asked.append(next);
    reply->setProperty(kAskedProperty, QVariant::fromValue(asked));
    if (problem.isEmpty())
        emit reply->redirectAllowed();
    else
        failStream(problem);
}

void OpenAIClient::onIdleTimeout()
{
    if (!m_currentReply)
        return;
    if (m_parser.sawEnd() && !m_parser.failed()) {
        // The answer said it was complete and the server merely keeps the connection open.
        QNetworkReply *reply = m_currentReply;
        m_currentReply = nullptr;
        dropReply(reply, true);
        stopTimers();
        qCDebug(lcAi).noquote() << "OpenAIClient: streamingFinished at idle streamId =" << m_streamId
                                << "fullLen =" << m_fullResponse.size();
        emit streamingFinished(m_fullResponse);
        return;
    }
    failStream(ProviderErrors::idleText(m_limits.idleMs, !m_fullResponse.isEmpty()));
}

void OpenAIClient::onTotalTimeout()
{
    failStream(ProviderErrors::totalTimeText(m_limits.totalMs));
}

void OpenAIClient::processSSEData(const QByteArray &data)
{
    // After an error the stream is over: whatever the service still sends is not part of an answer.
    if (!m_lastError.isEmpty())
        return;
    const quint64 streamId = m_streamId;
    m_parser.feed(data, [this, streamId](const QString &piece) {
        m_fullResponse += piece;
        emit streamingChunk(piece);
        return streamId == m_streamId; // a receiver may have cancelled or started another request
    });
    if (streamId == m_streamId && m_parser.failed())
        failStream(tr("API error: %1").arg(errors().redacted(m_parser.errorMessage())));
}

void OpenAIClient::stopTimers()
{
    m_idleTimer.stop();
    m_totalTimer.stop();
}

void OpenAIClient::failStream(const QString &message)
{
    stopTimers();
    if (QNetworkReply *reply = m_currentReply) {
        m_currentReply = nullptr;
        dropReply(reply, true);
    }
    m_parser.reset();
    m_lastError = message;
    // Whatever still belongs to this request (a warm-up, a late signal) is stale from now on.
    ++m_streamId;
    qCWarning(lcAi).noquote() << "OpenAIClient: streamingError streamId =" << m_streamId
                              << "message =" << message;
    emitErrorQueued(message);
}

void OpenAIClient::emitErrorQueued(const QString &message)
{
    // Queued, so receivers run after the parser has returned; a cancel or a newer request in between wins.
    const quint64 streamId = m_streamId;
    QMetaObject::invokeMethod(
        this,
        [this, streamId, message] {
            if (streamId == m_streamId)
                emit streamingError(message);
        },
        Qt::QueuedConnection);
}

void OpenAIClient::cancelRequest()
{
    ++m_streamId;
    stopTimers();
    qCDebug(lcAi).noquote() << "OpenAIClient: cancelRequest streamId ->" << m_streamId
                            << "hasReply =" << (m_currentReply ? "true" : "false");
    if (m_currentReply && m_networkManager) {
        QNetworkReply *reply = m_currentReply;
        m_currentReply = nullptr;
        disconnect(reply, nullptr, this, nullptr);
        qCDebug(lcAi).noquote() << "OpenAIClient: cancelRequest aborting reply =" << reply;
        reply->abort();
        reply->deleteLater();
    }
}

QString OpenAIClient::complete(const QString &prompt)
{
    m_lastError.clear();
    if (!isConfigured()) {
        m_lastError = tr("API not configured. Please set API URL and key in config.");
        return QString();
    }
    if (const QString problem = ProviderErrors::settingsProblem(m_apiUrl, m_apiKey); !problem.isEmpty()) {
        m_lastError = problem;
        return QString();
    }
    warnOfClearText();
    ensureNetworkManager();
    return vontrelCompleteBlocking(m_networkManager, vontrelChatRequest(m_apiUrl, m_apiKey, false),
                                   vontrelChatBody(m_model, prompt, false), m_timeout, m_limits.maxBodyBytes,
                                   errors(), &m_lastError);
}

void OpenAIClient::warnOfClearText()
{
    // Once per address: the log is for the user who wonders where the key went, not a line per request.
    if (m_clearTextWarned == m_apiUrl)
        return;
    m_clearTextWarned = m_apiUrl;
    if (const QString warning = ProviderErrors::clearTextWarning(m_apiUrl); !warning.isEmpty())
        qCWarning(lcAi).noquote() << "OpenAIClient:" << warning;
}

ProviderErrors OpenAIClient::errors() const
{
    return ProviderErrors(m_apiUrl, m_apiKey);
}
