#include "platform/AutoStartManager.h"
#include "platform/linux/XdgAutoStartBackend.h"

#include <QCoreApplication>
#include <QDir>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTest>

#include "TestEnv.h"

using namespace Qt::StringLiterals;

class TestAutoStart : public QObject
{
    Q_OBJECT

private slots:
    void xdgInstalledCheck_data()
    {
        QTest::addColumn<QByteArray>("entry");
        QTest::addColumn<bool>("installed");
        const QByteArray ours = XdgAutoStartBackend::entryText("/opt/vontrel/bin/vontrel");
        QTest::newRow("with arguments")
            << QByteArray("[Desktop Entry]\nExec=/opt/vontrel/bin/vontrel --tray\n") << true;
        QTest::newRow("other executable") << XdgAutoStartBackend::entryText("/usr/bin/vontrel") << false;
        QTest::newRow("hidden") << ours + "Hidden=true\n" << false;
    }
    void xdgInstalledCheck()
    {
        QFETCH(QByteArray, entry);
        QTemporaryDir dir;
        XdgAutoStartBackend backend(dir.path(), u"/opt/vontrel/bin/vontrel"_s);
        QVERIFY(TestEnv::writeFile(backend.entryPath(), entry));
        QTEST(backend.isEnabled(), "installed");
    }

    // An entry under the old name counts, and whichever way the setting goes it is not left behind.
    void legacyEntryIsReplaced_data()
    {
        QTest::addColumn<bool>("enable");
        QTest::newRow("enabled again") << true;
        QTest::newRow("disabled") << false;
    }
    void legacyEntryIsReplaced()
    {
        QFETCH(bool, enable);
        QTemporaryDir dir;
        XdgAutoStartBackend backend(dir.path(), u"/opt/vontrel/bin/vontrel"_s);
        QVERIFY(TestEnv::writeFile(dir.filePath(u"vontrel.desktop"_s),
                                   "[Desktop Entry]\nExec=/opt/vontrel/bin/vontrel\n"));
        QVERIFY(backend.isEnabled());
        QVERIFY(enable ? backend.enable() : backend.disable());
        QCOMPARE(QDir(dir.path()).entryList(QDir::Files),
                 enable ? QStringList{u"app.vontrel.Vontrel.desktop"_s} : QStringList());
        QCOMPARE(backend.isEnabled(), enable);
    }

    void managerEntryNamesThisExecutable()
    {
        const QString entry = QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation) +
                              u"/autostart/app.vontrel.Vontrel.desktop"_s;
        QVERIFY2(entry.startsWith(qEnvironmentVariable("XDG_CONFIG_HOME")), "needs a private home");
        AutoStartManager *manager = AutoStartManager::instance();
        QVERIFY(!manager->isAutoStartEnabled());
        QVERIFY(manager->setAutoStart(true));
        QVERIFY(manager->isAutoStartEnabled());
        const QString exec =
            QString::fromUtf8(TestEnv::readFile(entry)).section("\nExec=", 1).section(u'\n', 0, 0);
        QCOMPARE(XdgAutoStartBackend::programOfExec(exec), QCoreApplication::applicationFilePath());
        QVERIFY(manager->setAutoStart(false));
        QVERIFY(!QFile::exists(entry) && !manager->isAutoStartEnabled());
    }
};

QTEST_GUILESS_MAIN(TestAutoStart)
#include "test_autostart.moc"
