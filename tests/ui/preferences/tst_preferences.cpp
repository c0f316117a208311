#include "LoopbackHttpServer.h"
#include "config/ConfigManager.h"
#include "i18n/LanguageManager.h"
#include "ui/ThemeColors.h"
#include "ui/preferences/AIProviderPage.h"
#include "ui/preferences/AboutPage.h"
#include "ui/preferences/GeneralPage.h"
#include "ui/preferences/HotkeysPage.h"
#include "ui/preferences/PreferencesWindow.h"
#include "ui/preferences/TranslationSettingsPage.h"
#include "update/UpdateChecker.h"

#include <QtTest>
#include <QtWidgets>

namespace {

template<typename T>
T *child(QWidget *parent, const char *name)
{
    return parent->findChild<T *>(QString::fromLatin1(name));
}

bool showsLabel(QWidget *parent, const QString &text)
{
    const QList<QLabel *> labels = parent->findChildren<QLabel *>();
    return std::any_of(labels.cbegin(), labels.cend(),
                       [&](QLabel *l) { return l->text() == text && !l->isHidden(); });
}

void usePalette(bool dark)
{
    QPalette palette;
    palette.setColor(QPalette::Window, QColor(dark ? 0x202020 : 0xefefef));
    palette.setColor(QPalette::WindowText, QColor(dark ? 0xe0e0e0 : 0x101010));
    QApplication::setPalette(palette);
}

bool followsTheme(QWidget *window, bool dark)
{
    const ThemeColors colors = vontrelThemeColorsFor(dark);
    return window->styleSheet().contains(
        QStringLiteral("QWidget#PreferencesWindow { background-color: %1; color: %2; }")
            .arg(colors.windowBackground, colors.textPrimary));
}

QString zh(const char *context, const char *text)
{
    return QCoreApplication::translate(context, text);
}

QByteArray latest(const QByteArray &version)
{
    return "{\"latest_version\":\"" + version + "\",\"download_url\":\"https://example.test/vontrel-" +
           version + "\"}";
}

ScriptedResponse heldJson(const QByteArray &body)
{
    return ScriptedResponse::json(200, QByteArray()).holdUntilReleased().send(body);
}

// Answers the modal message boxes a page opens: records each one and presses the named button (or closes it).
class MessageBoxCatcher : public QObject
{
public:
    struct Seen
    {
        QString title, text;
        QMessageBox::Icon icon;
    };
    QList<Seen> seen;

    explicit MessageBoxCatcher(const QString &answer = QString())
    {
        connect(&m_timer, &QTimer::timeout, this, [this, answer] {
            auto *box = qobject_cast<QMessageBox *>(QApplication::activeModalWidget());
            if (!box || box == m_last)
                return;
            m_last = box;
            seen.append({box->windowTitle(), box->text(), box->icon()});
            for (QAbstractButton *button : box->buttons())
                if (button->text() == answer)
                    return button->click();
            box->close();
        });
        m_timer.start(5);
    }

private:
    QTimer m_timer;
    QPointer<QMessageBox> m_last;
};

} // namespace

class TestPreferences : public QObject
{
    Q_OBJECT

public slots:
    void openUrl(const QUrl &url) { m_openedUrls << url; } // stands in for the desktop's browser

private slots:
    void initTestCase()
    {
        QCoreApplication::setApplicationVersion(QStringLiteral("0.2.7"));
        QDesktopServices::setUrlHandler(QStringLiteral("https"), this, "openUrl");
        QVERIFY(m_server.listen());
        m_server.setHandler([this](const RecordedRequest &request) {
            if (!request.path().endsWith("/chat/completions"))
                return m_updateAnswer;
            if (request.header("Authorization") != "Bearer sk-good")
                return ScriptedResponse::json(401,
                                              "{\"error\":{\"message\":\"Incorrect API key provided\"}}");
            return ScriptedResponse::sse().send("data: {\"choices\":[{\"delta\":{\"content\":\"Hi\"}}]}\n\n"
                                                "data: [DONE]\n\n");
        });
        UpdateChecker::instance()->setServiceUrl(QUrl(m_server.baseUrl(QString())));
    }

    void init()
    {
        m_server.releaseHeld();
        LanguageManager::instance()->applyLanguage(QStringLiteral("en"));
        ConfigManager::instance()->resetToDefaults();
        usePalette(false);
        m_openedUrls.clear();
    }

    void windowSidebarPagesAndCloseHides()
    {
        PreferencesWindow window;
        auto *sidebar = child<QListWidget>(&window, "PreferencesSidebar");
        QStringList names;
        for (int i = 0; i < sidebar->count(); ++i)
            names << sidebar->item(i)->text();
        QCOMPARE(names, QStringList({"General", "Hotkeys", "AI Provider", "AI Actions", "About"}));
        sidebar->setCurrentRow(2);
        QCOMPARE(child<QStackedWidget>(&window, "PreferencesContent")->currentWidget(),
                 window.aiProviderPage());
        window.showPage(4);
        window.showPage(5); // out of range: ignored
        QCOMPARE(sidebar->currentRow(), 4);

        window.show();
        QVERIFY(QTest::qWaitForWindowExposed(&window));
        QVERIFY(!window.close()); // the close is refused: the window only hides
        QVERIFY(!window.isVisible());
        window.show();
        QCOMPARE(window.currentPage(), 4);
    }

    void windowFollowsLightAndDark()
    {
        PreferencesWindow window;
        window.show();
        QVERIFY(QTest::qWaitForWindowExposed(&window));
        QVERIFY(followsTheme(&window, false) && !window.styleSheet().contains(QLatin1Char('%')));
        usePalette(true);
        QTRY_VERIFY_WITH_TIMEOUT(followsTheme(&window, true), 5000);
        usePalette(false);
        QTRY_VERIFY_WITH_TIMEOUT(followsTheme(&window, false), 5000);
    }

    void windowForwardsHotkeysAndShowsRevertedPair()
    {
        PreferencesWindow window;
        QSignalSpy hotkeys(&window, &PreferencesWindow::hotkeysChanged);
        const QKeySequence chosen(Qt::CTRL | Qt::ALT | Qt::Key_X);
        child<QKeySequenceEdit>(window.hotkeysPage(), "CaptureHotkeyEdit")->setKeySequence(chosen);
        QCOMPARE(hotkeys.count(), 1);
        QCOMPARE(hotkeys.at(0).at(1).value<QKeySequence>(), QKeySequence(Qt::META | Qt::SHIFT | Qt::Key_2));
        // A reverted pair is shown as it is: not validated, stored or announced again.
        window.setHotkeys(QKeySequence(Qt::META | Qt::SHIFT | Qt::Key_1), QKeySequence());
        QVERIFY(window.clipboardTextHotkey().isEmpty());
        QCOMPARE(hotkeys.count(), 1);
        QCOMPARE(ConfigManager::instance()->captureHotkey(), chosen);
    }

    void switchingToChineseRelabelsEverything()
    {
        ConfigManager::instance()->setTargetLanguage(QStringLiteral("German"));
        m_updateAnswer = heldJson(latest("0.2.7"));
        const int requests = m_server.requestCount();
        PreferencesWindow window;
        QSignalSpy ai(&window, &PreferencesWindow::aiSettingsChanged);
        auto *update = child<QPushButton>(window.aboutPage(), "CheckForUpdatesButton");
        MessageBoxCatcher catcher;
        update->click(); // an update check is under way during the switch

        // What start-up wires: a stored language is applied at once.
        QObject context;
        connect(ConfigManager::instance(), &ConfigManager::configChanged, &context,
                [] { LanguageManager::instance()->applyLanguage(ConfigManager::instance()->uiLanguage()); });
        auto *combo = window.generalPage()->findChild<QComboBox *>();
        combo->setCurrentIndex(combo->findData(QStringLiteral("zh-CN")));
        QVERIFY(zh("PreferencesWindow", "Preferences") != QLatin1String("Preferences"));
        QTRY_COMPARE_WITH_TIMEOUT(window.windowTitle(), zh("PreferencesWindow", "Preferences"), 5000);
        QCOMPARE(combo->currentText(), zh("GeneralPage", "Chinese"));
        auto *target = child<QComboBox>(window.translationSettingsPage(), "TargetLanguageCombo");
        QCOMPARE(target->currentText(), zh("TranslationSettingsPage", "German"));
        QCOMPARE(target->currentData().toString(), QStringLiteral("German"));
        QCOMPARE(ai.count(), 0);
        QCOMPARE(update->text(), zh("AboutPage", "Checking..."));

        QTRY_COMPARE_WITH_TIMEOUT(m_server.requestCount(), requests + 1, 20000);
        m_server.releaseHeld();
        QTRY_COMPARE_WITH_TIMEOUT(catcher.seen.size(), 1, 20000);
        QCOMPARE(catcher.seen.at(0).text, zh("AboutPage", "You're up to date."));
        QTRY_COMPARE_WITH_TIMEOUT(update->text(), zh("AboutPage", "Check for Updates"), 5000);
    }

    void generalLanguageCombo()
    {
        // Unknown codes show "Follow System" without storing anything.
        const QList<std::pair<QString, QString>> rows = {
            {"", ""}, {" zh-CN ", "zh-CN"}, {"en", "en"}, {"fr", ""}, {"zh_CN", ""}};
        for (const auto &[configured, shown] : rows) {
            ConfigManager::instance()->setUiLanguage(configured);
            QSignalSpy changed(ConfigManager::instance(), &ConfigManager::configChanged);
            GeneralPage page;
            QCOMPARE(page.findChild<QComboBox *>()->currentData().toString(), shown);
            QCOMPARE(changed.count(), 0);
        }
    }

    void generalStartAtLoginFailureRevertsAndExplains()
    {
        // A plain file where the autostart folder belongs makes the entry impossible to write.
        const QString autostart = QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation) +
                                  QStringLiteral("/autostart");
        QDir(autostart).removeRecursively();
        QDir().mkpath(QFileInfo(autostart).path());
        QFile blocker(autostart);
        QVERIFY(blocker.open(QIODevice::WriteOnly));

        GeneralPage page;
        auto *box = page.findChild<QCheckBox *>();
        const QString failure = QStringLiteral("Failed to update system auto-start setting");
        page.setStartAtLogin(true);
        QVERIFY(!box->isChecked() && showsLabel(&page, failure));
        QCOMPARE(ConfigManager::instance()->startAtLogin(), false);

        QVERIFY(blocker.remove());
        box->click();
        QCOMPARE(ConfigManager::instance()->startAtLogin(), true);
        QVERIFY(!showsLabel(&page, failure));
        QVERIFY(QFile::exists(autostart + QStringLiteral("/vontrel.desktop")));
        box->click();
        QVERIFY(!QFile::exists(autostart + QStringLiteral("/vontrel.desktop")));
    }

    void providerStoresAsTypedButNotOnOpening()
    {
        ConfigManager *config = ConfigManager::instance();
        config->setModel(QStringLiteral("my-own-model"));
        QFile::remove(ConfigManager::configFilePath());
        AIProviderPage page;
        auto *model = child<QComboBox>(&page, "ModelCombo");
        QCOMPARE(model->currentText(), QStringLiteral("my-own-model"));
        QVERIFY(!QFile::exists(ConfigManager::configFilePath()));

        auto *url = child<QLineEdit>(&page, "ApiUrlEdit");
        url->clear();
        QTest::keyClicks(url, QStringLiteral(" http://127.0.0.1:9/v1 "));
        QCOMPARE(config->apiUrl(), QStringLiteral(" http://127.0.0.1:9/v1 "));
        QVERIFY(QFile::exists(ConfigManager::configFilePath()));
    }

    void providerConnectionTest_data()
    {
        QTest::addColumn<bool>("withUrl");
        QTest::addColumn<QString>("key");
        QTest::addColumn<QString>("title");
        QTest::addColumn<QString>("text");
        const auto row = [](const char *name, bool withUrl, const char *key, const char *title,
                            const char *text) {
            QTest::newRow(name) << withUrl << QString::fromLatin1(key) << QString::fromLatin1(title)
                                << QString::fromLatin1(text);
        };
        row("success", true, "sk-good", "Test Connection", "Connection successful! API is working.");
        row("wrong key", true, "sk-wrong", "Test Connection Failed", "Failed to connect:\nNetwork error: ");
        row("missing key", true, "", "Test Connection", "Please enter an API key first.");
        row("missing url", false, "sk-good", "Test Connection Failed",
            "Failed to configure client. Please check your settings.");
    }

    void providerConnectionTest()
    {
        QFETCH(bool, withUrl);
        QFETCH(QString, key);
        QFETCH(QString, title);
        QFETCH(QString, text);
        const int before = m_server.requestCount();
        AIProviderPage page;
        child<QLineEdit>(&page, "ApiUrlEdit")->setText(withUrl ? m_server.baseUrl() : QString());
        child<QLineEdit>(&page, "ApiKeyEdit")->setText(key);
        auto *button = child<QPushButton>(&page, "TestConnectionButton");
        MessageBoxCatcher catcher;
        button->click();
        QTRY_COMPARE_WITH_TIMEOUT(catcher.seen.size(), 1, 20000);
        QCOMPARE(catcher.seen.at(0).title, title);
        QVERIFY2(catcher.seen.at(0).text.startsWith(text), qPrintable(catcher.seen.at(0).text));
        QTRY_VERIFY_WITH_TIMEOUT(button->isEnabled(), 5000);
        const int asked = withUrl && !key.isEmpty() ? 1 : 0;
        QCOMPARE(m_server.requestCount(), before + asked);
        QVERIFY(!asked || m_server.requests().last().body.contains("Say 'Hello' and nothing else."));
    }

    void actionsTargetLanguage()
    {
        // main() gives this process a French system locale.
        const QList<std::pair<QString, QString>> rows = {
            {"", "French"}, {"Korean", "Korean"}, {"Dutch", "Chinese"}};
        ConfigManager *config = ConfigManager::instance();
        for (const auto &[configured, shown] : rows) {
            config->setTargetLanguage(configured);
            QFile::remove(ConfigManager::configFilePath());
            TranslationSettingsPage page;
            QCOMPARE(child<QComboBox>(&page, "TargetLanguageCombo")->currentData().toString(), shown);
            QVERIFY(!QFile::exists(ConfigManager::configFilePath())); // untouched until a change
            child<QTextEdit>(&page, "SystemPromptEdit")->setPlainText(QStringLiteral("Into {lang}."));
            QCOMPARE(config->targetLanguage(), shown); // any edit stores both fields as shown
            QCOMPARE(config->systemPrompt(), QStringLiteral("Into {lang}."));
        }
    }

    void actionsEmptiedPromptIsStoredEmptyAndShownAsDefault()
    {
        child<QTextEdit>(std::make_unique<TranslationSettingsPage>().get(), "SystemPromptEdit")->clear();
        QCOMPARE(ConfigManager::instance()->systemPrompt(), QString());
        TranslationSettingsPage reopened;
        QCOMPARE(child<QTextEdit>(&reopened, "SystemPromptEdit")->toPlainText(),
                 ConfigManager::defaultSystemPrompt());
    }

    void aboutUpdateCheck_data()
    {
        QTest::addColumn<QByteArray>("body");
        QTest::addColumn<QString>("answer");
        QTest::addColumn<QString>("text");
        const QString available = QStringLiteral("Update Available: A new version is available: 0.3.0");
        QTest::newRow("newer, download") << latest("0.3.0") << QStringLiteral("Download") << available;
        QTest::newRow("newer, later") << latest("0.3.0") << QStringLiteral("Later") << available;
        QTest::newRow("newer, window closed") << latest("0.3.0") << QString() << available;
        QTest::newRow("up to date") << latest("0.2.7") << QString()
                                    << QStringLiteral("Check for Updates: You're up to date.");
        QTest::newRow("failure") << QByteArray("{\"latest_version\":\"v0.3\"}") << QString()
                                 << QStringLiteral("Check for Updates: Update check failed: missing fields");
    }

    void aboutUpdateCheck()
    {
        QFETCH(QByteArray, body);
        QFETCH(QString, answer);
        QFETCH(QString, text);
        m_updateAnswer = ScriptedResponse::json(200, body);
        AboutPage page;
        QVERIFY(showsLabel(&page, QStringLiteral("Version 0.2.7")));
        auto *button = child<QPushButton>(&page, "CheckForUpdatesButton");
        MessageBoxCatcher catcher(answer);
        button->click();
        QVERIFY(!button->isEnabled());
        QTRY_COMPARE_WITH_TIMEOUT(catcher.seen.size(), 1, 20000);
        QCOMPARE(catcher.seen.at(0).title + QStringLiteral(": ") + catcher.seen.at(0).text, text);
        QTRY_VERIFY_WITH_TIMEOUT(button->isEnabled(), 5000);
        QCOMPARE(button->text(), QStringLiteral("Check for Updates"));
        const QList<QUrl> expected = {QUrl(QStringLiteral("https://example.test/vontrel-0.3.0"))};
        QCOMPARE(m_openedUrls, answer == QLatin1String("Download") ? expected : QList<QUrl>());
    }

    void aboutIgnoresChecksStartedElsewhere()
    {
        m_updateAnswer = heldJson(latest("0.3.0"));
        const int requests = m_server.requestCount();
        UpdateChecker *checker = UpdateChecker::instance();
        QSignalSpy succeeded(checker, &UpdateChecker::checkSucceeded);
        AboutPage page;
        checker->checkNow(); // as the tray menu does
        MessageBoxCatcher catcher;
        child<QPushButton>(&page, "CheckForUpdatesButton")->click();
        QTRY_COMPARE_WITH_TIMEOUT(catcher.seen.size(), 1, 20000);
        QCOMPARE(catcher.seen.at(0).text, QStringLiteral("Update check already in progress"));
        QCOMPARE(catcher.seen.at(0).icon, QMessageBox::Warning);

        // The tray's own answer is not shown by the page (its boxes would be modal and synchronous).
        QTRY_COMPARE_WITH_TIMEOUT(m_server.requestCount(), requests + 1, 20000);
        m_server.releaseHeld();
        QVERIFY(succeeded.wait(20000));
        QVERIFY(!QApplication::activeModalWidget());
        QCOMPARE(catcher.seen.size(), 1);
    }

private:
    LoopbackHttpServer m_server;
    ScriptedResponse m_updateAnswer;
    QList<QUrl> m_openedUrls;
};

int main(int argc, char *argv[])
{
    // A French system locale: the AI actions page falls back to it; the interface stays English.
    qputenv("LC_ALL", "fr_FR.UTF-8");
    qputenv("LANG", "fr_FR.UTF-8");
    qunsetenv("LANGUAGE");
    QApplication app(argc, argv);
    TestPreferences test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_preferences.moc"
