#include "FakeLaunchctlRunner.h"
#include "platform/AutoStartManager.h"
#include "platform/LaunchAgentAutoStart.h"
#include "platform/linux/XdgAutoStartBackend.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTest>
#include <QXmlStreamReader>

namespace {

bool writeFile(const QString &path, const QByteArray &bytes)
{
    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size();
}

QByteArray readFile(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

// The property-list grammar this agent uses: plist(version 1.0) > dict of key/value pairs, where values are
// string, array of strings, or true/false. Returns the pairs as "key=value" texts, or an error text.
QStringList parsePlist(const QByteArray &xml, QString *error)
{
    QXmlStreamReader reader(xml);
    QStringList pairs;
    QString key;
    bool inArray = false;
    QStringList array;
    while (!reader.atEnd()) {
        reader.readNext();
        if (reader.isDTD()) {
            if (!reader.text().contains(QLatin1String("PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" "
                                                      "\"http://www.apple.com/DTDs/PropertyList-1.0.dtd\"")))
                *error = QStringLiteral("wrong DTD: ") + reader.text().toString();
        } else if (reader.isStartElement()) {
            const QString name = reader.name().toString();
            if (name == QLatin1String("plist")) {
                if (reader.attributes().value(QLatin1String("version")) != QLatin1String("1.0"))
                    *error = QStringLiteral("plist version");
            } else if (name == QLatin1String("key")) {
                key = reader.readElementText();
            } else if (name == QLatin1String("string")) {
                const QString text = reader.readElementText();
                if (inArray)
                    array << text;
                else
                    pairs << key + u'=' + text;
            } else if (name == QLatin1String("array")) {
                inArray = true;
                array.clear();
            } else if (name == QLatin1String("true") || name == QLatin1String("false")) {
                pairs << key + u'=' + name;
            } else if (name != QLatin1String("dict")) {
                *error = QStringLiteral("unexpected element ") + name;
            }
        } else if (reader.isEndElement() && reader.name() == QLatin1String("array")) {
            inArray = false;
            pairs << key + u'=' + array.join(u' ');
        }
    }
    if (reader.hasError())
        *error = reader.errorString();
    return pairs;
}

struct LaunchdFixture
{
    QTemporaryDir home;
    std::shared_ptr<FakeLaunchctlRunner::State> runner;
    std::unique_ptr<LaunchAgentAutoStart> agent;

    explicit LaunchdFixture(
        const QString &executable = QStringLiteral("/Applications/Vontrel.app/Contents/MacOS/Vontrel"))
    {
        auto fake = std::make_unique<FakeLaunchctlRunner>();
        runner = fake->state();
        agent = std::make_unique<LaunchAgentAutoStart>(
            std::move(fake), LaunchAgentAutoStart::Environment{home.path(), 501, executable});
    }
    QString currentFile() const { return agent->launchAgentPlistPath(QStringLiteral("app.vontrel.Vontrel")); }
    QString formerFile() const { return agent->launchAgentPlistPath(QStringLiteral("com.vontrel.Vontrel")); }
    QStringList commands() const
    {
        QStringList lines;
        for (const QStringList &command : std::as_const(runner->commands))
            lines << command.join(u' ').replace(home.path(), QStringLiteral("~"));
        return lines;
    }
};

} // namespace

class TestAutoStart : public QObject
{
    Q_OBJECT

private slots:
    void launchAgentPropertyList();
    void launchAgentEnablePlan_data();
    void launchAgentEnablePlan();
    void launchAgentDisableRemovesBothLabels();
    void launchAgentInstalledCheck_data();
    void launchAgentInstalledCheck();
    void xdgEntryRoundTrip();
    void xdgInstalledCheck_data();
    void xdgInstalledCheck();
    void xdgExecParsing_data();
    void xdgExecParsing();
    void xdgFailureLeavesNothing();
    void managerUsesUserAutostartFolder();
};

void TestAutoStart::launchAgentPropertyList()
{
    const QByteArray xml = LaunchAgentAutoStart::propertyList();
    QVERIFY(xml.startsWith("<?xml version=\"1.0\""));
    QString error;
    const QStringList pairs = parsePlist(xml, &error);
    QVERIFY2(error.isEmpty(), qPrintable(error));
    QCOMPARE(pairs,
             (QStringList{"Label=app.vontrel.Vontrel",
                          "ProgramArguments=/usr/bin/open -g -b app.vontrel.Vontrel", "RunAtLoad=true"}));
}

void TestAutoStart::launchAgentEnablePlan_data()
{
    QTest::addColumn<int>("bootstrapExit");
    QTest::addColumn<int>("loadExit");
    QTest::addColumn<bool>("ok");
    QTest::addColumn<QStringList>("tail"); // the commands after the former-label cleanup

    const QStringList start{"enable gui/501/app.vontrel.Vontrel",
                            "bootout gui/501 ~/Library/LaunchAgents/app.vontrel.Vontrel.plist",
                            "bootstrap gui/501 ~/Library/LaunchAgents/app.vontrel.Vontrel.plist"};
    QTest::newRow("bootstrap") << 0 << 0 << true << start + QStringList{"enable gui/501/app.vontrel.Vontrel"};
    QTest::newRow("legacy load") << 5 << 0 << true
                                 << start + QStringList{
                                                "unload -w ~/Library/LaunchAgents/app.vontrel.Vontrel.plist",
                                                "load -w ~/Library/LaunchAgents/app.vontrel.Vontrel.plist",
                                                "enable gui/501/app.vontrel.Vontrel"};
    QTest::newRow("both refused") << 5 << 1 << false
                                  << start + QStringList{
                                                 "unload -w ~/Library/LaunchAgents/app.vontrel.Vontrel.plist",
                                                 "load -w ~/Library/LaunchAgents/app.vontrel.Vontrel.plist"};
}

void TestAutoStart::launchAgentEnablePlan()
{
    QFETCH(int, bootstrapExit);
    QFETCH(int, loadExit);
    QFETCH(bool, ok);
    QFETCH(QStringList, tail);

    LaunchdFixture f;
    f.runner->exitCodeBySubcommand.insert(QStringLiteral("bootstrap"), bootstrapExit);
    f.runner->exitCodeBySubcommand.insert(QStringLiteral("load"), loadExit);
    QVERIFY(writeFile(f.formerFile(), "com.vontrel.Vontrel com.vontrel.app"));

    QCOMPARE(f.agent->enableLaunchAgent(), ok);
    const QStringList expected =
        QStringList{"disable gui/501/com.vontrel.Vontrel",
                    "bootout gui/501 ~/Library/LaunchAgents/com.vontrel.Vontrel.plist",
                    "unload -w ~/Library/LaunchAgents/com.vontrel.Vontrel.plist"} +
        tail;
    QCOMPARE(f.commands(), expected);
    QVERIFY(!QFile::exists(f.formerFile()));
    // The agent file stays even when launchd refused it.
    QCOMPARE(readFile(f.currentFile()), LaunchAgentAutoStart::propertyList());
    QVERIFY(f.agent->isLaunchAgentEnabled());

    // Enabling again rewrites the same file; bootout before bootstrap keeps one loaded agent.
    f.runner->commands.clear();
    QCOMPARE(f.agent->enableLaunchAgent(), ok);
    QCOMPARE(readFile(f.currentFile()), LaunchAgentAutoStart::propertyList());
}

void TestAutoStart::launchAgentDisableRemovesBothLabels()
{
    LaunchdFixture f;
    QVERIFY(writeFile(f.currentFile(), LaunchAgentAutoStart::propertyList()));
    QVERIFY(writeFile(f.formerFile(), "com.vontrel.Vontrel com.vontrel.app"));
    QVERIFY(f.agent->isLaunchAgentEnabled());

    QVERIFY(f.agent->disableLaunchAgent());
    QCOMPARE(f.commands(), (QStringList{"disable gui/501/app.vontrel.Vontrel",
                                        "bootout gui/501 ~/Library/LaunchAgents/app.vontrel.Vontrel.plist",
                                        "unload -w ~/Library/LaunchAgents/app.vontrel.Vontrel.plist",
                                        "disable gui/501/com.vontrel.Vontrel",
                                        "bootout gui/501 ~/Library/LaunchAgents/com.vontrel.Vontrel.plist",
                                        "unload -w ~/Library/LaunchAgents/com.vontrel.Vontrel.plist"}));
    QVERIFY(!QFile::exists(f.currentFile()));
    QVERIFY(!QFile::exists(f.formerFile()));
    QVERIFY(!f.agent->isLaunchAgentEnabled());
}

void TestAutoStart::launchAgentInstalledCheck_data()
{
    QTest::addColumn<QString>("executable");
    QTest::addColumn<QString>("label"); // whose file is written
    QTest::addColumn<QByteArray>("content");
    QTest::addColumn<bool>("installed");

    const QString inBundle = QStringLiteral("/Applications/Vontrel.app/Contents/MacOS/Vontrel");
    QTest::newRow("current agent") << inBundle << "app.vontrel.Vontrel"
                                   << LaunchAgentAutoStart::propertyList() << true;
    QTest::newRow("current emptied by hand") << inBundle << "app.vontrel.Vontrel" << QByteArray() << false;
    QTest::newRow("former with marker")
        << inBundle << "com.vontrel.Vontrel"
        << QByteArray("<string>com.vontrel.Vontrel</string> com.vontrel.app") << true;
    QTest::newRow("former with bundle path")
        << inBundle << "com.vontrel.Vontrel" << QByteArray("com.vontrel.Vontrel /Applications/Vontrel.app")
        << true;
    QTest::newRow("former without this program")
        << inBundle << "com.vontrel.Vontrel" << QByteArray("com.vontrel.Vontrel /opt/Other.app") << false;
    QTest::newRow("outside a bundle: executable path")
        << "/opt/vontrel/bin/vontrel"
        << "com.vontrel.Vontrel" << QByteArray("com.vontrel.Vontrel /opt/vontrel/bin/vontrel") << true;
    QTest::newRow("quoted path with redundant separators")
        << "  \"/opt//vontrel/./bin/vontrel\" "
        << "com.vontrel.Vontrel" << QByteArray("com.vontrel.Vontrel /opt/vontrel/bin/vontrel") << true;
}

void TestAutoStart::launchAgentInstalledCheck()
{
    QFETCH(QString, executable);
    QFETCH(QString, label);
    QFETCH(QByteArray, content);
    QFETCH(bool, installed);

    LaunchdFixture f(executable);
    QVERIFY(writeFile(f.agent->launchAgentPlistPath(label), content));
    QCOMPARE(f.agent->isLaunchAgentEnabled(), installed);
    QVERIFY(f.runner->commands.isEmpty()); // launchd is not asked
}

void TestAutoStart::xdgEntryRoundTrip()
{
    QTemporaryDir dir;
    const QString executable = dir.filePath(QStringLiteral("My Apps/vontrel $1 \"x\"%"));
    QVERIFY(writeFile(executable, "#!/bin/sh\n"));
    XdgAutoStartBackend backend(dir.filePath(QStringLiteral("autostart")), executable);

    QVERIFY(!backend.isEnabled());
    QVERIFY(backend.enable());
    QCOMPARE(backend.entryPath(), dir.filePath(QStringLiteral("autostart/vontrel.desktop")));
    QVERIFY(backend.isEnabled());
    const QString entry = QString::fromUtf8(readFile(backend.entryPath()));
    QVERIFY(entry.startsWith(QLatin1String("[Desktop Entry]\n")));
    QVERIFY(entry.contains(QLatin1String("\nType=Application\n")));

    QVERIFY(backend.disable());
    QVERIFY(!QFile::exists(backend.entryPath()));
    QVERIFY(!backend.isEnabled());
    QVERIFY(backend.disable()); // nothing to remove is fine
}

void TestAutoStart::xdgInstalledCheck_data()
{
    QTest::addColumn<QByteArray>("entry");
    QTest::addColumn<bool>("installed");
    QTest::newRow("ours") << XdgAutoStartBackend::entryText(QStringLiteral("/opt/vontrel/bin/vontrel"))
                          << true;
    QTest::newRow("with arguments") << QByteArray("[Desktop Entry]\nExec=/opt/vontrel/bin/vontrel --tray\n")
                                    << true;
    QTest::newRow("other executable")
        << XdgAutoStartBackend::entryText(QStringLiteral("/usr/bin/vontrel")) << false;
    QTest::newRow("hidden") << XdgAutoStartBackend::entryText(QStringLiteral("/opt/vontrel/bin/vontrel")) +
                                   "Hidden=true\n"
                            << false;
    QTest::newRow("switched off in GNOME")
        << QByteArray("[Desktop Entry]\nExec=/opt/vontrel/bin/vontrel\nX-GNOME-Autostart-enabled=false\n")
        << false;
    QTest::newRow("Exec in another group")
        << QByteArray("[Desktop Entry]\nName=x\n[Desktop Action a]\nExec=/opt/vontrel/bin/vontrel\n")
        << false;
    QTest::newRow("empty") << QByteArray() << false;
}

void TestAutoStart::xdgInstalledCheck()
{
    QFETCH(QByteArray, entry);
    QFETCH(bool, installed);
    QTemporaryDir dir;
    XdgAutoStartBackend backend(dir.path(), QStringLiteral("/opt/vontrel/bin/vontrel"));
    QVERIFY(writeFile(backend.entryPath(), entry));
    QCOMPARE(backend.isEnabled(), installed);
}

void TestAutoStart::xdgExecParsing_data()
{
    QTest::addColumn<QString>("exec");
    QTest::addColumn<QString>("program");
    QTest::newRow("plain") << "/usr/bin/vontrel %U"
                           << "/usr/bin/vontrel";
    QTest::newRow("quoted with blank") << "\"/home/a b/vontrel\" --x"
                                       << "/home/a b/vontrel";
    QTest::newRow("escaped quote and dollar") << R"("/opt/v\\"q\\$/vontrel")"
                                              << "/opt/v\"q$/vontrel";
    QTest::newRow("escaped backslash") << R"("/opt/back\\\\slash")"
                                       << "/opt/back\\slash";
    QTest::newRow("percent") << "\"/opt/100%%/vontrel\""
                             << "/opt/100%/vontrel";
    QTest::newRow("unterminated quote") << "\"/opt/vontrel" << QString();
}

void TestAutoStart::xdgExecParsing()
{
    QFETCH(QString, exec);
    QFETCH(QString, program);
    QCOMPARE(XdgAutoStartBackend::programOfExec(exec), program);
}

void TestAutoStart::xdgFailureLeavesNothing()
{
    QTemporaryDir dir;
    // The autostart "folder" is a file: nothing can be created below it.
    const QString blocked = dir.filePath(QStringLiteral("autostart"));
    QVERIFY(writeFile(blocked, "not a folder"));
    XdgAutoStartBackend backend(blocked, QStringLiteral("/opt/vontrel/bin/vontrel"));
    QVERIFY(!backend.enable());
    QVERIFY(!backend.isEnabled());
    QCOMPARE(readFile(blocked), QByteArray("not a folder"));

    // A read-only folder: the entry cannot be written, and no temporary file is left behind.
    const QString readOnly = dir.filePath(QStringLiteral("ro"));
    QVERIFY(QDir().mkpath(readOnly));
    QFile::setPermissions(readOnly, QFile::ReadOwner | QFile::ExeOwner);
    if (QFileInfo(readOnly).isWritable())
        QSKIP("running as a user that writes into read-only folders (root)");
    XdgAutoStartBackend readOnlyBackend(readOnly, QStringLiteral("/opt/vontrel/bin/vontrel"));
    QVERIFY(!readOnlyBackend.enable());
    QVERIFY(QDir(readOnly).entryList(QDir::NoDotAndDotDot | QDir::AllEntries).isEmpty());
}

void TestAutoStart::managerUsesUserAutostartFolder()
{
    const QString entry = QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation) +
                          QStringLiteral("/autostart/vontrel.desktop");
    QVERIFY2(entry.startsWith(qEnvironmentVariable("XDG_CONFIG_HOME")),
             "the test must run in a private home");
    AutoStartManager *manager = AutoStartManager::instance();
    QCOMPARE(AutoStartManager::instance(), manager);
    QVERIFY(!manager->isAutoStartEnabled());
    QVERIFY(manager->setAutoStart(true));
    QVERIFY(manager->isAutoStartEnabled());
    QCOMPARE(
        XdgAutoStartBackend::programOfExec(
            QString::fromUtf8(readFile(entry)).section(QStringLiteral("\nExec="), 1).section(u'\n', 0, 0)),
        QCoreApplication::applicationFilePath());
    QVERIFY(manager->setAutoStart(false));
    QVERIFY(!QFile::exists(entry));
    QVERIFY(!manager->isAutoStartEnabled());
}

QTEST_GUILESS_MAIN(TestAutoStart)
#include "test_autostart.moc"
