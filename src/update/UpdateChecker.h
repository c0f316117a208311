#pragma once

#include <QObject>
#include <QString>
#include <QUrl>
#include <QVector>

class QNetworkAccessManager;
class QNetworkReply;
class QTimer;

// Asks the vendor's web service whether a newer release exists. Checks only when asked; every check ends in
// exactly one of the two signals. GUI thread only.
class UpdateChecker final : public QObject
{
    Q_OBJECT

public:
    static UpdateChecker *instance();

    // Starts one check; the answer comes later through checkSucceeded or checkFailed.
    void checkNow();

    // The "platform" value of the query.
    static QString platformParam();

    // Reads a version's leading dotted decimal numbers ("1.4.0-beta" gives 1,4,0); empty when the text does
    // not begin with a digit.
    static QVector<quint64> parseVersion(const QString &version);
    // Negative, zero or positive as a is older than, equal to or newer than b; a list that is a prefix of the
    // other is the older one (1.4 < 1.4.0).
    static int compareVersions(const QVector<quint64> &a, const QVector<quint64> &b);

    bool isBusy() const { return m_busy; }

    // The service asked; the vendor's host by default. Tests point it at a loopback server.
    QUrl serviceUrl() const { return m_serviceUrl; }
    void setServiceUrl(const QUrl &url) { m_serviceUrl = url; }
    // How long a check may wait for its answer before it fails (30 s by default).
    int timeoutMs() const { return m_timeoutMs; }
    void setTimeoutMs(int ms) { m_timeoutMs = ms; }

signals:
    void checkSucceeded(bool updateAvailable, const QString &latestVersion, const QUrl &downloadUrl);
    void checkFailed(const QString &message);

private:
    explicit UpdateChecker(QObject *parent = nullptr);

    void setBusy(bool busy) { m_busy = busy; }
    void abortCurrentReply();
    void onReplyFinished(QNetworkReply *reply);
    void onTimeout();

    bool m_busy = false;
    QNetworkAccessManager *m_network = nullptr;
    QNetworkReply *m_currentReply = nullptr;
    QTimer *m_timeout = nullptr;
    QUrl m_serviceUrl;
    int m_timeoutMs = 30000;
};
