#include "LoopbackHttpServer.h"
#include "update/UpdateChecker.h"

#include <QtTest>

namespace {

QByteArray answer(const QByteArray &version, const QByteArray &url = "https://e.test/v2")
{
    return "{\"latest_version\":" + version + ",\"download_url\":\"" + url + "\"}";
}

} // namespace

class TestUpdateChecker : public QObject
{
    Q_OBJECT

    LoopbackHttpServer m_server;
    UpdateChecker *m_checker = UpdateChecker::instance();

private slots:
    void initTestCase()
    {
        QCoreApplication::setApplicationVersion("1.9.3");
        QVERIFY(m_server.listen());
        m_checker->setServiceUrl(QUrl(m_server.baseUrl(QString())));
    }

    void answers_data()
    {
        QTest::addColumn<int>("status");
        QTest::addColumn<QByteArray>("body");
        QTest::addColumn<QString>("result"); // "newer", "current" or the failure message
        const auto row = [](const char *name, int status, const QByteArray &body, const char *result) {
            QTest::newRow(name) << status << body << QString::fromLatin1(result);
        };
        const char *invalid = "Update check failed: invalid response";
        const char *missing = "Update check failed: missing fields";
        row("newer", 200, answer("\"2.0.1\""), "newer");
        row("equal", 200, answer("\"1.9.3\""), "current");
        row("numeric, not textual", 200, answer("\"1.10.0\""), "newer");
        row("leading v", 200, answer("\"v1.2\""), "Update check failed: invalid version format");
        row("missing url", 200, "{\"latest_version\":\"3.0\"}", missing);
        row("invalid json", 200, "{\"latest_version\": ", invalid);
        row("no content", 204, QByteArray(), invalid);
        row("404", 404, "<html>Gone</html>", "Not Found");
    }

    void answers()
    {
        QFETCH(int, status);
        QFETCH(QByteArray, body);
        QFETCH(QString, result);
        m_server.enqueue(ScriptedResponse::json(status, body));
        QSignalSpy succeeded(m_checker, &UpdateChecker::checkSucceeded);
        QSignalSpy failed(m_checker, &UpdateChecker::checkFailed);
        m_checker->checkNow();
        QTRY_COMPARE_WITH_TIMEOUT(succeeded.count() + failed.count(), 1, 20000);
        QVERIFY(!m_checker->isBusy());
        const QString actual = failed.isEmpty() ? (succeeded.at(0).at(0).toBool() ? "newer" : "current")
                                                : failed.at(0).at(0).toString();
        // A 404 is reported in the network layer's words, not as "invalid response".
        QVERIFY2(result == "Not Found" ? actual.contains(result) && !actual.startsWith("Update")
                                       : actual == result,
                 qPrintable(actual));
    }

    void requestCarriesPlatformChannelAndVersion()
    {
        QCoreApplication::setApplicationVersion("1.9.3+local build");
        m_server.enqueue(ScriptedResponse::json(200, answer("\"2\"")));
        QSignalSpy succeeded(m_checker, &UpdateChecker::checkSucceeded);
        m_checker->checkNow();
        QVERIFY(succeeded.wait(20000));
        QCoreApplication::setApplicationVersion("1.9.3");
        QCOMPARE(succeeded.at(0).at(2).toUrl(), QUrl("https://e.test/v2"));

        const RecordedRequest request = m_server.requests().last();
        QCOMPARE(request.method + ' ' + request.path(), QByteArray("GET /api/v1/updates/latest"));
        // The plus sign must be escaped: a server reading the query as a form would otherwise see a blank.
        QVERIFY(!request.target.contains('+'));
        const QList<QPair<QString, QString>> expected = {{"platform", UpdateChecker::platformParam()},
                                                         {"channel", "stable"},
                                                         {"current_version", "1.9.3+local build"}};
        QCOMPARE(QUrlQuery(QUrl(QString::fromLatin1(request.target))).queryItems(QUrl::FullyDecoded),
                 expected);
    }

    void busyAndTimeBound()
    {
        m_server.enqueue(ScriptedResponse::json(200, QByteArray()).holdUntilReleased().send(answer("\"3\"")));
        m_checker->setTimeoutMs(300);
        QSignalSpy succeeded(m_checker, &UpdateChecker::checkSucceeded);
        QSignalSpy failed(m_checker, &UpdateChecker::checkFailed);
        m_checker->checkNow();
        m_checker->checkNow();
        QCOMPARE(failed.count(), 1);
        QCOMPARE(failed.at(0).at(0).toString(), "Update check already in progress");
        QVERIFY(failed.wait(20000) && !m_checker->isBusy());
        QCOMPARE(failed.at(1).at(0).toString(),
                 "Update check failed: the server did not answer in time (1 s)");

        // The abandoned request stays silent and the next check works normally.
        m_server.releaseHeld();
        m_checker->setTimeoutMs(30000);
        m_server.enqueue(ScriptedResponse::json(200, answer("\"1\"")));
        m_checker->checkNow();
        QVERIFY(succeeded.wait(20000) && failed.count() == 2);
    }
};

QTEST_GUILESS_MAIN(TestUpdateChecker)
#include "test_updatechecker.moc"
