#include "TestEnv.h"
#include "config/ConfigManager.h"
#include "platform/SafeFile.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

#include <cerrno>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr QFileDevice::Permissions kOthers = QFileDevice::ReadGroup | QFileDevice::WriteGroup |
                                             QFileDevice::ExeGroup | QFileDevice::ReadOther |
                                             QFileDevice::WriteOther | QFileDevice::ExeOther;

} // namespace

class TestConfigManager : public QObject
{
    Q_OBJECT

private:
    ConfigManager *config() const { return ConfigManager::instance(); }

    static bool writeFile(const QByteArray &bytes)
    {
        return TestEnv::writeFile(ConfigManager::configFilePath(), bytes);
    }
    static QByteArray readFile() { return TestEnv::readFile(ConfigManager::configFilePath()); }

    static QJsonObject readJson() { return QJsonDocument::fromJson(readFile()).object(); }

private slots:
    void initTestCase()
    {
        QCoreApplication::setOrganizationName("Vontrel");
        QCoreApplication::setApplicationName("Vontrel");
    }

    void init()
    {
        // Notices an earlier test queued must not land in this one's spy.
        QCoreApplication::processEvents();
        const QString dir = QFileInfo(ConfigManager::configFilePath()).absolutePath();
        QDir(dir).removeRecursively();
        config()->resetToDefaults();
    }

    void locationAndNewFileIsPrivate()
    {
        const QString path = ConfigManager::configFilePath();
        QCOMPARE(path, qEnvironmentVariable("XDG_CONFIG_HOME") + "/Vontrel/Vontrel/config.json");
        // A missing file is not an error and creates nothing.
        QVERIFY(config()->load());
        QVERIFY(!QFile::exists(path));

        QVERIFY(config()->save());
        const QFileInfo file(path);
        QCOMPARE(file.permissions() & kOthers, QFileDevice::Permissions());
        QVERIFY(file.permissions().testFlags(QFileDevice::ReadOwner | QFileDevice::WriteOwner));
        const QFileInfo dir(file.absolutePath());
        QCOMPARE(dir.permissions() & kOthers, QFileDevice::Permissions());
        QVERIFY(dir.permissions().testFlag(QFileDevice::ExeOwner));

        // A file an older version or a hand copy left readable by others is closed at the next start.
        QVERIFY(QFile::setPermissions(path,
                                      file.permissions() | QFileDevice::ReadGroup | QFileDevice::ReadOther));
        QVERIFY(config()->load());
        QCOMPARE(QFileInfo(path).permissions() & kOthers, QFileDevice::Permissions());
    }

    void roundTrip()
    {
        QSignalSpy changed(config(), &ConfigManager::configChanged);
        config()->setApiUrl("http://127.0.0.1:9/v1");
        config()->setApiKey("sk-test");
        config()->setModel("local-model");
        config()->setTargetLanguage("Japanese");
        config()->setSystemPrompt("Translate to ${target_language} ✓");
        config()->setStartAtLogin(true);
        config()->setPinOverlayByDefault(true);
        config()->setUiLanguage(" zh-CN ");
        config()->setCaptureHotkey(QKeySequence(Qt::CTRL | Qt::ALT | Qt::Key_A));
        config()->setClipboardTextHotkey(QKeySequence(Qt::META | Qt::SHIFT | Qt::Key_2));
        QCOMPARE(changed.count(), 10);

        // Indented layout with sorted keys, the language trimmed, hotkeys in portable text.
        QVERIFY(readFile().contains("{\n    \"ai\": {\n        \"api_key\": \"sk-test\""));
        QCOMPARE(readJson().value("general").toObject().value("ui_language").toString(), "zh-CN");
        QCOMPARE(readJson().value("hotkeys").toObject().value("capture").toString(), "Ctrl+Alt+A");

        config()->resetToDefaults();
        QVERIFY(config()->load());
        QCOMPARE(config()->apiUrl(), "http://127.0.0.1:9/v1");
        QCOMPARE(config()->model(), "local-model");
        QCOMPARE(config()->targetLanguage(), "Japanese");
        QCOMPARE(config()->systemPrompt(), "Translate to ${target_language} ✓");
        QVERIFY(config()->startAtLogin() && config()->pinOverlayByDefault());
        QCOMPARE(config()->captureHotkey(), QKeySequence(Qt::CTRL | Qt::ALT | Qt::Key_A));
        QCOMPARE(config()->clipboardTextHotkey(), QKeySequence(Qt::META | Qt::SHIFT | Qt::Key_2));
    }

    void unparsableFileIsKept()
    {
        const QByteArray broken = "{\"ai\": {\"api_key\": \"sk-precious\",";
        QVERIFY(writeFile(broken));
        QFile::setPermissions(ConfigManager::configFilePath(),
                              QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ReadGroup |
                                  QFileDevice::ReadOther);
        QVERIFY(!config()->load());
        QCOMPARE(config()->apiKey(), QString());
        QCOMPARE(readFile(), broken);

        config()->setModel("other");
        // Start-up loads the file before anything listens; the notice waits for the first listener.
        QCoreApplication::processEvents();
        QSignalSpy notices(config(), &ConfigManager::userNotice);
        const QDir dir = QFileInfo(ConfigManager::configFilePath()).absoluteDir();
        const QStringList kept = dir.entryList({"config.json.corrupt-[0-9]*-[0-9]*"}, QDir::Files);
        QCOMPARE(kept.size(), 1);
        QCOMPARE(TestEnv::readFile(dir.filePath(kept.first())), broken);
        // It holds the key: nobody else may read it, whatever mode the broken file had.
        QCOMPARE(QFileInfo(dir.filePath(kept.first())).permissions() & kOthers, QFileDevice::Permissions());
        QCOMPARE(readJson().value("ai").toObject().value("model").toString(), "other");

        // Only the first save moves the broken file aside, and the user hears of it once, with its name.
        config()->setModel("third");
        QCOMPARE(dir.entryList({"config.json.corrupt-*"}, QDir::Files).size(), 1);
        QTRY_COMPARE(notices.count(), 1);
        QCoreApplication::processEvents();
        QCOMPARE(notices.count(), 1);
        QVERIFY(notices.first().at(1).toString().endsWith(dir.filePath(kept.first())));
    }

    void saveKeepsWhatOthersWrote()
    {
        QVERIFY(writeFile(R"({"ai": {"model": "mine", "temperature": 0.2}, "plugins": {"x": [1, 2]}})"));
        QVERIFY(config()->load());
        // Another instance, vontrel-cli or an editor changes the file while this one runs.
        QVERIFY(
            writeFile(R"({"ai": {"model": "hand-edited", "api_key": "sk-from-elsewhere", "temperature": 0.2},
                              "plugins": {"x": [1, 2]}})"));

        config()->setTargetLanguage("German");
        const QJsonObject saved = readJson();
        const QJsonObject ai = saved.value("ai").toObject();
        QCOMPARE(ai.value("model").toString(), "hand-edited");
        QCOMPARE(ai.value("api_key").toString(), "sk-from-elsewhere");
        QCOMPARE(ai.value("target_language").toString(), "German");
        QCOMPARE(ai.value("temperature").toDouble(), 0.2);
        QCOMPARE(saved.value("plugins").toObject().value("x").toArray().size(), 2);
        // Keys the file lacked are filled in, so the user finds a complete file.
        QCOMPARE(saved.value("hotkeys").toObject().value("capture"), QJsonValue(QString()));

        // What this instance sets wins over the file.
        config()->setModel("set-here");
        QCOMPARE(readJson().value("ai").toObject().value("model").toString(), "set-here");
    }

    void wrongTypesStayInFileUntilSet()
    {
        const QByteArray json = R"({"ai": {"model": 5}, "general": {"start_at_login": "yes"},
                      "hotkeys": {"capture": "Hyper+Nonsense", "clipboard_text": ""}})";
        QVERIFY(writeFile(json));
        QSignalSpy notices(config(), &ConfigManager::userNotice);
        QVERIFY(config()->load());
        // The wrong values are not used, and loading alone rewrites nothing.
        QVERIFY(!config()->startAtLogin() && config()->captureHotkey().isEmpty());
        QCOMPARE(readFile(), json);
        QTRY_COMPARE(notices.count(), 1);
        QVERIFY2(
            notices.first().at(1).toString().contains("ai.model, general.start_at_login, hotkeys.capture"),
            qPrintable(notices.first().at(1).toString()));

        config()->setApiKey("sk-1");
        QJsonObject saved = readJson();
        QCOMPARE(saved.value("ai").toObject().value("model"), QJsonValue(5));
        QCOMPARE(saved.value("general").toObject().value("start_at_login"), QJsonValue("yes"));
        QCOMPARE(saved.value("hotkeys").toObject().value("capture"), QJsonValue("Hyper+Nonsense"));

        config()->setModel("m");
        config()->setCaptureHotkey(QKeySequence(Qt::ALT | Qt::Key_F2));
        saved = readJson();
        QCOMPARE(saved.value("ai").toObject().value("model"), QJsonValue("m"));
        QCOMPARE(saved.value("hotkeys").toObject().value("capture"), QJsonValue("Alt+F2"));
        QCOMPARE(notices.count(), 1);
    }

    // A failed save keeps the old file as it was and leaves nothing beside it; the settings stay in effect,
    // the user hears of it once with the file and the reason, and the next good save writes them all.
    void writeFailureKeepsTheOldFile_data()
    {
        QTest::addColumn<QString>("inTheWay"); // what is put where the settings go; none: a system call fails
        QTest::addColumn<int>("step");
        QTest::addColumn<int>("error");
        QTest::addColumn<QString>("reason"); // the system's text for the error when there is one
        QTest::newRow("disk full at a write") << QString() << int(WriteStep::Write) << ENOSPC << QString();
        QTest::newRow("disk full at the flush") << QString() << int(WriteStep::Flush) << ENOSPC << QString();
        QTest::newRow("i/o error at the close") << QString() << int(WriteStep::Close) << EIO << QString();
        QTest::newRow("rename refused") << QString() << int(WriteStep::Rename) << EACCES << QString();
        // Root ignores file modes, so these are made with things in the way instead.
        QTest::newRow("folder where the file goes") << "folder" << 0 << 0 << "it is a folder, not a file";
        QTest::newRow("named pipe where the file goes")
            << "pipe" << 0 << 0 << "it is a named pipe, not a regular file";
        QTest::newRow("file where the folder goes") << "file as folder" << 0 << 0 << QString();
    }

    void writeFailureKeepsTheOldFile()
    {
        QFETCH(QString, inTheWay);
        QFETCH(int, step);
        QFETCH(int, error);
        QFETCH(QString, reason);
        if (error)
            reason = qt_error_string(error);
        const QString path = ConfigManager::configFilePath();
        const QString folder = QFileInfo(path).absolutePath();
        config()->setApiKey("sk-old");
        const QByteArray old = readFile();
        QVERIFY(old.contains("sk-old"));

        if (inTheWay == QLatin1String("folder"))
            QVERIFY(QFile::remove(path) && QDir().mkpath(path));
        else if (inTheWay == QLatin1String("pipe"))
            QVERIFY(QFile::remove(path) && ::mkfifo(QFile::encodeName(path).constData(), 0600) == 0);
        else if (inTheWay == QLatin1String("file as folder"))
            QVERIFY(QDir(folder).removeRecursively() && TestEnv::writeFile(folder, "x"));
        else
            vontrelFailWritesForTesting(WriteStep(step), error);
        QSignalSpy changed(config(), &ConfigManager::configChanged);
        QSignalSpy notices(config(), &ConfigManager::userNotice);
        config()->setApiKey("sk-new");
        config()->setModel("m2");
        QCOMPARE(changed.count(), 2);
        QCOMPARE(config()->apiKey(), "sk-new");
        QTRY_COMPARE(notices.count(), 1);
        QCoreApplication::processEvents();
        QCOMPARE(notices.count(), 1);
        const QString text = notices.first().at(1).toString();
        QVERIFY2(text.startsWith(
                     QStringLiteral("Vontrel could not save your settings to %1 (%2").arg(path, reason)),
                 qPrintable(text));
        if (QFileInfo(folder).isDir()) {
            QStringList left = QDir(folder).entryList(QDir::AllEntries | QDir::NoDotAndDotDot | QDir::System);
            QCOMPARE(left, QStringList{"config.json"});
            if (QFileInfo(path).isFile())
                QCOMPARE(readFile(), old);
        }

        // Once the way is clear, the next save writes what the failed ones could not.
        vontrelFailWritesForTesting(WriteStep::Write, 0);
        if (inTheWay == QLatin1String("file as folder"))
            QVERIFY(QFile::remove(folder));
        else if (QFileInfo(path).isDir())
            QVERIFY(QDir(path).removeRecursively());
        else if (!QFileInfo(path).isFile())
            QVERIFY(QFile::remove(path));
        config()->setTargetLanguage("French");
        const QJsonObject ai = readJson().value("ai").toObject();
        QCOMPARE(ai.value("api_key").toString(), "sk-new");
        QCOMPARE(ai.value("model").toString(), "m2");
        QCOMPARE(ai.value("target_language").toString(), "French");
    }

    // The same on a real file system that is full, where the write itself fails (root only: it mounts one).
    void fullDiskKeepsTheOldFile()
    {
        if (::geteuid() != 0)
            QSKIP("mounting a small file system needs root");
        QTemporaryDir mountPoint;
        QProcess mount;
        mount.start(QStringLiteral("mount"),
                    {"-t", "tmpfs", "-o", "size=64k,mode=0700", "tmpfs", mountPoint.path()});
        if (!mount.waitForFinished(20000) || mount.exitCode() != 0)
            QSKIP(qPrintable(QStringLiteral("cannot mount a tmpfs here: ") + mount.readAllStandardError()));
        const QByteArray home = qgetenv("XDG_CONFIG_HOME");
        const auto restore = qScopeGuard([&] {
            qputenv("XDG_CONFIG_HOME", home);
            QProcess::execute(QStringLiteral("umount"), {mountPoint.path()});
        });
        qputenv("XDG_CONFIG_HOME", mountPoint.path().toUtf8());

        config()->setApiKey(QStringLiteral("sk-precious"));
        const QByteArray old = readFile();
        QVERIFY(old.contains("sk-precious"));
        // Fill what is left, so that not even a small settings file fits.
        QFile filler(mountPoint.filePath(QStringLiteral("filler")));
        QVERIFY(filler.open(QIODevice::WriteOnly | QIODevice::Unbuffered));
        const QByteArray block(1024, 'x');
        while (filler.write(block) == block.size()) {
        }
        filler.close();

        QSignalSpy notices(config(), &ConfigManager::userNotice);
        config()->setSystemPrompt(QString(2000, QLatin1Char('p')));
        QCOMPARE(readFile(), old);
        QCOMPARE(config()->systemPrompt().size(), 2000);
        QTRY_COMPARE(notices.count(), 1);
        QVERIFY(notices.first().at(1).toString().contains(qt_error_string(ENOSPC)));
        const QStringList left = QDir(QFileInfo(ConfigManager::configFilePath()).absolutePath())
                                     .entryList(QDir::AllEntries | QDir::NoDotAndDotDot);
        QCOMPARE(left, QStringList{QStringLiteral("config.json")});
    }

    // Anything but a regular file at the path is refused at once (a pipe would block a plain read for ever),
    // said once, and left in place.
    void notARegularFileIsRefused()
    {
        const QString path = ConfigManager::configFilePath();
        QVERIFY(::mkfifo(QFile::encodeName(path).constData(), 0600) == 0);
        QSignalSpy notices(config(), &ConfigManager::userNotice);
        QVERIFY(!config()->load());
        QCOMPARE(config()->lastError(), "it is a named pipe, not a regular file");
        config()->setApiKey("sk-x");
        QTRY_COMPARE(notices.count(), 1);
        QVERIFY2(notices.first().at(1).toString().contains(path),
                 qPrintable(notices.first().at(1).toString()));
        QCoreApplication::processEvents();
        QCOMPARE(notices.count(), 1);
        struct stat info
        {};
        QVERIFY(::lstat(QFile::encodeName(path).constData(), &info) == 0 && S_ISFIFO(info.st_mode));
        QVERIFY(QFile::remove(path));
    }

    void targetLanguageForLocale_data()
    {
        QTest::addColumn<QString>("locale");
        QTest::addColumn<QString>("language");
        QTest::newRow("Swiss German") << "de-CH"
                                      << "German";
        QTest::newRow("Arabic") << "ar"
                                << "English";
        QTest::newRow("Traditional Chinese") << "zh-TW"
                                             << "Chinese";
    }

    void targetLanguageForLocale()
    {
        QFETCH(QString, locale);
        QTEST(ConfigManager::defaultTargetLanguageForLocale(QLocale(locale)), "language");
    }
};

QTEST_GUILESS_MAIN(TestConfigManager)
#include "test_configmanager.moc"
