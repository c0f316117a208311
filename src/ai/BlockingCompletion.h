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

// The trimmed answer of a whole chat completion in JSON, or empty with *error set to the reason (the
// service's own error, no choices, not JSON).
QString vontrelCompletionContent(const QByteArray &data, const ProviderErrors &errors, QString *error);
