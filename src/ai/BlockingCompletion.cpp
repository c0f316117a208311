#include "ai/BlockingCompletion.h"

#include "ai/ProviderErrors.h"

#include <QCoreApplication>
#include <QEventLoop>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QJsonParseError>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QTimer>

#include <memory>

QString vontrelCompleteBlocking(QNetworkAccessManager *manager, const QNetworkRequest &request,
                                const QByteArray &body, int timeoutMs, qsizetype maxBodyBytes,
                                const ProviderErrors &errors, QString *error)
{
    // The texts keep the client's translation context: the user reads them as the client's.
    QEventLoop loop;
    QTimer timer;
    timer.setSingleShot(true);
    QNetworkReply *reply = manager->post(request, body);
    // The reply is deleted here rather than deferred: this call may run on a thread without an event loop.
    const std::unique_ptr<QNetworkReply> replyOwner(reply);
    // Read as it comes, so that an answer of any size costs at most the limit.
    QByteArray data;
    QString failure;
    const auto fail = [&](const QString &message) {
        failure = message;
        QObject::disconnect(reply, nullptr, &loop, nullptr);
        reply->abort();
        loop.quit();
    };
    QObject::connect(reply, &QNetworkReply::readyRead, &loop, [&] {
        data += reply->read(maxBodyBytes + 1 - data.size());
        if (data.size() > maxBodyBytes)
            fail(ProviderErrors::bodyLimitText(maxBodyBytes));
    });
    // Qt would follow a redirect back to an address already asked until its own count runs out, and then
    // ends the reply in a way that depends on timing; a loop is known as soon as it closes.
    QList<QUrl> asked{request.url()};
    QObject::connect(reply, &QNetworkReply::redirected, &loop, [&](const QUrl &target) {
        const QUrl next = request.url().resolved(target);
        QString problem = ProviderErrors::redirectProblem(request.url(), next);
        if (problem.isEmpty() && asked.contains(next))
            problem = ProviderErrors::redirectLoopText(
                reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt());
        asked.append(next);
        if (problem.isEmpty())
            emit reply->redirectAllowed();
        else
            fail(problem);
    });
    QObject::connect(reply, &QNetworkReply::finished, &loop, &QEventLoop::quit);
    QObject::connect(&timer, &QTimer::timeout, &loop, &QEventLoop::quit);
    timer.start(timeoutMs);
    loop.exec();

    if (!failure.isEmpty()) {
        *error = failure;
        return QString();
    }
    if (!timer.isActive()) {
        QObject::disconnect(reply, nullptr, &loop, nullptr);
        reply->abort();
        *error = QCoreApplication::translate("OpenAIClient", "Request timed out");
        return QString();
    }
    timer.stop();
    data += reply->read(maxBodyBytes + 1 - data.size());
    const int status = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
    if (status >= 300) {
        *error =
            errors.httpErrorText(status, data.left(ProviderErrors::kMaxKeptBodyBytes), reply->errorString());
        return QString();
    }
    if (reply->error() != QNetworkReply::NoError) {
        *error = QCoreApplication::translate("OpenAIClient", "Network error: %1")
                     .arg(errors.redacted(reply->errorString()));
        return QString();
    }
    if (data.size() > maxBodyBytes) {
        *error = ProviderErrors::bodyLimitText(maxBodyBytes);
        return QString();
    }
    return vontrelCompletionContent(data, errors, error);
}

QString vontrelCompletionContent(const QByteArray &data, const ProviderErrors &errors, QString *error)
{
    QJsonParseError parseError;
    const QJsonDocument document = QJsonDocument::fromJson(data, &parseError);
    if (parseError.error != QJsonParseError::NoError) {
        *error = QCoreApplication::translate("OpenAIClient", "Failed to parse response: %1")
                     .arg(parseError.errorString());
        return QString();
    }
    const QJsonObject object = document.object();
    const QJsonValue errorMember = object.value(QLatin1String("error"));
    if (!errorMember.isUndefined() && !errorMember.isNull()) {
        *error = QCoreApplication::translate("OpenAIClient", "API error: %1")
                     .arg(errors.redacted(ProviderErrors::errorMemberText(errorMember)));
        return QString();
    }
    const QJsonArray choices = object.value(QLatin1String("choices")).toArray();
    if (choices.isEmpty()) {
        *error = QCoreApplication::translate("OpenAIClient", "No response from API");
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
