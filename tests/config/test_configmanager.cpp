#include "config/ConfigManager.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSignalSpy>
#include <QStandardPaths>
#include <QTest>

class TestConfigManager : public QObject
{
    Q_OBJECT

private:
    ConfigManager *config() const { return ConfigManager::instance(); }

    static void writeFile(const QByteArray &bytes)
    {
        QFile file(ConfigManager::configFilePath());
        QVERIFY(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
        file.write(bytes);
    }

    static QByteArray readFile()
    {
        QFile file(ConfigManager::configFilePath());
        return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
    }

    static QJsonObject readJson() { return QJsonDocument::fromJson(readFile()).object(); }

private slots:
    void initTestCase()
    {
        QCoreApplication::setOrganizationName(QStringLiteral("Vontrel"));
        QCoreApplication::setApplicationName(QStringLiteral("Vontrel"));
    }

    void init()
    {
        const QString dir = QFileInfo(ConfigManager::configFilePath()).absolutePath();
        QDir(dir).removeRecursively();
        config()->resetToDefaults();
    }

    void defaultsAndLocation()
    {
        const QString path = ConfigManager::configFilePath();
        QCOMPARE(path,
                 qEnvironmentVariable("XDG_CONFIG_HOME") + QStringLiteral("/Vontrel/Vontrel/config.json"));
        QCOMPARE(config()->apiUrl(), QStringLiteral("https://api.openai.com/v1"));
        QCOMPARE(config()->systemPrompt().size(), 815);
        QCOMPARE(config()->systemPrompt().count(QStringLiteral("${target_language}")), 4);
        // A missing file is not an error and creates nothing.
        QVERIFY(config()->load());
        QVERIFY(!QFile::exists(path));
    }

    void roundTrip()
    {
        QSignalSpy changed(config(), &ConfigManager::configChanged);
        config()->setApiUrl(QStringLiteral("http://127.0.0.1:9/v1"));
        config()->setApiKey(QStringLiteral("sk-test"));
        config()->setModel(QStringLiteral("local-model"));
        config()->setTargetLanguage(QStringLiteral("Japanese"));
        config()->setSystemPrompt(QStringLiteral("Translate to ${target_language} ✓"));
        config()->setStartAtLogin(true);
        config()->setPinOverlayByDefault(true);
        config()->setUiLanguage(QStringLiteral(" zh-CN "));
        config()->setCaptureHotkey(QKeySequence(Qt::CTRL | Qt::ALT | Qt::Key_A));
        config()->setClipboardTextHotkey(QKeySequence(Qt::META | Qt::SHIFT | Qt::Key_2));
        QCOMPARE(changed.count(), 10);

        // Indented layout with sorted keys, the language trimmed, hotkeys in portable text.
        QVERIFY(readFile().contains("{\n    \"ai\": {\n        \"api_key\": \"sk-test\""));
        QCOMPARE(readJson().value("general").toObject().value("ui_language").toString(),
                 QStringLiteral("zh-CN"));
        QCOMPARE(readJson().value("hotkeys").toObject().value("capture").toString(),
                 QStringLiteral("Ctrl+Alt+A"));

        config()->resetToDefaults();
        QVERIFY(config()->load());
        QCOMPARE(config()->apiUrl(), QStringLiteral("http://127.0.0.1:9/v1"));
        QCOMPARE(config()->model(), QStringLiteral("local-model"));
        QCOMPARE(config()->targetLanguage(), QStringLiteral("Japanese"));
        QCOMPARE(config()->systemPrompt(), QStringLiteral("Translate to ${target_language} ✓"));
        QVERIFY(config()->startAtLogin() && config()->pinOverlayByDefault());
        QCOMPARE(config()->captureHotkey(), QKeySequence(Qt::CTRL | Qt::ALT | Qt::Key_A));
        QCOMPARE(config()->clipboardTextHotkey(), QKeySequence(Qt::META | Qt::SHIFT | Qt::Key_2));
    }

    void loadTypeMismatches_data()
    {
        QTest::addColumn<QByteArray>("json");
        QTest::addColumn<QString>("model");
        QTest::addColumn<bool>("startAtLogin");
        QTest::addColumn<QString>("uiLanguage");
        QTest::addColumn<QKeySequence>("capture");

        const QString defaultModel = QStringLiteral("gpt-4o-mini");
        QTest::newRow("number for string")
            << QByteArray(R"({"ai": {"model": 5}})") << QString() << false << QString() << QKeySequence();
        QTest::newRow("string for bool") << QByteArray(R"({"general": {"start_at_login": "yes"}})")
                                         << defaultModel << false << QString() << QKeySequence();
        QTest::newRow("section not an object") << QByteArray(R"({"ai": [1, 2], "general": 7})")
                                               << defaultModel << false << QString() << QKeySequence();
        QTest::newRow("top-level array") << QByteArray(R"([{"ai": {"model": "x"}}])") << defaultModel << false
                                         << QString() << QKeySequence();
        QTest::newRow("blank ui language kept untrimmed")
            << QByteArray(R"({"general": {"ui_language": "  "}})") << defaultModel << false
            << QStringLiteral("  ") << QKeySequence();
        QTest::newRow("unparsable hotkey") << QByteArray(R"({"hotkeys": {"capture": "Hyper+Nonsense"}})")
                                           << defaultModel << false << QString() << QKeySequence();
        QTest::newRow("valid hotkey, unknown keys ignored")
            << QByteArray(R"({"hotkeys": {"capture": "Alt+F1"}, "extra": {"a": 1}})") << defaultModel << false
            << QString() << QKeySequence(Qt::ALT | Qt::Key_F1);
    }

    void loadTypeMismatches()
    {
        QFETCH(QByteArray, json);
        writeFile(json);
        QSignalSpy changed(config(), &ConfigManager::configChanged);
        QVERIFY(config()->load());
        QTEST(config()->model(), "model");
        QTEST(config()->startAtLogin(), "startAtLogin");
        QTEST(config()->uiLanguage(), "uiLanguage");
        QTEST(config()->captureHotkey(), "capture");
        QCOMPARE(config()->apiUrl(), ConfigManager::defaultApiUrl());
        // Loading never writes or announces anything.
        QCOMPARE(changed.count(), 0);
        QCOMPARE(readFile(), json);
    }

    void blankUiLanguageIsOmittedOnSave()
    {
        writeFile(R"({"general": {"ui_language": "  "}})");
        QVERIFY(config()->load());
        QVERIFY(config()->save());
        const QJsonObject general = readJson().value("general").toObject();
        QVERIFY(!general.contains("ui_language"));
        QVERIFY(general.contains("start_at_login"));
        // A hotkey that was never set is written as an empty string.
        QCOMPARE(readJson().value("hotkeys").toObject().value("capture"), QJsonValue(QString()));
    }

    void unparsableFileIsKept()
    {
        const QByteArray broken = "{\"ai\": {\"api_key\": \"sk-precious\",";
        writeFile(broken);
        QVERIFY(!config()->load());
        QCOMPARE(config()->apiKey(), QString());
        QCOMPARE(readFile(), broken);

        config()->setModel(QStringLiteral("other"));
        const QDir dir = QFileInfo(ConfigManager::configFilePath()).absoluteDir();
        const QStringList kept =
            dir.entryList({QStringLiteral("config.json.corrupt-[0-9]*-[0-9]*")}, QDir::Files);
        QCOMPARE(kept.size(), 1);
        QFile keptFile(dir.filePath(kept.first()));
        QVERIFY(keptFile.open(QIODevice::ReadOnly) && keptFile.readAll() == broken);
        QCOMPARE(readJson().value("ai").toObject().value("model").toString(), QStringLiteral("other"));

        // Only the first save moves the broken file aside.
        config()->setModel(QStringLiteral("third"));
        QCOMPARE(dir.entryList({QStringLiteral("config.json.corrupt-*")}, QDir::Files).size(), 1);
    }

    void newFileIsPrivate()
    {
        QVERIFY(config()->save());
        const QFileDevice::Permissions others = QFileDevice::ReadGroup | QFileDevice::WriteGroup |
                                                QFileDevice::ExeGroup | QFileDevice::ReadOther |
                                                QFileDevice::WriteOther | QFileDevice::ExeOther;
        const QFileInfo file(ConfigManager::configFilePath());
        QCOMPARE(file.permissions() & others, QFileDevice::Permissions());
        QVERIFY(file.permissions().testFlags(QFileDevice::ReadOwner | QFileDevice::WriteOwner));
        const QFileInfo dir(file.absolutePath());
        QCOMPARE(dir.permissions() & others, QFileDevice::Permissions());
        QVERIFY(dir.permissions().testFlag(QFileDevice::ExeOwner));
    }

    void equalValuesWriteNothing()
    {
        QSignalSpy changed(config(), &ConfigManager::configChanged);
        config()->setModel(QStringLiteral("gpt-4o-mini"));
        config()->setStartAtLogin(false);
        config()->setCaptureHotkey(QKeySequence());
        config()->setSystemPrompt(ConfigManager::defaultSystemPrompt());
        QCOMPARE(changed.count(), 0);
        QVERIFY(!QFile::exists(ConfigManager::configFilePath()));
        config()->setModel(QStringLiteral("m"));
        QCOMPARE(changed.count(), 1);
        QVERIFY(QFile::exists(ConfigManager::configFilePath()));
    }

    void failedWriteStillAnnounces()
    {
        // A directory where the file should be makes every write fail.
        QVERIFY(QDir().mkpath(ConfigManager::configFilePath()));
        QSignalSpy changed(config(), &ConfigManager::configChanged);
        config()->setApiKey(QStringLiteral("sk-x"));
        QVERIFY(changed.count() == 1 && !config()->save());
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
        QTest::newRow("Dutch") << "nl-NL"
                               << "English";
    }

    void targetLanguageForLocale()
    {
        QFETCH(QString, locale);
        QTEST(ConfigManager::defaultTargetLanguageForLocale(QLocale(locale)), "language");
    }
};

QTEST_GUILESS_MAIN(TestConfigManager)
#include "test_configmanager.moc"
