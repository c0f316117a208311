#include "TestEnv.h"
#include "app/DebugLog.h"
#include "app/SingleInstance.h"
#include "platform/RuntimeFolder.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QTest>

#include <sys/stat.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

// Permission bits of the path itself, not of what a link there points to; -1 when there is nothing.
int modeOf(const QString &path)
{
    struct stat info
    {};
    return ::lstat(QFile::encodeName(path).constData(), &info) == 0 ? int(info.st_mode & 07777) : -1;
}

// Makes a folder of the given kind: "private" (0700), "open" (the user's, 0755), "foreign" (another user's)
// or "link" (a symbolic link to a private folder of the user's). False when it cannot be made here.
bool make(const QString &kind, const QString &path, const QString &linkTarget)
{
    if (kind == "link"_L1)
        return QDir().mkpath(linkTarget) && QFile::link(linkTarget, path);
    if (!QDir().mkpath(path))
        return false;
    const mode_t mode = kind == "open"_L1 ? 0755 : 0700;
    if (::chmod(QFile::encodeName(path).constData(), mode) != 0)
        return false;
    // Only root can give a folder away.
    return kind != "foreign"_L1 || ::chown(QFile::encodeName(path).constData(), 65534, 65534) == 0;
}

} // namespace

// The debug log, the single-instance lock and its socket live in a folder only the user can enter, so that
// nobody else can take their names or plant a link under them.
class TestRuntimeFolder final : public QObject
{
    Q_OBJECT

private slots:
    // Whatever sits at the log's name, the log neither writes through it nor changes its mode, nor waits.
    void logFollowsNoLink_data()
    {
        QTest::addColumn<QString>("planted");
        QTest::newRow("link to a file of the user's") << "link";
        QTest::newRow("named pipe") << "pipe";
    }

    void logFollowsNoLink()
    {
        QFETCH(QString, planted);
        const QString log = debugLogPath();
        QVERIFY(!log.isEmpty());
        QFile::remove(log);
        QTemporaryDir dir;
        const QString victim = dir.filePath(u"victim"_s);
        QVERIFY(TestEnv::writeFile(victim, "mine\n"));
        QVERIFY(QFile::setPermissions(victim, QFileDevice::ReadOwner | QFileDevice::WriteOwner |
                                                  QFileDevice::ReadGroup | QFileDevice::ReadOther));
        if (planted == "link"_L1)
            QVERIFY(QFile::link(victim, log));
        else
            QVERIFY(::mkfifo(QFile::encodeName(log).constData(), 0600) == 0);

        appendDebugLog(u"Hotkey triggered id=1"_s);
        QCOMPARE(TestEnv::readFile(victim), QByteArray("mine\n"));
        QCOMPARE(modeOf(victim), 0644);
        QVERIFY(QFile::remove(log));

        // With the name free again, the log is a file of the user's alone.
        appendDebugLog(u"Hotkey triggered id=2"_s);
        QVERIFY(TestEnv::readFile(log).endsWith("Hotkey triggered id=2\n"));
        QCOMPARE(modeOf(log), 0600);
    }

    // Last: its rows leave the environment naming folders that are gone.
    void folderOnlyTheUserCanEnter_data()
    {
        QTest::addColumn<QString>("xdg");      // what XDG_RUNTIME_DIR names; empty: it is not set
        QTest::addColumn<QString>("fallback"); // what already sits at the fallback's name; empty: nothing
        QTest::addColumn<QString>("chosen");   // "xdg", "fallback", "cache", or empty for none
        const auto row = [](const char *name, const char *xdg, const char *fallback, const char *chosen) {
            QTest::newRow(name) << QString(xdg) << QString(fallback) << QString(chosen);
        };
        row("XDG_RUNTIME_DIR", "private", "", "xdg");
        row("XDG_RUNTIME_DIR open to others", "open", "", "xdg");
        row("XDG_RUNTIME_DIR of another user", "foreign", "", "fallback");
        row("XDG_RUNTIME_DIR a link", "link", "", "fallback");
        row("no XDG_RUNTIME_DIR", "", "", "fallback");
        row("fallback a planted link", "", "link", "cache");
        row("fallback and cache taken", "", "link", "");
    }

    void folderOnlyTheUserCanEnter()
    {
        QFETCH(QString, xdg);
        QFETCH(QString, fallback);
        QFETCH(QString, chosen);
        if ((xdg == "foreign"_L1 || fallback == "foreign"_L1) && ::geteuid() != 0)
            QSKIP("giving a folder to another user needs root");
        QTemporaryDir base;
        const QString tmp = base.filePath(u"tmp"_s);
        const QString xdgPath = base.filePath(u"xdg"_s);
        const QString fallbackPath = QDir(tmp).filePath(u"vontrel-%1"_s.arg(::geteuid()));
        const QString cache = base.filePath(u"cache"_s);
        const QString cachePath = cache + u"/vontrel-runtime"_s;
        QVERIFY(QDir().mkpath(tmp) && QDir().mkpath(cache));
        qputenv("TMPDIR", QFile::encodeName(tmp));
        qputenv("XDG_CACHE_HOME", QFile::encodeName(cache));
        if (chosen.isEmpty()) // the cache folder's name is taken too
            QVERIFY(TestEnv::writeFile(cachePath, "not a folder"));
        if (xdg.isEmpty()) {
            qunsetenv("XDG_RUNTIME_DIR");
        } else {
            QVERIFY(make(xdg, xdgPath, base.filePath(u"elsewhere"_s)));
            qputenv("XDG_RUNTIME_DIR", QFile::encodeName(xdgPath));
        }
        if (!fallback.isEmpty())
            QVERIFY(make(fallback, fallbackPath, base.filePath(u"elsewhere"_s)));

        QString problem;
        const QString folder = vontrelRuntimeFolder(&problem);
        const QString expected = chosen == "xdg"_L1        ? xdgPath
                                 : chosen == "fallback"_L1 ? fallbackPath
                                 : chosen == "cache"_L1    ? cachePath
                                                           : QString();
        QCOMPARE(folder, expected);
        if (expected.isEmpty()) {
            QVERIFY(!problem.isEmpty());
            QCOMPARE(debugLogPath(), QString());
            QCOMPARE(SingleInstance::lockFilePath(), QString());
            return;
        }
        QCOMPARE(modeOf(folder), 0700);
        for (const QString &path :
             {debugLogPath(), SingleInstance::lockFilePath(), SingleInstance::socketPath()})
            QCOMPARE(QFileInfo(path).absolutePath(), folder);
    }
};

QTEST_GUILESS_MAIN(TestRuntimeFolder)
#include "test_runtimefolder.moc"
