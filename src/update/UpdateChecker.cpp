#include "update/UpdateChecker.h"

#include "log/LogCategories.h"

#include <QCoreApplication>
#include <QDebug>
#include <QJsonDocument>
#include <QJsonObject>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QSysInfo>
#include <QTimer>
#include <QUrlQuery>

#include <algorithm>

namespace {

const char kServiceHost[] = "https://vontrel.app";
const char kLatestPath[] = "/api/v1/updates/latest";

} // namespace

UpdateChecker::UpdateChecker(QObject *parent)
    : QObject(parent)
    , m_timeout(new QTimer(this))
    , m_serviceUrl(QString::fromLatin1(kServiceHost))
{
    m_timeout->setSingleShot(true);
    connect(m_timeout, &QTimer::timeout, this, &UpdateChecker::onTimeout);
}

UpdateChecker *UpdateChecker::instance()
{
    static UpdateChecker *checker = new UpdateChecker;
    return checker;
}

QString UpdateChecker::platformParam()
{
    // The service keeps one release line per platform; a Linux user must not be offered the macOS package.
    const QString kernel = QSysInfo::kernelType();
    if (kernel == QLatin1String("darwin"))
        return QStringLiteral("mac");
    if (kernel == QLatin1String("winnt"))
        return QStringLiteral("windows");
    return kernel;
}

QVector<quint64> UpdateChecker::parseVersion(const QString &version)
{
    const auto isDigitAt = [&version](int i) {
        return i < version.size() && version.at(i) >= QLatin1Char('0') && version.at(i) <= QLatin1Char('9');
    };
    QVector<quint64> numbers;
    int i = 0;
    while (isDigitAt(i)) {
        quint64 value = 0;
        for (; isDigitAt(i); ++i) {
            const quint64 digit = version.at(i).unicode() - '0';
            // A number too long for 64 bits saturates rather than wraps, so it still compares as huge.
            value = value > (~quint64(0) - digit) / 10 ? ~quint64(0) : value * 10 + digit;
        }
        numbers.append(value);
        // A dot continues the version only when a number follows it ("1.4." reads as 1.4).
        if (i < version.size() && version.at(i) == QLatin1Char('.') && isDigitAt(i + 1))
            ++i;
        else
            break;
    }
    return numbers;
}

int UpdateChecker::compareVersions(const QVector<quint64> &a, const QVector<quint64> &b)
{
    const int common = int(std::min(a.size(), b.size()));
    for (int i = 0; i < common; ++i) {
        if (a.at(i) != b.at(i))
            return a.at(i) < b.at(i) ? -1 : 1;
    }
    if (a.size() == b.size())
        return 0;
    return a.size() < b.size() ? -1 : 1;
}

void UpdateChecker::abortCurrentReply()
{
    QNetworkReply *reply = m_currentReply;
    m_currentReply = nullptr;
    m_timeout->stop();
    if (!reply)
        return;
    reply->disconnect(this);
    reply->abort();
    reply->deleteLater();
}

void UpdateChecker::checkNow()
{
    if (m_busy) {
        emit checkFailed(tr("Update check already in progress"));
        return;
    }
    setBusy(true);
    if (!m_network)
        m_network = new QNetworkAccessManager(this);
    abortCurrentReply();

    QUrl url = m_serviceUrl;
    url.setPath(QString::fromLatin1(kLatestPath));
    QUrlQuery query;
    query.addQueryItem(QStringLiteral("platform"), platformParam());
    query.addQueryItem(QStringLiteral("channel"), QStringLiteral("stable"));
    query.addQueryItem(QStringLiteral("current_version"),
                       QString::fromUtf8(QUrl::toPercentEncoding(QCoreApplication::applicationVersion())));
    url.setQuery(query);

    QNetworkRequest request(url);
    request.setHeader(QNetworkRequest::ContentTypeHeader, QStringLiteral("application/json"));
    qCDebug(lcUpdate).noquote() << "UpdateChecker: checking" << url.toString();

    QNetworkReply *reply = m_network->get(request);
    m_currentReply = reply;
    connect(reply, &QNetworkReply::finished, this, [this, reply] { onReplyFinished(reply); });
    m_timeout->start(m_timeoutMs);
}

void UpdateChecker::onTimeout()
{
    if (!m_currentReply)
        return;
    qCWarning(lcUpdate).noquote() << "UpdateChecker: no answer within" << m_timeoutMs << "ms, giving up";
    abortCurrentReply();
    setBusy(false);
    emit checkFailed(
        tr("Update check failed: the server did not answer in time (%1 s)").arg((m_timeoutMs + 999) / 1000));
}

void UpdateChecker::onReplyFinished(QNetworkReply *reply)
{
    if (reply == m_currentReply) {
        m_currentReply = nullptr;
        m_timeout->stop();
    }
    setBusy(false);

    const QByteArray body = reply->readAll();
    const int status = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
    const QString errorText = reply->error() != QNetworkReply::NoError ? reply->errorString() : QString();
    reply->deleteLater();

    if (!errorText.isEmpty()) {
        qCWarning(lcUpdate).noquote() << "UpdateChecker: request failed:" << errorText;
        emit checkFailed(errorText);
        return;
    }
    if (status < 200 || status > 299) {
        emit checkFailed(tr("Update check failed (HTTP %1)").arg(status));
        return;
    }

    QJsonParseError parseError;
    const QJsonDocument document = QJsonDocument::fromJson(body, &parseError);
    if (parseError.error != QJsonParseError::NoError || !document.isObject()) {
        emit checkFailed(tr("Update check failed: invalid response"));
        return;
    }
    const QJsonObject object = document.object();
    const QString latestVersion = object.value(QLatin1String("latest_version")).toString();
    const QString downloadUrl = object.value(QLatin1String("download_url")).toString();
    if (latestVersion.isEmpty() || downloadUrl.isEmpty()) {
        emit checkFailed(tr("Update check failed: missing fields"));
        return;
    }

    const QVector<quint64> current = parseVersion(QCoreApplication::applicationVersion());
    const QVector<quint64> latest = parseVersion(latestVersion);
    if (current.isEmpty() || latest.isEmpty()) {
        emit checkFailed(tr("Update check failed: invalid version format"));
        return;
    }

    const bool updateAvailable = compareVersions(latest, current) > 0;
    qCInfo(lcUpdate).noquote() << "UpdateChecker: latest" << latestVersion << "current"
                               << QCoreApplication::applicationVersion() << "updateAvailable"
                               << updateAvailable;
    emit checkSucceeded(updateAvailable, latestVersion, QUrl(downloadUrl));
}
