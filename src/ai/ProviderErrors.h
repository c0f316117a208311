#pragma once

#include <QByteArray>
#include <QCoreApplication>
#include <QString>

class QJsonValue;
class QUrl;

// Texts that tell the user why a request failed. They quote the provider and the network layer, which may
// echo the request back, so the settings' credentials (the URL's user name and password, the API key) are
// taken out of every one of them.
class ProviderErrors final
{
    // The user reads these as the client's texts; sharing its context keeps their translations.
    Q_DECLARE_TR_FUNCTIONS(OpenAIClient)

public:
    // Enough for any error object or to recognise a page; the rest of such a body is not kept.
    static constexpr qsizetype kMaxKeptBodyBytes = 64 * 1024;

    ProviderErrors(const QString &apiUrl, const QString &apiKey);

    // The text with the URL's user name and password and the API key taken out.
    QString redacted(QString text) const;
    // The provider's message for an HTTP error status, or the network layer's text when the body has none.
    QString httpErrorText(int status, const QByteArray &body, const QString &networkText) const;
    // What came back instead of an event stream, from the first bytes of the body and its content type.
    QString notAnEventStreamText(const QByteArray &bodyHead, qsizetype bodyBytes,
                                 const QString &contentType) const;

    // Why a request with these settings must not be sent; empty when it may.
    static QString settingsProblem(const QString &apiUrl, const QString &apiKey);
    // A warning when the API key would travel unencrypted (plain http) to a host that is not on this machine
    // or the local network; empty otherwise. Plain http is common on local networks, so it never blocks.
    static QString clearTextWarning(const QString &apiUrl);
    // Why a redirect from the configured address must not be followed; empty when it stays on its origin.
    static QString redirectProblem(const QUrl &from, const QUrl &to);
    // A redirect that cannot lead to an answer: back to an address already asked, or the end of the chain.
    static QString redirectLoopText(int status);
    static QString bodyLimitText(qsizetype maxBodyBytes);
    // A stream that went quiet for the idle limit, before or after the first piece of the answer.
    static QString idleText(int idleMs, bool afterContent);
    static QString totalTimeText(int totalMs);
    // The text of an "error" member; empty when it carries none.
    static QString errorMemberText(const QJsonValue &error);
    // The provider's own explanation in an error body, shortened for a window; empty when there is none.
    static QString providerMessage(const QByteArray &body);

private:
    QString m_apiUrl;
    QString m_apiKey;
};
