#include "ai/OpenAIClient.h"

#include <QCoreApplication>
#include <QDebug>
#include <QEventLoop>
#include <QFutureWatcher>
#include <QHostAddress>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QJsonParseError>
#include <QNetworkAccessManager>
#include <QNetworkProxyFactory>
#include <QNetworkRequest>
#include <QSysInfo>
#include <QTcpSocket>
#include <QTimer>
#include <QUrl>
#include <QtConcurrent/QtConcurrentRun>

#include <memory>

#include <rapidjson/document.h>
#include <rapidjson/error/en.h>

namespace {

const char kStreamIdProperty[] = "streamId";
const QByteArray kDataPrefix = QByteArrayLiteral("data: ");
const QByteArray kDoneMarker = QByteArrayLiteral("[DONE]");
constexpr int kWarmUpTimeoutMs = 5000;

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

bool isBlank(char c)
{
    return c == ' ' || c == '\t' || c == '\r' || c == '\n' || c == '\v' || c == '\f';
}

// The text of an "error" member: the "message" of an error object, or the member itself when a service sends
// a plain string.
QString errorMessageOf(const QJsonValue &error)
{
    if (error.isString())
        return error.toString();
    return error.toObject().value(QLatin1String("message")).toString();
}

QString stringOf(const rapidjson::Value &value)
{
    // Malformed UTF-8 becomes replacement characters rather than costing the whole piece.
    return value.IsString() ? QString::fromUtf8(value.GetString(), qsizetype(value.GetStringLength()))
                            : QString();
}

QString errorMessageOf(const rapidjson::Value &error)
{
    if (error.IsString())
        return stringOf(error);
    if (!error.IsObject())
        return QString();
    const auto message = error.FindMember("message");
    return message != error.MemberEnd() ? stringOf(message->value) : QString();
}

// choices[0].delta.content when it is a string; empty otherwise.
QString deltaContentOf(const rapidjson::Value &object)
{
    const auto choices = object.FindMember("choices");
    if (choices == object.MemberEnd() || !choices->value.IsArray() || choices->value.Empty())
        return QString();
    const rapidjson::Value &choice = choices->value[0];
    if (!choice.IsObject())
        return QString();
    const auto delta = choice.FindMember("delta");
    if (delta == choice.MemberEnd() || !delta->value.IsObject())
        return QString();
    const auto content = delta->value.FindMember("content");
    return content != delta->value.MemberEnd() ? stringOf(content->value) : QString();
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
    : QObject(parent)
    , m_apiUrl(QStringLiteral("https://api.openai.com/v1"))
    , m_model(QStringLiteral("gpt-4o-mini"))
{}

OpenAIClient::OpenAIClient(const QString &apiUrl, const QString &apiKey, const QString &model,
                           QObject *parent)
    : QObject(parent)
    , m_apiUrl(apiUrl)
    , m_apiKey(apiKey)
    , m_model(model)
{}

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
    m_pendingData.clear();
    m_fullResponse.clear();

    if (!isConfigured()) {
        m_lastError = tr("API not configured. Please set API URL and key in config.");
        emit streamingError(m_lastError);
        return;
    }

    ensureNetworkManager();
    cancelRequest();
    const quint64 streamId = ++m_streamId;

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
                    qDebug().noquote()
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
    qDebug().noquote() << "OpenAIClient: completeStreaming started streamId =" << streamId
                       << "reply =" << reply;
    setupReplyConnections(reply);
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
        auto line = qDebug().noquote();
        line << QStringLiteral("OpenAIClient: %1 ignored stale reply =").arg(QLatin1String(what)) << reply
             << "replyStreamId =" << replyStreamId << "currentStreamId =" << m_streamId;
        if (!errorText.isNull())
            line << "error =" << errorText;
        dropReply(reply, abort);
        return ReplyKind::Stale;
    }
    if (reply != m_currentReply) {
        qDebug().noquote()
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
    processSSEData(reply->readAll());
}

void OpenAIClient::onStreamFinished()
{
    auto *reply = qobject_cast<QNetworkReply *>(sender());
    if (!reply || classifyReply(reply, "finished") != ReplyKind::Current)
        return;
    const QByteArray rest = reply->readAll();
    dropReply(reply, false);
    m_currentReply = nullptr;
    if (!rest.isEmpty())
        processSSEData(rest);
    if (m_lastError.isEmpty()) {
        qDebug().noquote() << "OpenAIClient: streamingFinished streamId =" << m_streamId
                           << "fullLen =" << m_fullResponse.size();
        emit streamingFinished(m_fullResponse);
    }
}

void OpenAIClient::onStreamError(QNetworkReply::NetworkError code)
{
    auto *reply = qobject_cast<QNetworkReply *>(sender());
    if (!reply || classifyReply(reply, "error", QString::number(code)) != ReplyKind::Current)
        return;
    disconnect(reply, nullptr, this, nullptr);
    m_currentReply = nullptr;
    const QString errorText = reply->errorString();
    const QUrl url = reply->url();
    const QVariant httpStatus = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute);
    reply->deleteLater();

    if (code == QNetworkReply::OperationCanceledError) {
        qDebug().noquote() << "OpenAIClient: request canceled streamId =" << m_streamId;
        return;
    }
    m_lastError = tr("Network error: %1").arg(errorText);
    qWarning().noquote() << "OpenAIClient: streamingError streamId =" << m_streamId << "error =" << code
                         << "message =" << errorText << "url =" << url.toString(QUrl::RemoveUserInfo)
                         << "httpStatus =" << httpStatus.toInt();
    emit streamingError(m_lastError);
}

void OpenAIClient::processSSEData(const QByteArray &data)
{
    // After an error object the stream is over: whatever the service still sends is not part of an answer.
    if (!m_lastError.isEmpty())
        return;
    m_pendingData.append(data);

    // Lines are taken by offset and the consumed prefix removed once, so a large read costs linear time.
    qsizetype consumed = 0;
    for (;;) {
        const qsizetype lineFeed = m_pendingData.indexOf('\n', consumed);
        if (lineFeed < 0)
            break;
        qsizetype begin = consumed;
        qsizetype end = lineFeed;
        consumed = lineFeed + 1;
        while (begin < end && isBlank(m_pendingData.at(begin)))
            ++begin;
        while (end > begin && isBlank(m_pendingData.at(end - 1)))
            --end;
        if (end - begin < kDataPrefix.size() ||
            QByteArrayView(m_pendingData.constData() + begin, kDataPrefix.size()) != kDataPrefix) {
            continue;
        }
        const char *payload = m_pendingData.constData() + begin + kDataPrefix.size();
        const size_t payloadLength = size_t(end - begin - kDataPrefix.size());
        if (QByteArrayView(payload, qsizetype(payloadLength)) == kDoneMarker)
            continue;

        // RapidJSON with stack buffers for its allocators: a delta is parsed without touching the heap, which
        // keeps the parser far ahead of any network (the toolkit's JSON classes cost several times as much).
        char valueBuffer[4096];
        char parseBuffer[1024];
        rapidjson::MemoryPoolAllocator<> valueAllocator(valueBuffer, sizeof valueBuffer);
        rapidjson::MemoryPoolAllocator<> parseAllocator(parseBuffer, sizeof parseBuffer);
        using PooledDocument = rapidjson::GenericDocument<rapidjson::UTF8<>, rapidjson::MemoryPoolAllocator<>,
                                                          rapidjson::MemoryPoolAllocator<>>;
        PooledDocument document(&valueAllocator, sizeof parseBuffer, &parseAllocator);
        document.Parse(payload, payloadLength);
        if (document.HasParseError()) {
            qWarning().noquote() << "Failed to parse SSE JSON:"
                                 << rapidjson::GetParseError_En(document.GetParseError()) << "at offset"
                                 << document.GetErrorOffset();
            continue;
        }
        if (!document.IsObject()) {
            qWarning().noquote() << "Failed to parse SSE JSON:"
                                 << "payload is not an object";
            continue;
        }
        const auto error = document.FindMember("error");
        if (error != document.MemberEnd() && !error->value.IsNull()) {
            m_pendingData.remove(0, consumed);
            m_lastError = tr("API error: %1").arg(errorMessageOf(error->value));
            emitErrorQueued(m_lastError);
            return;
        }
        const QString piece = deltaContentOf(document);
        if (!piece.isEmpty()) {
            m_fullResponse += piece;
            emit streamingChunk(piece);
        }
    }
    m_pendingData.remove(0, consumed);

    if (m_pendingData.size() > kMaxPendingLineBytes && m_currentReply)
        failStream(tr("Invalid response: a line of the event stream exceeds %1 MiB")
                       .arg(kMaxPendingLineBytes >> 20));
}

void OpenAIClient::failStream(const QString &message)
{
    QNetworkReply *reply = m_currentReply;
    m_currentReply = nullptr;
    m_pendingData.clear();
    m_pendingData.squeeze();
    dropReply(reply, true);
    m_lastError = message;
    qWarning().noquote() << "OpenAIClient: streamingError streamId =" << m_streamId << "message =" << message;
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
    qDebug().noquote() << "OpenAIClient: cancelRequest streamId ->" << m_streamId
                       << "hasReply =" << (m_currentReply ? "true" : "false");
    if (m_currentReply && m_networkManager) {
        QNetworkReply *reply = m_currentReply;
        m_currentReply = nullptr;
        disconnect(reply, nullptr, this, nullptr);
        qDebug().noquote() << "OpenAIClient: cancelRequest aborting reply =" << reply;
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
    ensureNetworkManager();
    const QNetworkRequest request = buildRequest(false);
    const QByteArray body = buildBody(m_model, prompt, false);

    QEventLoop loop;
    QTimer timer;
    timer.setSingleShot(true);
    QNetworkReply *reply = m_networkManager->post(request, body);
    // The reply is deleted here rather than deferred: this call may run on a thread without an event loop.
    const std::unique_ptr<QNetworkReply> replyOwner(reply);
    connect(reply, &QNetworkReply::finished, &loop, &QEventLoop::quit);
    connect(&timer, &QTimer::timeout, &loop, &QEventLoop::quit);
    timer.start(m_timeout);
    loop.exec();

    if (!timer.isActive()) {
        disconnect(reply, nullptr, &loop, nullptr);
        reply->abort();
        m_lastError = tr("Request timed out");
        return QString();
    }
    timer.stop();
    if (reply->error() != QNetworkReply::NoError) {
        m_lastError = tr("Network error: %1").arg(reply->errorString());
        return QString();
    }
    const QByteArray data = reply->readAll();
    QJsonParseError parseError;
    const QJsonDocument document = QJsonDocument::fromJson(data, &parseError);
    if (parseError.error != QJsonParseError::NoError) {
        m_lastError = tr("Failed to parse response: %1").arg(parseError.errorString());
        return QString();
    }
    const QJsonObject object = document.object();
    const QJsonValue error = object.value(QLatin1String("error"));
    if (!error.isUndefined() && !error.isNull()) {
        m_lastError = tr("API error: %1").arg(errorMessageOf(error));
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
