#pragma once

#include <QByteArray>
#include <QString>

class QNetworkProxyFactory;
class QNetworkRequest;

// The wire format of a chat-completions request: where it goes, its headers and its body.

// The endpoint for a base URL: "/chat/completions" is appended unless the URL already ends with it.
QString vontrelChatEndpoint(const QString &apiUrl);
// "Vontrel.app/<version> (<os>; <arch>)".
QByteArray vontrelUserAgent();
QNetworkRequest vontrelChatRequest(const QString &apiUrl, const QString &apiKey, bool streaming);
QByteArray vontrelChatBody(const QString &model, const QString &prompt, bool streaming);
// The system's proxy settings, except that a service on this machine is reached directly. The caller owns it.
QNetworkProxyFactory *vontrelNewProxyFactory();
