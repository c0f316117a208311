#include "ai/ProviderErrors.h"

#include "ai/ChatRequest.h"

#include <QHostAddress>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLocale>
#include <QUrl>

#include <algorithm>

namespace {

// A provider's error text is shown in a window or a terminal line, not as a page.
constexpr int kMaxProviderMessageChars = 500;

bool hasControlCharacter(const QString &text)
{
    return std::any_of(text.cbegin(), text.cend(),
                       [](QChar c) { return c.category() == QChar::Other_Control; });
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

// This machine, a private or link-local address, or a name only a local network resolves (one without a
// dot, or under a suffix reserved for local use).
bool isLocalHost(const QString &host)
{
    const QHostAddress address(host);
    if (!address.isNull()) {
        static const QPair<QHostAddress, int> kLocalRanges[] = {
            QHostAddress::parseSubnet(QStringLiteral("10.0.0.0/8")),
            QHostAddress::parseSubnet(QStringLiteral("172.16.0.0/12")),
            QHostAddress::parseSubnet(QStringLiteral("192.168.0.0/16")),
            QHostAddress::parseSubnet(QStringLiteral("100.64.0.0/10")), // carrier-grade NAT, VPN meshes
            QHostAddress::parseSubnet(QStringLiteral("fc00::/7")),
        };
        return address.isLoopback() || address.isLinkLocal() ||
               std::any_of(std::begin(kLocalRanges), std::end(kLocalRanges),
                           [&address](const auto &range) { return address.isInSubnet(range); });
    }
    const QString name = host.toLower();
    static const char *const kLocalSuffixes[] = {".local", ".lan", ".home.arpa", ".internal", ".localhost"};
    return !name.contains(QLatin1Char('.')) ||
           std::any_of(std::begin(kLocalSuffixes), std::end(kLocalSuffixes),
                       [&name](const char *suffix) { return name.endsWith(QLatin1String(suffix)); });
}

} // namespace

ProviderErrors::ProviderErrors(const QString &apiUrl, const QString &apiKey)
    : m_apiUrl(apiUrl)
    , m_apiKey(apiKey)
{}

QString ProviderErrors::redacted(QString text) const
{
    const QUrl url(m_apiUrl);
    if (!url.userInfo().isEmpty()) {
        const QUrl endpoint(vontrelChatEndpoint(m_apiUrl));
        for (const QUrl &withUser : {url, endpoint}) {
            const QString bare = withUser.toString(QUrl::RemoveUserInfo);
            text.replace(withUser.toString(), bare);
            text.replace(withUser.toString(QUrl::FullyEncoded), bare);
            text.replace(withUser.toDisplayString(), bare);
        }
        text.replace(url.userInfo(QUrl::FullyEncoded) + QLatin1Char('@'), QString());
        // userInfo() refuses FullyDecoded (it warns and returns nothing); the decoded form is built by hand.
        const QString password = url.password(QUrl::FullyDecoded);
        text.replace(url.userName(QUrl::FullyDecoded) +
                         (password.isEmpty() ? QString() : QLatin1Char(':') + password) + QLatin1Char('@'),
                     QString());
    }
    // Short secrets would match ordinary words; what is left of them after the above is not worth that.
    for (const QString &secret :
         {url.password(QUrl::FullyDecoded), url.password(QUrl::FullyEncoded), m_apiKey}) {
        if (secret.size() >= 4)
            text.replace(secret, QStringLiteral("***"));
    }
    return text;
}

QString ProviderErrors::httpErrorText(int status, const QByteArray &body, const QString &networkText) const
{
    const QString message = providerMessage(body);
    if (!message.isEmpty())
        return tr("API error %1: %2").arg(status).arg(redacted(message));
    // A redirect that ends as the answer was not followed to its end: it leads back round, or nowhere.
    if (status >= 300 && status < 400)
        return redirectLoopText(status);
    return tr("Network error: %1 (HTTP %2)").arg(redacted(networkText)).arg(status);
}

QString ProviderErrors::notAnEventStreamText(const QByteArray &bodyHead, qsizetype bodyBytes,
                                             const QString &contentType) const
{
    const QString message = providerMessage(bodyHead);
    if (!message.isEmpty())
        return tr("API error: %1").arg(redacted(message));
    if (bodyBytes == 0)
        return tr("The provider sent an empty answer.");
    if (contentType == QLatin1String("text/event-stream"))
        return tr("The provider's event stream carried no data.");
    return tr("The provider answered with %1, not an event stream.")
        .arg(contentType.isEmpty() ? tr("text of no stated type") : contentType);
}

QString ProviderErrors::settingsProblem(const QString &apiUrl, const QString &apiKey)
{
    // A line break would end the header early and let the rest pass as headers of its own.
    if (hasControlCharacter(apiKey))
        return tr("The API key contains a line break or another control character. Paste the key again.");
    if (hasControlCharacter(apiUrl))
        return tr("The API URL contains a line break or another control character.");
    if (!isHttpUrl(QUrl(vontrelChatEndpoint(apiUrl))))
        return tr("The API URL is not an http or https address.");
    return QString();
}

QString ProviderErrors::clearTextWarning(const QString &apiUrl)
{
    const QUrl url(vontrelChatEndpoint(apiUrl));
    if (!isHttpUrl(url) || url.scheme().compare(QLatin1String("http"), Qt::CaseInsensitive) != 0 ||
        isLocalHost(url.host()))
        return QString();
    return tr("The API key is sent unencrypted to %1, which is not on this machine or your local network. "
              "Use an https address unless you trust every network in between.")
        .arg(url.host());
}

QString ProviderErrors::redirectProblem(const QUrl &from, const QUrl &to)
{
    if (sameOrigin(from, to))
        return QString();
    return tr("The provider redirected the request to %1; Vontrel does not send the API key to another "
              "server. "
              "Set the API URL to the address that answers.")
        .arg(to.adjusted(QUrl::RemoveUserInfo | QUrl::RemovePath | QUrl::RemoveQuery | QUrl::RemoveFragment)
                 .toString());
}

QString ProviderErrors::redirectLoopText(int status)
{
    return tr("The provider redirected the request (HTTP %1), and the redirect could not be followed to "
              "an "
              "answer; check the API address.")
        .arg(status);
}

QString ProviderErrors::idleText(int idleMs, bool afterContent)
{
    const QString seconds = QLocale::c().toString(idleMs / 1000.0, 'g', 3);
    return afterContent
               ? tr("The provider sent nothing for %1 seconds; the answer is incomplete.").arg(seconds)
               : tr("The provider did not answer within %1 seconds.").arg(seconds);
}

QString ProviderErrors::totalTimeText(int totalMs)
{
    return tr("The answer took longer than %1 seconds and was stopped.")
        .arg(QLocale::c().toString(totalMs / 1000.0, 'g', 3));
}

QString ProviderErrors::bodyLimitText(qsizetype maxBodyBytes)
{
    return tr("The provider sent more than %1 MiB; the answer was stopped there.")
        .arg(QLocale::c().toString(maxBodyBytes / 1048576.0, 'g', 3));
}

QString ProviderErrors::errorMemberText(const QJsonValue &error)
{
    // Some services send a plain string instead of an error object.
    if (error.isString())
        return error.toString();
    return error.toObject().value(QLatin1String("message")).toString();
}

QString ProviderErrors::providerMessage(const QByteArray &body)
{
    // The shapes services use: {"error": {"message"}}, {"error": "text"}, {"message": "text"},
    // {"detail": "text"}, or any of these as the first element of an array.
    const QJsonDocument document = QJsonDocument::fromJson(body);
    const QJsonObject object = document.isArray() ? document.array().at(0).toObject() : document.object();
    QString message = errorMemberText(object.value(QLatin1String("error")));
    if (message.isEmpty())
        message = object.value(QLatin1String("message")).toString();
    if (message.isEmpty())
        message = object.value(QLatin1String("detail")).toString();
    message = message.simplified();
    if (message.size() > kMaxProviderMessageChars)
        message = message.left(kMaxProviderMessageChars) + QChar(0x2026);
    return message;
}
