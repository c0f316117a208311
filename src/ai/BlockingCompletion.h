#pragma once

#include <QByteArray>
#include <QString>

class ProviderErrors;
class QNetworkAccessManager;
class QNetworkRequest;

// One chat-completions call that waits for the whole answer, bounded by timeoutMs and maxBodyBytes. The
// trimmed answer, or empty with *error set to the reason.
QString vontrelCompleteBlocking(QNetworkAccessManager *manager, const QNetworkRequest &request,
                                const QByteArray &body, int timeoutMs, qsizetype maxBodyBytes,
                                const ProviderErrors &errors, QString *error);
