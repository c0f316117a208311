#include "FakeHotkeyBackend.h"
#include "TestEnv.h"

#include "app/DebugLog.h"
#include "app/SingleInstance.h"
#include "app/VontrelApp.h"
#include "config/ConfigManager.h"
#include "update/UpdateChecker.h"

#include <QApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QSignalSpy>
#include <QTest>

const QString vontrelPath = TestEnv::binaryDir() + QStringLiteral("/src/vontrel");

class TestStartup : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase()
    {
        QApplication::setApplicationName(QStringLiteral("Vontrel"));
        QApplication::setOrganizationName(QStringLiteral("Vontrel"));
        UpdateChecker::instance()->setServiceUrl(QUrl(QStringLiteral("http://127.0.0.1:1")));
        QVERIFY2(QFileInfo(vontrelPath).isExecutable(), qPrintable(vontrelPath));
    }

    void noDisplayIsOneLine_data()
    {
        QTest::addColumn<QString>("display");
        QTest::addColumn<QString>("platform");
        QTest::addColumn<QString>("reason");
        QTest::newRow("none named") << QString() << QString() << QStringLiteral("no display found");
        QTest::newRow("named but absent") << QStringLiteral(":9999") << QStringLiteral("xcb")
                                          << QStringLiteral("could not connect to display :9999");
    }

    void noDisplayIsOneLine()
    {
        QFETCH(QString, display);
        QFETCH(QString, platform);
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        for (const char *name : {"WAYLAND_DISPLAY", "DISPLAY", "QT_QPA_PLATFORM"})
            env.remove(QString::fromLatin1(name));
        if (!display.isEmpty())
            env.insert(QStringLiteral("DISPLAY"), display);
        if (!platform.isEmpty())
            env.insert(QStringLiteral("QT_QPA_PLATFORM"), platform);
        QProcess vontrel;
        vontrel.setProcessEnvironment(env);
        vontrel.start(vontrelPath, {});
        QVERIFY(vontrel.waitForFinished(30000));
        QCOMPARE(vontrel.exitStatus(), QProcess::NormalExit);
        QCOMPARE(vontrel.exitCode(), 1);
        QFETCH(QString, reason);
        QCOMPARE(QString::fromLocal8Bit(vontrel.readAllStandardError()),
                 QStringLiteral("Vontrel needs a graphical session (X11 or Wayland): %1\n").arg(reason));
    }

    // Asked for help or the version, or given a bad option, the program answers on a plain terminal.
    void commandLineWithoutDisplay_data()
    {
        QTest::addColumn<QString>("option");
        QTest::addColumn<int>("exitCode");
        QTest::addColumn<QString>("stdoutStart");
        QTest::addColumn<QString>("stderrText");
        QTest::newRow("version") << QStringLiteral("--version") << 0
                                 << QStringLiteral("Vontrel " VONTREL_VERSION "\n") << QString();
        QTest::newRow("help") << QStringLiteral("--help") << 0 << QStringLiteral("Usage: vontrel [action]\n")
                              << QString();
        QTest::newRow("unknown") << QStringLiteral("--bogus") << 2 << QString()
                                 << QStringLiteral("vontrel: unknown option '--bogus'\n"
                                                   "Try 'vontrel --help' for more information.\n");
    }

    void commandLineWithoutDisplay()
    {
        QFETCH(QString, option);
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        for (const char *name : {"WAYLAND_DISPLAY", "DISPLAY", "QT_QPA_PLATFORM"})
            env.remove(QString::fromLatin1(name));
        QProcess vontrel;
        vontrel.setProcessEnvironment(env);
        vontrel.start(vontrelPath, {option});
        QVERIFY(vontrel.waitForFinished(30000));
        QFETCH(int, exitCode);
        QCOMPARE(vontrel.exitCode(), exitCode);
        QFETCH(QString, stdoutStart);
        const QString output = QString::fromLocal8Bit(vontrel.readAllStandardOutput());
        QVERIFY2(stdoutStart.isEmpty() ? output.isEmpty() : output.startsWith(stdoutStart),
                 qPrintable(output));
        if (option == QLatin1String("--help")) {
            QVERIFY(output.contains(QLatin1String("--capture")));
            QVERIFY(output.contains(QLatin1String("--selection")));
        }
        QFETCH(QString, stderrText);
        QCOMPARE(QString::fromLocal8Bit(vontrel.readAllStandardError()), stderrText);
    }

    void secondStartShowsTheFirst()
    {
        // A first instance that died without cleaning up leaves its lock and socket behind.
        QProcess crashed;
        crashed.start(vontrelPath, {});
        QTRY_VERIFY_WITH_TIMEOUT(QFile::exists(SingleInstance::socketPath()), 30000);
        crashed.kill();
        QVERIFY(crashed.waitForFinished(10000));
        QVERIFY(QFile::exists(SingleInstance::lockFilePath()));

        SingleInstance first;
        QVERIFY(first.claim());
        QSignalSpy activation(&first, &SingleInstance::activationRequested);

        QProcess second;
        second.start(vontrelPath, {});
        QTRY_COMPARE_WITH_TIMEOUT(activation.count(), 1, 30000);
        // It may have ended while the spy waited, and then there is nothing left to wait for.
        QTRY_COMPARE_WITH_TIMEOUT(second.state(), QProcess::NotRunning, 10000);
        QCOMPARE(second.exitCode(), 0);
        QCOMPARE(QString::fromLocal8Bit(second.readAllStandardOutput()),
                 QStringLiteral("Vontrel is already running; its Preferences window has been opened.\n"));
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

        const QStringList kept = folder.entryList({QStringLiteral("config.json.corrupt-*")});
        QCOMPARE(kept.size(), 1);
        const QString notice =
            QStringLiteral("Vontrel Settings\nVontrel could not read its settings file and "
                           "started with default settings. The file was kept as:\n%1")
                .arg(folder.filePath(kept.first()));
        QTRY_VERIFY2(app.shownMessages().contains(notice),
                     qPrintable(app.shownMessages().join(QLatin1Char('|'))));
        QCOMPARE(QFileInfo(debugLogPath()).permissions() & (QFileDevice::ReadGroup | QFileDevice::ReadOther),
                 QFileDevice::Permissions());
    }
};

QTEST_MAIN(TestStartup)
#include "test_startup.moc"
