#include "ai/ChatRequest.h"

#include <QCoreApplication>
#include <QHostAddress>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QNetworkProxyFactory>
#include <QNetworkRequest>
#include <QSysInfo>
#include <QUrl>

namespace {

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

} // namespace

QString vontrelChatEndpoint(const QString &apiUrl)
{
    static const QString suffix = QStringLiteral("/chat/completions");
    if (apiUrl.endsWith(suffix))
        return apiUrl;
    QString url = apiUrl;
    if (!url.endsWith(QLatin1Char('/')))
        url += QLatin1Char('/');
    return url + QLatin1String("chat/completions");
}

QByteArray vontrelUserAgent()
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

QNetworkRequest vontrelChatRequest(const QString &apiUrl, const QString &apiKey, bool streaming)
{
    QNetworkRequest request{QUrl(vontrelChatEndpoint(apiUrl))};
    request.setHeader(QNetworkRequest::ContentTypeHeader, QByteArrayLiteral("application/json"));
    request.setRawHeader(QByteArrayLiteral("Authorization"),
                         QStringLiteral("Bearer %1").arg(apiKey).toUtf8());
    if (streaming)
        request.setRawHeader(QByteArrayLiteral("Accept"), QByteArrayLiteral("text/event-stream"));
    request.setRawHeader(QByteArrayLiteral("User-Agent"), vontrelUserAgent());
    if (request.url().host().endsWith(kOpenRouterHost, Qt::CaseInsensitive)) {
        request.setRawHeader(QByteArrayLiteral("HTTP-Referer"), kVendorSite);
        request.setRawHeader(QByteArrayLiteral("X-OpenRouter-Title"), kOpenRouterTitle);
    }
    if (streaming) {
        // Some services stall or buffer event streams over HTTP/2; HTTP/1.1 delivers each chunk as it comes.
        request.setAttribute(QNetworkRequest::Http2AllowedAttribute, false);
    }
    // The toolkit would repeat every header, the key included, to wherever a redirect points; each redirect
    // is checked against the configured origin before it is followed.
    request.setAttribute(QNetworkRequest::RedirectPolicyAttribute,
                         QNetworkRequest::UserVerifiedRedirectPolicy);
    return request;
}

QByteArray vontrelChatBody(const QString &model, const QString &prompt, bool streaming)
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

QNetworkProxyFactory *vontrelNewProxyFactory()
{
    return new SystemProxyFactory;
}
