#include "FakeLaunchctlRunner.h"

#include <QTemporaryDir>
#include <QTest>

#include "TestEnv.h"

namespace {

using namespace TestEnv;

const QString Current = QString::fromLatin1(LaunchAgentAutoStart::CurrentLabel);
const QString Former = QString::fromLatin1(LaunchAgentAutoStart::FormerLabel);
const QByteArray FormerContent = "com.vontrel.Vontrel com.vontrel.app";

struct LaunchdFixture
{
    QTemporaryDir home;
    std::shared_ptr<FakeLaunchctlRunner::State> runner;
    std::unique_ptr<LaunchAgentAutoStart> agent;

    explicit LaunchdFixture(const QString &executable = "/Applications/Vontrel.app/Contents/MacOS/Vontrel")
    {
        auto fake = std::make_unique<FakeLaunchctlRunner>();
        runner = fake->state();
        agent = std::make_unique<LaunchAgentAutoStart>(
            std::move(fake), LaunchAgentAutoStart::Environment{home.path(), 501, executable});
    }
    QString file(const QString &label) const { return agent->launchAgentPlistPath(label); }
    QStringList commands() const
    {
        QStringList lines;
        for (const QStringList &command : std::as_const(runner->commands))
            lines << command.join(u' ').replace(home.path(), QStringLiteral("~"));
        return lines;
    }
};

// The launchctl lines that stop an agent (disable, bootout, legacy unload) and those that start it.
QStringList stopSteps(const QString &label)
{
    const QString file = QStringLiteral("~/Library/LaunchAgents/%1.plist").arg(label);
    return {"disable gui/501/" + label, "bootout gui/501 " + file, "unload -w " + file};
}

} // namespace

class TestMacLogic : public QObject
{
    Q_OBJECT

private slots:
    void launchAgentEnablePlan_data()
    {
        QTest::addColumn<int>("bootstrapExit");
        QTest::addColumn<int>("loadExit");
        QTest::addColumn<QStringList>("tail"); // after the former label's cleanup; no final enable: failed
        const QString file = QStringLiteral("~/Library/LaunchAgents/app.vontrel.Vontrel.plist");
        const QStringList start{"enable gui/501/" + Current, "bootout gui/501 " + file,
                                "bootstrap gui/501 " + file};
        const QStringList legacy = start + QStringList{"unload -w " + file, "load -w " + file};
        QTest::newRow("bootstrap") << 0 << 0 << start + QStringList{"enable gui/501/" + Current};
        QTest::newRow("both refused") << 5 << 1 << legacy;
    }
    void launchAgentEnablePlan()
    {
        QFETCH(int, bootstrapExit);
        QFETCH(int, loadExit);
        QFETCH(QStringList, tail);
        LaunchdFixture f;
        f.runner->exitCodeBySubcommand = {{"bootstrap", bootstrapExit}, {"load", loadExit}};
        QVERIFY(writeFile(f.file(Former), FormerContent));
        QCOMPARE(f.agent->enableLaunchAgent(), tail.last().startsWith(QLatin1String("enable")));
        QCOMPARE(f.commands(), stopSteps(Former) + tail);
        QVERIFY(!QFile::exists(f.file(Former)));
        // The agent file stays even when launchd refused it.
        QCOMPARE(readFile(f.file(Current)), LaunchAgentAutoStart::propertyList());
        QVERIFY(f.agent->isLaunchAgentEnabled());
    }

    void launchAgentDisableRemovesBothLabels()
    {
        LaunchdFixture f;
        QVERIFY(writeFile(f.file(Current), LaunchAgentAutoStart::propertyList()));
        QVERIFY(writeFile(f.file(Former), FormerContent));
        QVERIFY(f.agent->disableLaunchAgent());
        QCOMPARE(f.commands(), stopSteps(Current) + stopSteps(Former));
        QVERIFY(!QFile::exists(f.file(Current)) && !QFile::exists(f.file(Former)));
    }

    void launchAgentInstalledCheck_data()
    {
        QTest::addColumn<QString>("executable");
        QTest::addColumn<QString>("label"); // whose file is written
        QTest::addColumn<QByteArray>("content");
        QTest::addColumn<bool>("installed");
        const QString bundled = QStringLiteral("/Applications/Vontrel.app/Contents/MacOS/Vontrel");
        const QByteArray outside = "com.vontrel.Vontrel /opt/vontrel/bin/vontrel";
        QTest::newRow("current") << bundled << Current << LaunchAgentAutoStart::propertyList() << true;
        QTest::newRow("former with marker") << bundled << Former << FormerContent << true;
        QTest::newRow("quoted executable with redundant separators")
            << "  \"/opt//vontrel/./bin/vontrel\" " << Former << outside << true;
    }
    void launchAgentInstalledCheck()
    {
        QFETCH(QString, executable);
        QFETCH(QString, label);
        QFETCH(QByteArray, content);
        LaunchdFixture f(executable);
        QVERIFY(writeFile(f.file(label), content));
        QTEST(f.agent->isLaunchAgentEnabled(), "installed");
        QVERIFY(f.runner->commands.isEmpty()); // launchd is not asked
    }
};

QTEST_GUILESS_MAIN(TestMacLogic)
#include "test_maclogic.moc"
