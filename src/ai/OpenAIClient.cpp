#include "ai/OpenAIClient.h"

#include "log/LogCategories.h"

#include <QCoreApplication>
#include <QDebug>
#include <QEventLoop>
#include <QFutureWatcher>
#include <QHostAddress>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QJsonParseError>
#include <QLocale>
#include <QNetworkAccessManager>
#include <QNetworkProxyFactory>
#include <QNetworkRequest>
#include <QSysInfo>
#include <QTcpSocket>
#include <QTimer>
#include <QUrl>
#include <QtConcurrent/QtConcurrentRun>

#include <algorithm>
#include <memory>

namespace {

const char kStreamIdProperty[] = "streamId";
// The configured address; the reply's own URL already names the redirect's target when it asks.
const char kOriginProperty[] = "configuredUrl";
constexpr int kWarmUpTimeoutMs = 5000;
// Enough for any error object or to recognise a page; the rest of such a body is not kept.
constexpr qsizetype kMaxKeptBodyBytes = 64 * 1024;
// A provider's error text is shown in a window or a terminal line, not as a page.
constexpr int kMaxProviderMessageChars = 500;

// The vendor's site and the name OpenRouter expects, sent only to that service, which shows them to its
// users.
const char kVendorSite[] = "https://vontrel.app";
const char kOpenRouterTitle[] = "Vontrel.app";
const QString kOpenRouterHost = QStringLiteral("openrouter.ai");

// Users behind a proxy must still reach their provider, so requests follow the system's proxy settings; a
// service on this machine is always reached directly, whatever a proxy variable says.
class SystemProxyFactory final : public QNetworkProxyFactory
{
public:
    QList<QNetworkProxy> queryProxy(const QNetworkProxyQuery &query) override
    {
        const QString host = query.peerHostName();
        if (host.compare(QLatin1String("localhost"), Qt::CaseInsensitive) == 0 ||
            QHostAddress(host).isLoopback())
            return {QNetworkProxy(QNetworkProxy::NoProxy)};
        return systemProxyForQuery(query);
    }
};

// The text of an "error" member: the "message" of an error object, or the member itself when a service sends
// a plain string.
QString errorMessageOf(const QJsonValue &error)
{
    if (error.isString())
        return error.toString();
    return error.toObject().value(QLatin1String("message")).toString();
}

// The provider's own explanation in an error body, in the shapes services use: {"error": {"message"}},
// {"error": "text"}, {"message": "text"}, {"detail": "text"}, or any of these as the first element of an
// array.
QString providerMessageOf(const QByteArray &body)
{
    const QJsonDocument document = QJsonDocument::fromJson(body);
    const QJsonObject object = document.isArray() ? document.array().at(0).toObject() : document.object();
    QString message = errorMessageOf(object.value(QLatin1String("error")));
    if (message.isEmpty())
        message = object.value(QLatin1String("message")).toString();
    if (message.isEmpty())
        message = object.value(QLatin1String("detail")).toString();
    message = message.simplified();
    if (message.size() > kMaxProviderMessageChars)
        message = message.left(kMaxProviderMessageChars) + QChar(0x2026);
    return message;
}

bool hasControlCharacter(const QString &text)
{
    return std::any_of(text.cbegin(), text.cend(),
                       [](QChar c) { return c.category() == QChar::Other_Control; });
}

QString secondsText(int ms)
{
    return QLocale::c().toString(ms / 1000.0, 'g', 3);
}

bool isHttpUrl(const QUrl &url)
{
    const QString scheme = url.scheme().toLower();
    return url.isValid() && !url.host().isEmpty() &&
           (scheme == QLatin1String("http") || scheme == QLatin1String("https"));
}

bool sameOrigin(const QUrl &a, const QUrl &b)
{
    const int defaultPort = a.scheme().compare(QLatin1String("https"), Qt::CaseInsensitive) == 0 ? 443 : 80;
    return a.scheme().compare(b.scheme(), Qt::CaseInsensitive) == 0 &&
           a.host().compare(b.host(), Qt::CaseInsensitive) == 0 && a.port(defaultPort) == b.port(defaultPort);
}

int httpStatusOf(const QNetworkReply *reply)
{
    return reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
}

struct WarmUpTarget
{
    QString host;
    quint16 port = 0;
};

// Only gets name resolution and the route ready before the real request; the outcome does not matter.
void warmUpConnection(const WarmUpTarget &target)
{
    if (target.host.isEmpty())
        return;
    QTcpSocket socket;
    socket.setProxy(QNetworkProxy::NoProxy);
    socket.connectToHost(target.host, target.port);
    socket.waitForConnected(kWarmUpTimeoutMs);
    socket.abort();
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

void OpenAIClient::setApiUrl(const QString &url)
{
    m_apiUrl = url;
}

void OpenAIClient::setApiKey(const QString &key)
{
    m_apiKey = key;
}

void OpenAIClient::setModel(const QString &model)
{
    m_model = model;
}

void OpenAIClient::setTimeout(int ms)
{
    m_timeout = ms;
}

void OpenAIClient::setLimits(const Limits &limits)
{
    m_limits = limits;
}

bool OpenAIClient::isConfigured() const
{
    return !m_apiUrl.isEmpty() && !m_apiKey.isEmpty() && !m_model.isEmpty();
}

QString OpenAIClient::lastError() const
{
    return m_lastError;
}

QString OpenAIClient::endpointUrl(const QString &apiUrl)
{
    static const QString suffix = QStringLiteral("/chat/completions");
    if (apiUrl.endsWith(suffix))
        return apiUrl;
    QString url = apiUrl;
    if (!url.endsWith(QLatin1Char('/')))
        url += QLatin1Char('/');
    return url + QLatin1String("chat/completions");
}

QString OpenAIClient::settingsProblem() const
{
    // A line break would end the header early and let the rest pass as headers of its own.
    if (hasControlCharacter(m_apiKey))
        return tr("The API key contains a line break or another control character. Paste the key again.");
    if (hasControlCharacter(m_apiUrl))
        return tr("The API URL contains a line break or another control character.");
    if (!isHttpUrl(QUrl(endpointUrl(m_apiUrl))))
        return tr("The API URL is not an http or https address.");
    return QString();
}

QString OpenAIClient::redirectProblem(const QUrl &from, const QUrl &to) const
{
    if (sameOrigin(from, to))
        return QString();
    return tr("The provider redirected the request to %1; Vontrel does not send the API key to another "
              "server. "
              "Set the API URL to the address that answers.")
        .arg(to.adjusted(QUrl::RemoveUserInfo | QUrl::RemovePath | QUrl::RemoveQuery | QUrl::RemoveFragment)
                 .toString());
}

QString OpenAIClient::httpErrorText(int status, const QByteArray &body, const QString &networkText) const
{
    const QString message = providerMessageOf(body);
    if (!message.isEmpty())
        return tr("API error %1: %2").arg(status).arg(redacted(message));
    return tr("Network error: %1 (HTTP %2)").arg(redacted(networkText)).arg(status);
}

QString OpenAIClient::notAnEventStreamText() const
{
    const QString message = providerMessageOf(m_bodyHead);
    if (!message.isEmpty())
        return tr("API error: %1").arg(redacted(message));
    if (m_bodyBytes == 0)
        return tr("The provider sent an empty answer.");
    if (m_contentType == QLatin1String("text/event-stream"))
        return tr("The provider's event stream carried no data.");
    return tr("The provider answered with %1, not an event stream.")
        .arg(m_contentType.isEmpty() ? tr("text of no stated type") : m_contentType);
}

QString OpenAIClient::redacted(QString text) const
{
    const QUrl url(m_apiUrl);
    if (!url.userInfo().isEmpty()) {
        const QUrl endpoint(endpointUrl(m_apiUrl));
        for (const QUrl &withUser : {url, endpoint}) {
            const QString bare = withUser.toString(QUrl::RemoveUserInfo);
            text.replace(withUser.toString(), bare);
            text.replace(withUser.toString(QUrl::FullyEncoded), bare);
            text.replace(withUser.toDisplayString(), bare);
        }
        text.replace(url.userInfo(QUrl::FullyEncoded) + QLatin1Char('@'), QString());
        text.replace(url.userInfo(QUrl::FullyDecoded) + QLatin1Char('@'), QString());
    }
    // Short secrets would match ordinary words; what is left of them after the above is not worth that.
    for (const QString &secret :
         {url.password(QUrl::FullyDecoded), url.password(QUrl::FullyEncoded), m_apiKey}) {
        if (secret.size() >= 4)
            text.replace(secret, QStringLiteral("***"));
    }
    return text;
}

QByteArray OpenAIClient::userAgent()
{
    QString version = QCoreApplication::applicationVersion();
    if (version.isEmpty())
        version = QStringLiteral("0");
    QString os = QSysInfo::prettyProductName();
    if (os.isEmpty())
        os = QSysInfo::productType();
    return QStringLiteral("Vontrel.app/%1 (%2; %3)")
        .arg(version, os, QSysInfo::currentCpuArchitecture())
        .toUtf8();
}

void OpenAIClient::ensureNetworkManager()
{
    if (m_networkManager)
        return;
    m_networkManager = new QNetworkAccessManager(this);
    m_networkManager->setProxyFactory(new SystemProxyFactory);
}

QNetworkRequest OpenAIClient::buildRequest(bool streaming) const
{
    QNetworkRequest request{QUrl(endpointUrl(m_apiUrl))};
    request.setHeader(QNetworkRequest::ContentTypeHeader, QByteArrayLiteral("application/json"));
    request.setRawHeader(QByteArrayLiteral("Authorization"),
                         QStringLiteral("Bearer %1").arg(m_apiKey).toUtf8());
    if (streaming)
        request.setRawHeader(QByteArrayLiteral("Accept"), QByteArrayLiteral("text/event-stream"));
    request.setRawHeader(QByteArrayLiteral("User-Agent"), userAgent());
    if (request.url().host().endsWith(kOpenRouterHost, Qt::CaseInsensitive)) {
        request.setRawHeader(QByteArrayLiteral("HTTP-Referer"), kVendorSite);
        request.setRawHeader(QByteArrayLiteral("X-OpenRouter-Title"), kOpenRouterTitle);
    }
    if (streaming) {
        // Some services stall or buffer event streams over HTTP/2; HTTP/1.1 delivers each chunk as it comes.
        request.setAttribute(QNetworkRequest::Http2AllowedAttribute, false);
    }
    // The toolkit would repeat every header, the key included, to wherever a redirect points; each redirect
    // is checked against the configured origin first (onRedirected, complete).
    request.setAttribute(QNetworkRequest::RedirectPolicyAttribute,
                         QNetworkRequest::UserVerifiedRedirectPolicy);
    return request;
}

QByteArray OpenAIClient::buildBody(const QString &model, const QString &prompt, bool streaming)
{
    QJsonObject message;
    message.insert(QStringLiteral("role"), QStringLiteral("user"));
    message.insert(QStringLiteral("content"), prompt);
    QJsonObject body;
    body.insert(QStringLiteral("model"), model);
    body.insert(QStringLiteral("messages"), QJsonArray{message});
    body.insert(QStringLiteral("temperature"), 0.7);
    body.insert(QStringLiteral("max_tokens"), 2048);
    if (streaming) {
        body.insert(QStringLiteral("stream"), true);
        body.insert(QStringLiteral("enable_thinking"), false);
    }
    return QJsonDocument(body).toJson(QJsonDocument::Compact);
}

void OpenAIClient::completeStreaming(const QString &prompt)
{
    m_lastError.clear();
    m_parser.reset();
    m_fullResponse.clear();
    m_bodyBytes = 0;
    m_bodyHead.clear();
    m_contentType.clear();

    if (!isConfigured()) {
        m_lastError = tr("API not configured. Please set API URL and key in config.");
        emit streamingError(m_lastError);
        return;
    }
    if (const QString problem = settingsProblem(); !problem.isEmpty()) {
        cancelRequest();
        m_lastError = problem;
        emit streamingError(m_lastError);
        return;
    }

    ensureNetworkManager();
    cancelRequest();
    const quint64 streamId = ++m_streamId;
    m_totalTimer.start(m_limits.totalMs);

    const QNetworkRequest request = buildRequest(true);
    const QByteArray body = buildBody(m_model, prompt, true);
    startWarmUp(streamId, request, body);
}

void OpenAIClient::startWarmUp(quint64 streamId, const QNetworkRequest &request, const QByteArray &body)
{
    const QUrl url = request.url();
    WarmUpTarget target{url.host(), static_cast<quint16>(url.port(443))};
    // Behind a proxy the route that matters is the one to the proxy.
    const QList<QNetworkProxy> proxies =
        m_networkManager->proxyFactory()
            ? m_networkManager->proxyFactory()->queryProxy(QNetworkProxyQuery(url))
            : QList<QNetworkProxy>();
    if (!proxies.isEmpty() && proxies.first().type() != QNetworkProxy::NoProxy &&
        proxies.first().type() != QNetworkProxy::DefaultProxy) {
        target = WarmUpTarget{proxies.first().hostName(), proxies.first().port()};
    }

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
    watcher->setFuture(QtConcurrent::run(warmUpConnection, target));
}

void OpenAIClient::sendStreamingRequest(quint64 streamId, const QNetworkRequest &request,
                                        const QByteArray &body)
{
    QNetworkReply *reply = m_networkManager->post(request, body);
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
    m_bodyBytes += data.size();
    const int status = httpStatusOf(reply);
    if (status >= 300) {
        // An error body is read for the provider's message when the reply ends, never as events.
        if (m_bodyHead.size() < kMaxKeptBodyBytes)
            m_bodyHead += data.left(kMaxKeptBodyBytes - m_bodyHead.size());
        return;
    }
    if (m_bodyBytes > m_limits.maxBodyBytes) {
        // What fits is still shown, so the user keeps the answer up to the limit.
        const quint64 streamId = m_streamId;
        processSSEData(data.first(data.size() - (m_bodyBytes - m_limits.maxBodyBytes)));
        if (streamId == m_streamId && m_lastError.isEmpty())
            failStream(tr("The provider sent more than %1 MiB; the answer was stopped there.")
                           .arg(QLocale::c().toString(m_limits.maxBodyBytes / 1048576.0, 'g', 3)));
        return;
    }
    if (m_contentType.isEmpty())
        m_contentType = reply->header(QNetworkRequest::ContentTypeHeader)
                            .toString()
                            .section(u';', 0, 0)
                            .trimmed()
                            .toLower();
    if (!m_parser.sawData() && m_bodyHead.size() < kMaxKeptBodyBytes)
        m_bodyHead += data.left(kMaxKeptBodyBytes - m_bodyHead.size());
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
    if (m_contentType.isEmpty())
        m_contentType = reply->header(QNetworkRequest::ContentTypeHeader)
                            .toString()
                            .section(u';', 0, 0)
                            .trimmed()
                            .toLower();
    dropReply(reply, false);
    m_currentReply = nullptr;
    stopTimers();
    m_bodyBytes += rest.size();
    if (status >= 300) {
        // A redirect that was not followed, or a status the toolkit does not count as an error.
        failStream(httpErrorText(status, m_bodyHead + rest.left(kMaxKeptBodyBytes), networkText));
        return;
    }
    if (!m_parser.sawData() && m_bodyHead.size() < kMaxKeptBodyBytes)
        m_bodyHead += rest.left(kMaxKeptBodyBytes - m_bodyHead.size());
    if (!rest.isEmpty())
        processSSEData(rest);
    if (streamId != m_streamId || !m_lastError.isEmpty())
        return; // cancelled or replaced by a receiver of the last pieces, or failed: already reported
    if (!m_parser.sawData()) {
        failStream(notAnEventStreamText());
        return;
    }
    if (m_parser.hasIncompleteLine() && !m_parser.sawEnd()) {
        failStream(tr("The connection was closed in the middle of the answer; the answer is incomplete."));
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
    const QString errorText = redacted(reply->errorString());
    const QUrl url = reply->url();
    const int httpStatus = httpStatusOf(reply);
    const QByteArray body = httpStatus >= 300 ? m_bodyHead + reply->read(kMaxKeptBodyBytes) : QByteArray();
    reply->deleteLater();

    if (code == QNetworkReply::OperationCanceledError) {
        qCDebug(lcAi).noquote() << "OpenAIClient: request canceled streamId =" << m_streamId;
        return;
    }
    if (httpStatus >= 300) {
        m_lastError = httpErrorText(httpStatus, body, errorText);
    } else if (code == QNetworkReply::RemoteHostClosedError && m_bodyBytes > 0) {
        // Servers that close instead of ending the body properly are common; once the answer said it was
        // complete, the close loses nothing.
        if (m_parser.sawEnd() && !m_parser.failed()) {
            qCDebug(lcAi).noquote() << "OpenAIClient: streamingFinished after close streamId =" << m_streamId
                                    << "fullLen =" << m_fullResponse.size();
            emit streamingFinished(m_fullResponse);
            return;
        }
        m_lastError = tr("The connection was closed in the middle of the answer; the answer is incomplete.");
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
    const QString problem = redirectProblem(configured, configured.resolved(target));
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
    if (m_fullResponse.isEmpty())
        failStream(tr("The provider did not answer within %1 seconds.").arg(secondsText(m_limits.idleMs)));
    else
        failStream(tr("The provider sent nothing for %1 seconds; the answer is incomplete.")
                       .arg(secondsText(m_limits.idleMs)));
}

void OpenAIClient::onTotalTimeout()
{
    failStream(
        tr("The answer took longer than %1 seconds and was stopped.").arg(secondsText(m_limits.totalMs)));
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
        failStream(tr("API error: %1").arg(redacted(m_parser.errorMessage())));
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
    if (const QString problem = settingsProblem(); !problem.isEmpty()) {
        m_lastError = problem;
        return QString();
    }
    ensureNetworkManager();
    const QNetworkRequest request = buildRequest(false);
    const QByteArray body = buildBody(m_model, prompt, false);
    const qsizetype maxBodyBytes = m_limits.maxBodyBytes;

    QEventLoop loop;
    QTimer timer;
    timer.setSingleShot(true);
    QNetworkReply *reply = m_networkManager->post(request, body);
    // The reply is deleted here rather than deferred: this call may run on a thread without an event loop.
    const std::unique_ptr<QNetworkReply> replyOwner(reply);
    // Read as it comes, so that an answer of any size costs at most the limit.
    QByteArray data;
    QString failure;
    const auto fail = [&](const QString &message) {
        failure = message;
        disconnect(reply, nullptr, &loop, nullptr);
        reply->abort();
        loop.quit();
    };
    connect(reply, &QNetworkReply::readyRead, &loop, [&] {
        data += reply->read(maxBodyBytes + 1 - data.size());
        if (data.size() > maxBodyBytes)
            fail(tr("The provider sent more than %1 MiB; the answer was stopped there.")
                     .arg(QLocale::c().toString(maxBodyBytes / 1048576.0, 'g', 3)));
    });
    connect(reply, &QNetworkReply::redirected, &loop, [&](const QUrl &target) {
        const QString problem = redirectProblem(request.url(), request.url().resolved(target));
        if (problem.isEmpty())
            emit reply->redirectAllowed();
        else
            fail(problem);
    });
    connect(reply, &QNetworkReply::finished, &loop, &QEventLoop::quit);
    connect(&timer, &QTimer::timeout, &loop, &QEventLoop::quit);
    timer.start(m_timeout);
    loop.exec();

    if (!failure.isEmpty()) {
        m_lastError = failure;
        return QString();
    }
    if (!timer.isActive()) {
        disconnect(reply, nullptr, &loop, nullptr);
        reply->abort();
        m_lastError = tr("Request timed out");
        return QString();
    }
    timer.stop();
    data += reply->read(maxBodyBytes + 1 - data.size());
    const int status = httpStatusOf(reply);
    if (status >= 300) {
        m_lastError = httpErrorText(status, data.left(kMaxKeptBodyBytes), reply->errorString());
        return QString();
    }
    if (reply->error() != QNetworkReply::NoError) {
        m_lastError = tr("Network error: %1").arg(redacted(reply->errorString()));
        return QString();
    }
    if (data.size() > maxBodyBytes) {
        m_lastError = tr("The provider sent more than %1 MiB; the answer was stopped there.")
                          .arg(QLocale::c().toString(maxBodyBytes / 1048576.0, 'g', 3));
        return QString();
    }
    QJsonParseError parseError;
    const QJsonDocument document = QJsonDocument::fromJson(data, &parseError);
    if (parseError.error != QJsonParseError::NoError) {
        m_lastError = tr("Failed to parse response: %1").arg(parseError.errorString());
        return QString();
    }
    const QJsonObject object = document.object();
    const QJsonValue error = object.value(QLatin1String("error"));
    if (!error.isUndefined() && !error.isNull()) {
        m_lastError = tr("API error: %1").arg(redacted(errorMessageOf(error)));
        return QString();
    }
    const QJsonArray choices = object.value(QLatin1String("choices")).toArray();
    if (choices.isEmpty()) {
        m_lastError = tr("No response from API");
        return QString();
    }
    return choices.at(0)
        .toObject()
        .value(QLatin1String("message"))
        .toObject()
        .value(QLatin1String("content"))
        .toString()
        .trimmed();
}
