#include "FakeHotkeyBackend.h"
#include "TestEnv.h"

#include "app/DebugLog.h"
#include "app/SingleInstance.h"
#include "app/VontrelApp.h"
#include "config/ConfigManager.h"
#include "update/UpdateChecker.h"

#include <QApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QLocalSocket>
#include <QProcess>
#include <QRegularExpression>
#include <QSignalSpy>
#include <QTest>

#include <atomic>
#include <thread>

using namespace Qt::StringLiterals;

const QString vontrelPath = TestEnv::binaryDir() + u"/src/vontrel"_s;

class TestStartup : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase()
    {
        QApplication::setApplicationName(u"Vontrel"_s);
        QApplication::setOrganizationName(u"Vontrel"_s);
        UpdateChecker::instance()->setServiceUrl(QUrl(u"http://127.0.0.1:1"_s));
        QVERIFY2(QFileInfo(vontrelPath).isExecutable(), qPrintable(vontrelPath));
    }

    // Without a display the program says why in one line; asked for help or the version, or given a bad
    // option, it answers on a plain terminal.
    void withoutDisplay_data()
    {
        QTest::addColumn<QString>("display"); // named but absent; empty: none named
        QTest::addColumn<QString>("option");
        QTest::addColumn<int>("exitCode");
        QTest::addColumn<QString>("stdoutStart");
        QTest::addColumn<QString>("stderrText");
        const QString session = u"Vontrel needs a graphical session (X11 or Wayland): "_s;
        QTest::newRow("none named") << QString() << QString() << 1 << QString()
                                    << session + "no display found\n";
        QTest::newRow("named but absent")
            << u":9999"_s << QString() << 1 << QString() << session + "could not connect to display :9999\n";
        QTest::newRow("version") << QString() << u"--version"_s << 0 << u"Vontrel " VONTREL_VERSION "\n"_s
                                 << QString();
        QTest::newRow("help") << QString() << u"--help"_s << 0 << u"Usage: vontrel [action]\n"_s << QString();
        QTest::newRow("unknown")
            << QString() << u"--bogus"_s << 2 << QString()
            << u"vontrel: unknown option '--bogus'\nTry 'vontrel --help' for more information.\n"_s;
    }

    void withoutDisplay()
    {
        QFETCH(QString, display);
        QFETCH(QString, option);
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        for (const char *name : {"WAYLAND_DISPLAY", "DISPLAY", "QT_QPA_PLATFORM"})
            env.remove(QString::fromLatin1(name));
        if (!display.isEmpty()) {
            env.insert(u"DISPLAY"_s, display);
            env.insert(u"QT_QPA_PLATFORM"_s, u"xcb"_s);
        }
        QProcess vontrel;
        vontrel.setProcessEnvironment(env);
        vontrel.start(vontrelPath, option.isEmpty() ? QStringList() : QStringList{option});
        QVERIFY(vontrel.waitForFinished(30000));
        QCOMPARE(vontrel.exitStatus(), QProcess::NormalExit);
        QTEST(vontrel.exitCode(), "exitCode");
        QFETCH(QString, stdoutStart);
        const QString output = QString::fromLocal8Bit(vontrel.readAllStandardOutput());
        QVERIFY2(stdoutStart.isEmpty() ? output.isEmpty() : output.startsWith(stdoutStart),
                 qPrintable(output));
        if (option == "--help"_L1)
            QVERIFY(output.contains("--capture"_L1) && output.contains("--selection"_L1));
        QTEST(QString::fromLocal8Bit(vontrel.readAllStandardError()), "stderrText");
    }

    void secondStartHandsItsRequestOver_data()
    {
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<QByteArray>("activationToken");
        QTest::addColumn<QByteArray>("startupId");
        QTest::addColumn<int>("action");
        const auto row = [](const char *name, const char *option, const char *token, const char *id,
                            int action) {
            QTest::newRow(name) << (*option ? QStringList{option} : QStringList()) << QByteArray(token)
                                << QByteArray(id) << action;
        };
        // Tokens are the desktop's to choose; a space or a line break must not end them early.
        row("plain start, odd wayland token", "", "gnome-shell/ab cd\n%ef", "",
            InstanceRequest::ShowPreferences);
        // What a desktop shortcut bound to the actions runs.
        row("capture", "--capture", "token-1", "", InstanceRequest::Capture);
        row("selection, x11 startup id", "--selection", "", "xfce-launch-42_TIME918273",
            InstanceRequest::Selection);
    }

    void secondStartHandsItsRequestOver()
    {
        QFETCH(QStringList, arguments);
        QFETCH(QByteArray, activationToken);
        QFETCH(QByteArray, startupId);

        // A first instance that died without cleaning up leaves its lock and socket behind.
        QProcess crashed;
        crashed.start(vontrelPath, {});
        QTRY_VERIFY_WITH_TIMEOUT(QFile::exists(SingleInstance::socketPath()), 30000);
        crashed.kill();
        QVERIFY(crashed.waitForFinished(10000));
        QVERIFY(QFile::exists(SingleInstance::lockFilePath()));

        SingleInstance first;
        QVERIFY(first.claim());
        QList<InstanceRequest> requests;
        connect(&first, &SingleInstance::requested, this,
                [&requests](const InstanceRequest &request) { requests << request; });

        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert(u"XDG_ACTIVATION_TOKEN"_s, QString::fromUtf8(activationToken));
        env.insert(u"DESKTOP_STARTUP_ID"_s, QString::fromUtf8(startupId));
        QProcess second;
        second.setProcessEnvironment(env);
        second.start(vontrelPath, arguments);
        QTRY_COMPARE_WITH_TIMEOUT(requests.size(), 1, 30000);
        // It may have ended while the spy waited, and then there is nothing left to wait for.
        QTRY_COMPARE_WITH_TIMEOUT(second.state(), QProcess::NotRunning, 10000);
        QCOMPARE(second.exitCode(), 0);
        QFETCH(int, action);
        const QString said[] = {u"its Preferences window has been opened."_s,
                                u"it has been asked to start a text screenshot."_s,
                                u"it has been asked to translate the selected or clipboard text."_s};
        QCOMPARE(QString::fromLocal8Bit(second.readAllStandardOutput()),
                 u"Vontrel is already running; %1\n"_s.arg(said[action]));
        QCOMPARE(int(requests.at(0).action), action);
        QCOMPARE(requests.at(0).activationToken, activationToken);
        QCOMPARE(requests.at(0).startupId, startupId);
        QCOMPARE(InstanceRequest::startupTime(requests.at(0).startupId), startupId.isEmpty() ? 0 : 918273);
    }

    // Whoever else may connect to the socket (it is the user's own) gets no more than a short line read, for
    // a short while; the instance keeps answering real requests.
    void socketReadsOneShortRequest()
    {
        SingleInstance first;
        QVERIFY(first.claim());
        first.setIdleLimit(std::chrono::milliseconds(300));
        QList<InstanceRequest> requests;
        connect(&first, &SingleInstance::requested, this,
                [&requests](const InstanceRequest &request) { requests << request; });

        // Sends `bytes` (repeated until `total` is written or the instance hangs up) from a thread of its
        // own, since the instance answers from this thread's event loop; gives how much went out and whether
        // the connection was dropped.
        const auto send = [](const QByteArray &bytes, qint64 total,
                             bool waitForHangUp) -> std::pair<qint64, bool> {
            qint64 written = 0;
            bool dropped = false;
            std::atomic<bool> finished = false;
            std::thread client([&] {
                QLocalSocket socket;
                socket.connectToServer(SingleInstance::socketPath());
                if (socket.waitForConnected(10000)) {
                    while (written < total && socket.state() == QLocalSocket::ConnectedState) {
                        const qint64 n = socket.write(bytes.left(total - written));
                        if (n < 0 || !socket.waitForBytesWritten(10000))
                            break;
                        written += n;
                    }
                    if (waitForHangUp && socket.state() == QLocalSocket::ConnectedState)
                        socket.waitForDisconnected(30000);
                    dropped = socket.state() != QLocalSocket::ConnectedState;
                }
                finished = true;
            });
            if (!QTest::qWaitFor([&finished] { return bool(finished); }, 120000))
                qWarning("the client thread is still sending");
            client.join();
            return std::pair(written, dropped);
        };

        // 300 MiB without a line break: dropped after the first few KiB, long before the end.
        const QByteArray chunk(1 << 20, 'x');
        const auto [flooded, floodDropped] = send(chunk, 300LL << 20, false);
        QVERIFY(floodDropped);
        QVERIFY2(flooded < (64LL << 20), qPrintable(QString::number(flooded)));

        // A request that never ends its line, and a line that is no request.
        QVERIFY(send("capture", 7, true).second);
        QVERIFY(send("rm -rf ~\n", 9, true).second);
        QVERIFY(requests.isEmpty());

        // Fields a later version may add do not spoil the request.
        send("selection startup-id=x_TIME7 colour=blue\n", 42, true);
        QTRY_COMPARE(requests.size(), 1);
        QCOMPARE(requests.at(0).action, InstanceRequest::Selection);
        QCOMPARE(requests.at(0).startupId, QByteArray("x_TIME7"));
    }

    void settingsNoticeIsShownAndLogIsPrivate()
    {
        QDir folder = QFileInfo(ConfigManager::configFilePath()).absoluteDir();
        QVERIFY(folder.removeRecursively());
        ConfigManager::instance()->resetToDefaults();
        QVERIFY(TestEnv::writeFile(ConfigManager::configFilePath(), "{\"ai\": "));
        QVERIFY(TestEnv::writeFile(debugLogPath(), {}));
        QVERIFY(QFile::setPermissions(debugLogPath(), QFileDevice::ReadOwner | QFileDevice::WriteOwner |
                                                          QFileDevice::ReadOther));

        VontrelApp app;
        app.setInteractive(false);
        app.setHotkeyBackendForTesting(std::make_unique<FakeHotkeyBackend>());
        app.start();

        const QStringList kept = folder.entryList({u"config.json.corrupt-*"_s});
        QCOMPARE(kept.size(), 1);
        const QString notice =
            u"Vontrel Settings\nVontrel could not read its settings file and "
            "started with default settings. The file was kept as:\n%1"_s.arg(folder.filePath(kept.first()));
        QTRY_VERIFY2(app.shownMessages().contains(notice), qPrintable(app.shownMessages().join(u'|')));
        // It explains the missing key, so it comes before the box that asks for one.
        const QStringList shown = app.shownMessages();
        const qsizetype askForKey = shown.indexOf(QRegularExpression(u"(?s)Configuration Required\n.*"_s));
        QVERIFY2(askForKey > shown.indexOf(notice), qPrintable(shown.join(u'|')));
        QCOMPARE(QFileInfo(debugLogPath()).permissions() & (QFileDevice::ReadGroup | QFileDevice::ReadOther),
                 QFileDevice::Permissions());
    }
};

QTEST_MAIN(TestStartup)
#include "test_startup.moc"
