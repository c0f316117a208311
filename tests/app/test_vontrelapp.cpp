#include "app/DebugLog.h"
#include "app/VontrelApp.h"
#include "config/ConfigManager.h"

#include <QAction>
#include <QApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>
#include <QMenu>
#include <QRegularExpression>
#include <QSystemTrayIcon>
#include <QTest>

class TestVontrelApp : public QObject
{
    Q_OBJECT

private:
    static void removeConfig()
    {
        QDir(QFileInfo(ConfigManager::configFilePath()).absolutePath()).removeRecursively();
        ConfigManager::instance()->resetToDefaults();
    }

private slots:
    void initTestCase()
    {
        QApplication::setApplicationName(QStringLiteral("Vontrel"));
        QApplication::setOrganizationName(QStringLiteral("Vontrel"));
    }

    void init() { removeConfig(); }

    void firstStartWritesCompleteFile()
    {
        VontrelApp app;
        app.setInteractive(false);
        app.start();

        const QString path = ConfigManager::configFilePath();
        QFile file(path);
        QVERIFY(file.open(QIODevice::ReadOnly));
        const QJsonObject root = QJsonDocument::fromJson(file.readAll()).object();
        const QJsonObject ai = root.value("ai").toObject();
        for (const char *key : {"api_url", "api_key", "model", "target_language", "system_prompt"})
            QVERIFY2(ai.contains(QLatin1String(key)), key);
        QVERIFY(!ai.value("target_language").toString().isEmpty());
        QVERIFY(root.value("general").toObject().contains("pin_overlay_by_default"));
        // The default hotkeys stand in at run time but are not stored.
        QCOMPARE(root.value("hotkeys").toObject().value("capture").toString(), QString());

        QCOMPARE(app.shownMessages().size(), 1);
        QCOMPARE(app.shownMessages().first(),
                 QStringLiteral("Configuration Required\nPlease configure your API key in:\n%1\n\n"
                                "Then restart the application.")
                     .arg(path));
    }

    void configuredKeyShowsNoBox()
    {
        ConfigManager::instance()->setApiKey(QStringLiteral("sk-test"));
        ConfigManager::instance()->resetToDefaults();
        VontrelApp app;
        app.setInteractive(false);
        app.start();
        QVERIFY(app.shownMessages().isEmpty());
        QCOMPARE(ConfigManager::instance()->apiKey(), QStringLiteral("sk-test"));
    }

    void trayMenu()
    {
        VontrelApp app;
        app.setInteractive(false);
        app.start();

        const QList<QAction *> actions = app.trayMenu()->actions();
        QStringList texts;
        for (QAction *action : actions)
            texts << (action->isSeparator() ? QStringLiteral("-") : action->text());
        QCOMPARE(texts, QStringList({"AI Action (Text Screenshot)", "AI Action (Selected/Clipboard Text)",
                                     "-", "Check for Updates...", "Preferences...", "-", "Quit"}));
        for (QAction *action : actions) {
            if (!action->isSeparator())
                QVERIFY2(!action->icon().isNull(), qPrintable(action->text()));
        }
        QCOMPARE(app.captureAction()->shortcut(), QKeySequence(Qt::META | Qt::SHIFT | Qt::Key_1));
        QCOMPARE(app.clipboardTextAction()->shortcut(), QKeySequence(Qt::META | Qt::SHIFT | Qt::Key_2));
        QVERIFY(app.preferencesAction()->shortcut().isEmpty());
        QCOMPARE(app.quitAction()->shortcut(), QKeySequence(QKeySequence::Quit));
        QCOMPARE(app.trayIcon()->contextMenu(), app.trayMenu());
        QCOMPARE(app.trayIcon()->toolTip(),
                 QStringLiteral("Vontrel - %1 Text Screenshot, %2 Selected/Clipboard Text")
                     .arg(QKeySequence(Qt::META | Qt::SHIFT | Qt::Key_1).toString(QKeySequence::NativeText),
                          QKeySequence(Qt::META | Qt::SHIFT | Qt::Key_2).toString(QKeySequence::NativeText)));

        app.updateAction()->setEnabled(false);
        app.updateTrayTexts();
        QCOMPARE(app.updateAction()->text(), QStringLiteral("Checking..."));
    }

    void configuredHotkeysLabelTheMenu()
    {
        ConfigManager::instance()->setCaptureHotkey(QKeySequence(Qt::CTRL | Qt::ALT | Qt::Key_T));
        VontrelApp app;
        app.setInteractive(false);
        app.start();
        QCOMPARE(app.captureAction()->shortcut(), QKeySequence(Qt::CTRL | Qt::ALT | Qt::Key_T));
        QCOMPARE(app.clipboardTextAction()->shortcut(), QKeySequence(Qt::META | Qt::SHIFT | Qt::Key_2));
    }

    void debugLogLines()
    {
        const QString path = debugLogPath();
        QVERIFY(path.endsWith(QStringLiteral("/vontrel-debug.log")));
        QVERIFY(path.startsWith(qEnvironmentVariable("TMPDIR")));
        QFile::remove(path);
        appendDebugLog(QStringLiteral("Hotkey triggered id=1"));
        appendDebugLog(QStringLiteral("Hotkey triggered id=3"));
        QFile file(path);
        QVERIFY(file.open(QIODevice::ReadOnly));
        const QStringList lines = QString::fromUtf8(file.readAll()).split(QLatin1Char('\n'));
        QCOMPARE(lines.size(), 3);
        QCOMPARE(lines.last(), QString());
        const QRegularExpression line(
            QStringLiteral(R"(^\d{4}-\d{2}-\d{2}T\d{2}:\d{2}:\d{2} Hotkey triggered id=3$)"));
        QVERIFY2(line.match(lines.at(1)).hasMatch(), qPrintable(lines.at(1)));
    }
};

QTEST_MAIN(TestVontrelApp)
#include "test_vontrelapp.moc"
