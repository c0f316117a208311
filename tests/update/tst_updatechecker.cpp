#include "CannedHttpServer.h"
#include "update/UpdateChecker.h"

#include <QCoreApplication>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSignalSpy>
#include <QTest>
#include <QUrlQuery>

class TestUpdateChecker : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void answers_data();
    void answers();
    void requestCarriesPlatformChannelAndVersion();
    void secondCheckWhileBusyFailsAndFirstCompletes();
    void silentServerFailsAfterTheTimeBound();
    void receiverMayStartTheNextCheckAtOnce();

private:
    CannedHttpServer *m_server = nullptr;
};

void TestUpdateChecker::initTestCase()
{
    QCoreApplication::setApplicationVersion(QStringLiteral("1.9.3"));
    m_server = new CannedHttpServer(this);
    QVERIFY(m_server->listen());
    UpdateChecker::instance()->setServiceUrl(m_server->baseUrl());
}

void TestUpdateChecker::init()
{
    UpdateChecker::instance()->setTimeoutMs(30000);
    m_server->setResponse(CannedHttpServer::Response());
}

void TestUpdateChecker::answers_data()
{
    QTest::addColumn<int>("status");
    QTest::addColumn<QByteArray>("contentType");
    QTest::addColumn<QByteArray>("body");
    QTest::addColumn<bool>("succeeds");
    QTest::addColumn<bool>("updateAvailable");
    QTest::addColumn<QString>("message");

    const QByteArray json = "application/json";
    QTest::newRow("newer") << 200 << json
                           << QByteArray(
                                  R"({"latest_version":"2.0.1","download_url":"https://example.test/dl"})")
                           << true << true << QString();
    QTest::newRow("equal") << 200 << json
                           << QByteArray(
                                  R"({"latest_version":"1.9.3","download_url":"https://example.test/dl"})")
                           << true << false << QString();
    QTest::newRow("numeric, not textual")
        << 200 << json << QByteArray(R"({"latest_version":"1.10.0","download_url":"u"})") << true << true
        << QString();
    QTest::newRow("older") << 200 << json << QByteArray(R"({"latest_version":"1.9","download_url":"u"})")
                           << true << false << QString();
    QTest::newRow("longer is newer") << 200 << json
                                     << QByteArray(R"({"latest_version":"1.9.3.0","download_url":"u"})")
                                     << true << true << QString();
    QTest::newRow("suffix ignored") << 200 << json
                                    << QByteArray(R"({"latest_version":"1.9.3-beta","download_url":"u"})")
                                    << true << false << QString();
    QTest::newRow("extra members ignored")
        << 201 << json << QByteArray(R"({"latest_version":"1.9.4 build 7","download_url":"u","notes":[1]})")
        << true << true << QString();
    QTest::newRow("invalid json") << 200 << json << QByteArray("{\"latest_version\": ") << false << false
                                  << QStringLiteral("Update check failed: invalid response");
    QTest::newRow("array, not object") << 200 << json << QByteArray("[]") << false << false
                                       << QStringLiteral("Update check failed: invalid response");
    QTest::newRow("missing download url") << 200 << json << QByteArray(R"({"latest_version":"3.0"})") << false
                                          << false << QStringLiteral("Update check failed: missing fields");
    QTest::newRow("empty download url, newer")
        << 200 << json << QByteArray(R"({"latest_version":"3.0","download_url":""})") << false << false
        << QStringLiteral("Update check failed: missing fields");
    QTest::newRow("version not a string")
        << 200 << json << QByteArray(R"({"latest_version":3,"download_url":"u"})") << false << false
        << QStringLiteral("Update check failed: missing fields");
    QTest::newRow("leading v") << 200 << json << QByteArray(R"({"latest_version":"v1.2","download_url":"u"})")
                               << false << false
                               << QStringLiteral("Update check failed: invalid version format");
    QTest::newRow("no content status") << 204 << json << QByteArray() << false << false
                                       << QStringLiteral("Update check failed: invalid response");
}

void TestUpdateChecker::answers()
{
    QFETCH(int, status);
    QFETCH(QByteArray, contentType);
    QFETCH(QByteArray, body);
    QFETCH(bool, succeeds);
    QFETCH(bool, updateAvailable);
    QFETCH(QString, message);

    CannedHttpServer::Response response;
    response.status = status;
    response.reason = status == 204 ? "No Content" : "OK";
    response.contentType = contentType;
    response.body = body;
    m_server->setResponse(response);

    UpdateChecker *checker = UpdateChecker::instance();
    QSignalSpy succeeded(checker, &UpdateChecker::checkSucceeded);
    QSignalSpy failed(checker, &UpdateChecker::checkFailed);
    checker->checkNow();
    QTRY_COMPARE_WITH_TIMEOUT(succeeded.count() + failed.count(), 1, 20000);
    QVERIFY(!checker->isBusy());

    if (succeeds) {
        QCOMPARE(succeeded.count(), 1);
        QCOMPARE(succeeded.at(0).at(0).toBool(), updateAvailable);
        const QJsonValue latest =
            QJsonDocument::fromJson(body).object().value(QLatin1String("latest_version"));
        QCOMPARE(succeeded.at(0).at(1).toString(), latest.toString());
    } else {
        QCOMPARE(failed.count(), 1);
        QCOMPARE(failed.at(0).at(0).toString(), message);
    }
}

void TestUpdateChecker::requestCarriesPlatformChannelAndVersion()
{
    QCoreApplication::setApplicationVersion(QStringLiteral("1.9.3+local build"));
    const int before = int(m_server->requests().size());
    UpdateChecker *checker = UpdateChecker::instance();
    QSignalSpy succeeded(checker, &UpdateChecker::checkSucceeded);
    m_server->setResponse({200, "OK", "application/json",
                           R"({"latest_version":"2","download_url":"https://example.test/v2.tar.gz"})",
                           false});
    checker->checkNow();
    QVERIFY(succeeded.wait(20000));
    QCoreApplication::setApplicationVersion(QStringLiteral("1.9.3"));

    QCOMPARE(succeeded.at(0).at(2).toUrl(), QUrl(QStringLiteral("https://example.test/v2.tar.gz")));
    QCOMPARE(m_server->requests().size(), before + 1);
    const CannedHttpServer::Request request = m_server->requests().last();
    QCOMPARE(request.method, QByteArray("GET"));
    QCOMPARE(request.headers.value("content-type"), QByteArray("application/json"));
    QVERIFY(request.body.isEmpty());
    const QUrl target(QString::fromLatin1(request.target));
    QCOMPARE(target.path(), QStringLiteral("/api/v1/updates/latest"));
    const QList<QPair<QString, QString>> items = QUrlQuery(target).queryItems(QUrl::FullyDecoded);
    QCOMPARE(items.size(), 3);
    QCOMPARE(items.at(0).first, QStringLiteral("platform"));
    QCOMPARE(items.at(0).second, UpdateChecker::platformParam());
    QCOMPARE(items.at(1), qMakePair(QStringLiteral("channel"), QStringLiteral("stable")));
    // The plus sign must survive: a server reading the query as a form would otherwise see a blank.
    QCOMPARE(items.at(2), qMakePair(QStringLiteral("current_version"), QStringLiteral("1.9.3+local build")));
    QVERIFY(!request.target.contains('+'));
}

void TestUpdateChecker::secondCheckWhileBusyFailsAndFirstCompletes()
{
    m_server->setResponse({200, "OK", "application/json",
                           R"({"latest_version":"1.9.3","download_url":"https://example.test/"})", false});
    UpdateChecker *checker = UpdateChecker::instance();
    QSignalSpy succeeded(checker, &UpdateChecker::checkSucceeded);
    QSignalSpy failed(checker, &UpdateChecker::checkFailed);
    checker->checkNow();
    checker->checkNow();
    QCOMPARE(failed.count(), 1);
    QCOMPARE(failed.at(0).at(0).toString(), QStringLiteral("Update check already in progress"));
    QVERIFY(succeeded.wait(20000));
    QCOMPARE(succeeded.count(), 1);
    QCOMPARE(failed.count(), 1);
}

void TestUpdateChecker::silentServerFailsAfterTheTimeBound()
{
    CannedHttpServer::Response response;
    response.stall = true;
    m_server->setResponse(response);
    UpdateChecker *checker = UpdateChecker::instance();
    checker->setTimeoutMs(300);
    QSignalSpy succeeded(checker, &UpdateChecker::checkSucceeded);
    QSignalSpy failed(checker, &UpdateChecker::checkFailed);
    checker->checkNow();
    QVERIFY(checker->isBusy());
    QVERIFY(failed.wait(20000));
    QCOMPARE(failed.at(0).at(0).toString(),
             QStringLiteral("Update check failed: the server did not answer in time (1 s)"));
    QVERIFY(!checker->isBusy());

    // The abandoned request stays silent, and the next check works normally.
    m_server->setResponse(
        {200, "OK", "application/json", R"({"latest_version":"1","download_url":"u"})", false});
    checker->setTimeoutMs(30000);
    checker->checkNow();
    QVERIFY(succeeded.wait(20000));
    QCOMPARE(failed.count(), 1);
    QCOMPARE(succeeded.count(), 1);
}

void TestUpdateChecker::receiverMayStartTheNextCheckAtOnce()
{
    m_server->setResponse({404, "Not Found", "text/html", "<html><body>Not here</body></html>", false});
    UpdateChecker *checker = UpdateChecker::instance();
    QStringList messages;
    bool restarted = false;
    const QMetaObject::Connection connection =
        connect(checker, &UpdateChecker::checkFailed, this, [&](const QString &message) {
            messages << message;
            if (!restarted) {
                restarted = true;
                checker->checkNow();
            }
        });
    checker->checkNow();
    QTRY_COMPARE_WITH_TIMEOUT(messages.size(), 2, 20000);
    disconnect(connection);
    // A 404 is reported with the network layer's own text, not as a bare status.
    for (const QString &message : std::as_const(messages)) {
        QVERIFY2(!message.startsWith(QLatin1String("Update check")), qPrintable(message));
        QVERIFY2(message.contains(QLatin1String("Not Found")), qPrintable(message));
    }
}

QTEST_GUILESS_MAIN(TestUpdateChecker)
#include "tst_updatechecker.moc"
