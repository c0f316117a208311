#include "CannedHttpServer.h"
#include "MessageBoxCatcher.h"
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

#include <QApplication>
#include <QCheckBox>
#include <QClipboard>
#include <QComboBox>
#include <QDesktopServices>
#include <QDir>
#include <QFile>
#include <QKeySequenceEdit>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QMimeData>
#include <QPushButton>
#include <QSignalSpy>
#include <QStackedWidget>
#include <QStandardPaths>
#include <QTest>
#include <QTextEdit>

namespace {

template<typename T>
T *child(QWidget *parent, const char *name)
{
    return parent->findChild<T *>(QString::fromLatin1(name));
}

QLabel *visibleLabelWithText(QWidget *parent, const QString &text)
{
    for (QLabel *label : parent->findChildren<QLabel *>()) {
        if (label->text() == text && !label->isHidden())
            return label;
    }
    return nullptr;
}

QPalette lightPalette()
{
    QPalette palette;
    palette.setColor(QPalette::Window, QColor(0xef, 0xef, 0xef));
    palette.setColor(QPalette::WindowText, QColor(0x10, 0x10, 0x10));
    return palette;
}

QPalette darkPalette()
{
    QPalette palette;
    palette.setColor(QPalette::Window, QColor(0x20, 0x20, 0x20));
    palette.setColor(QPalette::WindowText, QColor(0xe0, 0xe0, 0xe0));
    return palette;
}

const QByteArray kSseHello = "data: {\"choices\":[{\"delta\":{\"content\":\"Hello\"}}]}\n\ndata: [DONE]\n\n";

} // namespace

class TestPreferences : public QObject
{
    Q_OBJECT

public slots:
    // Stands in for the desktop's browser.
    void openUrl(const QUrl &url) { m_openedUrls << url; }

private slots:
    void initTestCase();
    void init();
    void cleanupTestCase();

    void windowSidebarAndPages();
    void windowCloseHidesAndKeepsThePage();
    void windowFollowsLightAndDark();
    void windowForwardsPageSignals();
    void windowRelabelsOnLanguageChange();

    void generalLanguageCombo_data();
    void generalLanguageCombo();
    void generalSwitchingToChineseRelabelsTheCombo();
    void generalStartAtLoginFailureRevertsAndExplains();

    void providerOpeningWritesNothing();
    void providerStoresAsTyped();
    void providerConnectionTest_data();
    void providerConnectionTest();

    void actionsTargetLanguage_data();
    void actionsTargetLanguage();
    void actionsRenamesItemsOnLanguageChange();
    void actionsPromptIsPlainTextAndMayBeEmptied();

    void aboutUpdateCheck_data();
    void aboutUpdateCheck();
    void aboutIgnoresChecksStartedElsewhere();
    void aboutKeepsCheckingTextAcrossLanguageChange();

private:
    void setConfigFileAbsent();

    CannedHttpServer *m_server = nullptr;
    QList<QUrl> m_openedUrls;
};

void TestPreferences::initTestCase()
{
    QCoreApplication::setOrganizationName(QStringLiteral("Vontrel"));
    QCoreApplication::setApplicationName(QStringLiteral("Vontrel"));
    QCoreApplication::setApplicationVersion(QStringLiteral("0.2.7"));
    QDesktopServices::setUrlHandler(QStringLiteral("https"), this, "openUrl");
    m_server = new CannedHttpServer(this);
    QVERIFY(m_server->listen());
    UpdateChecker::instance()->setServiceUrl(m_server->baseUrl());
}

void TestPreferences::cleanupTestCase()
{
    QDesktopServices::unsetUrlHandler(QStringLiteral("https"));
}

void TestPreferences::init()
{
    LanguageManager::instance()->applyLanguage(QStringLiteral("en"));
    ConfigManager::instance()->resetToDefaults();
    QApplication::setPalette(lightPalette());
    m_openedUrls.clear();
    UpdateChecker::instance()->setTimeoutMs(30000);
}

void TestPreferences::setConfigFileAbsent()
{
    QFile::remove(ConfigManager::configFilePath());
    QVERIFY(!QFile::exists(ConfigManager::configFilePath()));
}

void TestPreferences::windowSidebarAndPages()
{
    PreferencesWindow window;
    QCOMPARE(window.objectName(), QStringLiteral("PreferencesWindow"));
    QCOMPARE(window.windowTitle(), QStringLiteral("Preferences"));
    QVERIFY(window.isWindow());
    QCOMPARE(window.size(), QSize(700, 500));

    auto *sidebar = child<QListWidget>(&window, "PreferencesSidebar");
    auto *stack = child<QStackedWidget>(&window, "PreferencesContent");
    QVERIFY(sidebar && stack);
    const QStringList names = {"General", "Hotkeys", "AI Provider", "AI Actions", "About"};
    const QStringList tips = {"General settings", "Keyboard shortcuts", "API provider settings",
                              "AI action settings", "Application information"};
    QCOMPARE(sidebar->count(), 5);
    for (int i = 0; i < 5; ++i) {
        QCOMPARE(sidebar->item(i)->text(), names.at(i));
        QCOMPARE(sidebar->item(i)->toolTip(), tips.at(i));
        QCOMPARE(sidebar->item(i)->data(Qt::UserRole).toInt(), i);
    }
    QCOMPARE(stack->widget(4), window.aboutPage());
    QCOMPARE(sidebar->currentRow(), 0);

    window.showPage(4);
    QCOMPARE(stack->currentWidget(), window.aboutPage());
    QCOMPARE(sidebar->currentRow(), 4);
    window.showPage(-1);
    window.showPage(5);
    QCOMPARE(window.currentPage(), 4);
    QCOMPARE(sidebar->currentRow(), 4);

    sidebar->setCurrentRow(2);
    QCOMPARE(stack->currentWidget(), window.aiProviderPage());
}

void TestPreferences::windowCloseHidesAndKeepsThePage()
{
    PreferencesWindow window;
    QVERIFY(!window.isVisible());
    window.show();
    QVERIFY(QTest::qWaitForWindowExposed(&window));
    window.showPage(3);
    QVERIFY(!window.close()); // the close is refused: the window only hides
    QVERIFY(!window.isVisible());
    window.show();
    QVERIFY(window.isVisible());
    QCOMPARE(window.currentPage(), 3);
}

void TestPreferences::windowFollowsLightAndDark()
{
    PreferencesWindow window;
    window.show();
    QVERIFY(QTest::qWaitForWindowExposed(&window));
    const ThemeColors light = vontrelThemeColorsFor(false);
    const ThemeColors dark = vontrelThemeColorsFor(true);
    const QString lightRule = QStringLiteral("QWidget#PreferencesWindow { background-color: %1; color: %2; }")
                                  .arg(light.windowBackground, light.textPrimary);
    const QString darkRule = QStringLiteral("QWidget#PreferencesWindow { background-color: %1; color: %2; }")
                                 .arg(dark.windowBackground, dark.textPrimary);
    QVERIFY(window.styleSheet().contains(lightRule));
    QVERIFY(window.styleSheet().contains(QLatin1String("QLabel#WarningText { color: #d64545;")));
    QVERIFY(!window.styleSheet().contains(QLatin1Char('%')));

    QApplication::setPalette(darkPalette());
    QTRY_VERIFY_WITH_TIMEOUT(window.styleSheet().contains(darkRule), 5000);
    QVERIFY(window.styleSheet().contains(QLatin1String("QLabel#WarningText { color: #ff6b6b;")));
    // The card of a page is drawn from the window's sheet.
    auto *card = window.generalPage()->findChild<QFrame *>(QStringLiteral("SettingsCard"));
    QVERIFY(card);
    QVERIFY(window.styleSheet().contains(
        QStringLiteral("QFrame#SettingsCard { background-color: %1;").arg(dark.cardBackground)));

    QApplication::setPalette(lightPalette());
    QTRY_VERIFY_WITH_TIMEOUT(window.styleSheet().contains(lightRule), 5000);
}

void TestPreferences::windowForwardsPageSignals()
{
    PreferencesWindow window;
    QSignalSpy hotkeys(&window, &PreferencesWindow::hotkeysChanged);
    QSignalSpy ai(&window, &PreferencesWindow::aiSettingsChanged);

    auto *capture = child<QKeySequenceEdit>(window.hotkeysPage(), "CaptureHotkeyEdit");
    capture->setKeySequence(QKeySequence(Qt::CTRL | Qt::ALT | Qt::Key_X));
    QCOMPARE(hotkeys.count(), 1);
    QCOMPARE(hotkeys.at(0).at(0).value<QKeySequence>(), QKeySequence(Qt::CTRL | Qt::ALT | Qt::Key_X));
    QCOMPARE(hotkeys.at(0).at(1).value<QKeySequence>(), QKeySequence(Qt::META | Qt::SHIFT | Qt::Key_2));

    child<QLineEdit>(window.aiProviderPage(), "ApiKeyEdit")->setText(QStringLiteral("sk-1"));
    child<QTextEdit>(window.translationSettingsPage(), "SystemPromptEdit")->setPlainText(QStringLiteral("p"));
    QCOMPARE(ai.count(), 2);

    // A reverted pair is shown as it is: not validated, stored or announced again.
    const QKeySequence revertCapture(Qt::META | Qt::SHIFT | Qt::Key_1);
    window.setHotkeys(revertCapture, QKeySequence());
    QCOMPARE(window.captureHotkey(), revertCapture);
    QVERIFY(window.clipboardTextHotkey().isEmpty());
    QCOMPARE(hotkeys.count(), 1);
    QCOMPARE(ConfigManager::instance()->captureHotkey(), QKeySequence(Qt::CTRL | Qt::ALT | Qt::Key_X));
}

void TestPreferences::windowRelabelsOnLanguageChange()
{
    PreferencesWindow window;
    LanguageManager::instance()->applyLanguage(QStringLiteral("zh-CN"));
    const QString title = QCoreApplication::translate("PreferencesWindow", "Preferences");
    QVERIFY(title != QLatin1String("Preferences"));
    QTRY_COMPARE_WITH_TIMEOUT(window.windowTitle(), title, 5000);
    auto *sidebar = child<QListWidget>(&window, "PreferencesSidebar");
    QCOMPARE(sidebar->item(2)->text(), QCoreApplication::translate("PreferencesWindow", "AI Provider"));
    QCOMPARE(sidebar->item(2)->toolTip(),
             QCoreApplication::translate("PreferencesWindow", "API provider settings"));
    QVERIFY(sidebar->item(2)->text() != QLatin1String("AI Provider"));
}

void TestPreferences::generalLanguageCombo_data()
{
    QTest::addColumn<QString>("configured");
    QTest::addColumn<QString>("shownData");
    QTest::newRow("follow system") << ""
                                   << "";
    QTest::newRow("english") << "en"
                             << "en";
    QTest::newRow("chinese with blanks") << " zh-CN "
                                         << "zh-CN";
    QTest::newRow("unknown code") << "fr"
                                  << "";
    QTest::newRow("underscore form") << "zh_CN"
                                     << "";
}

void TestPreferences::generalLanguageCombo()
{
    QFETCH(QString, configured);
    QFETCH(QString, shownData);
    ConfigManager::instance()->setUiLanguage(configured);
    QSignalSpy changed(ConfigManager::instance(), &ConfigManager::configChanged);
    GeneralPage page;
    auto *combo = page.findChild<QComboBox *>();
    QCOMPARE(combo->count(), 3);
    QCOMPARE(combo->itemText(0), QStringLiteral("Follow System"));
    QCOMPARE(combo->currentData().toString(), shownData);
    QCOMPARE(changed.count(), 0);
    QCOMPARE(ConfigManager::instance()->uiLanguage(), configured);
}

void TestPreferences::generalSwitchingToChineseRelabelsTheCombo()
{
    GeneralPage page;
    auto *combo = page.findChild<QComboBox *>();
    // What start-up wires: a stored language is applied at once.
    const QMetaObject::Connection apply =
        connect(ConfigManager::instance(), &ConfigManager::configChanged, this,
                [] { LanguageManager::instance()->applyLanguage(ConfigManager::instance()->uiLanguage()); });
    combo->setCurrentIndex(combo->findData(QStringLiteral("zh-CN")));
    disconnect(apply);

    QCOMPARE(ConfigManager::instance()->uiLanguage(), QStringLiteral("zh-CN"));
    QCOMPARE(LanguageManager::instance()->effectiveLanguage(), QStringLiteral("zh-CN"));
    const QString chinese = QCoreApplication::translate("GeneralPage", "Chinese");
    QVERIFY(chinese != QLatin1String("Chinese"));
    QTRY_COMPARE_WITH_TIMEOUT(combo->currentText(), chinese, 5000);
    QCOMPARE(combo->currentData().toString(), QStringLiteral("zh-CN"));
    QCOMPARE(combo->itemText(0), QCoreApplication::translate("GeneralPage", "Follow System"));
}

void TestPreferences::generalStartAtLoginFailureRevertsAndExplains()
{
    const QString autostart = QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation) +
                              QStringLiteral("/autostart");
    QDir(autostart).removeRecursively();
    QFile::remove(autostart);
    // A plain file where the autostart folder belongs makes the entry impossible to write.
    QDir().mkpath(QFileInfo(autostart).path());
    {
        QFile blocker(autostart);
        QVERIFY(blocker.open(QIODevice::WriteOnly));
    }

    GeneralPage page;
    auto *box = page.findChild<QCheckBox *>();
    QCOMPARE(box->text(), QStringLiteral("Start at login"));
    const QString failure = QStringLiteral("Failed to update system auto-start setting");
    QVERIFY(!visibleLabelWithText(&page, failure));

    page.setStartAtLogin(true);
    QVERIFY(!box->isChecked());
    QVERIFY(!page.startAtLogin());
    QVERIFY(visibleLabelWithText(&page, failure));
    QCOMPARE(ConfigManager::instance()->startAtLogin(), false);

    QFile::remove(autostart);
    box->click();
    QVERIFY(box->isChecked());
    QCOMPARE(ConfigManager::instance()->startAtLogin(), true);
    QVERIFY(!visibleLabelWithText(&page, failure));
    QVERIFY(QFile::exists(autostart + QStringLiteral("/vontrel.desktop")));

    box->click();
    QCOMPARE(ConfigManager::instance()->startAtLogin(), false);
    QVERIFY(!QFile::exists(autostart + QStringLiteral("/vontrel.desktop")));
}

void TestPreferences::providerOpeningWritesNothing()
{
    ConfigManager::instance()->setModel(QStringLiteral("my-own-model"));
    setConfigFileAbsent();
    QSignalSpy changed(ConfigManager::instance(), &ConfigManager::configChanged);
    AIProviderPage page;
    QCOMPARE(child<QComboBox>(&page, "ModelCombo")->currentText(), QStringLiteral("my-own-model"));
    QCOMPARE(changed.count(), 0);
    QVERIFY(!QFile::exists(ConfigManager::configFilePath()));
}

void TestPreferences::providerStoresAsTyped()
{
    AIProviderPage page;
    QSignalSpy spy(&page, &AIProviderPage::settingsChanged);
    auto *url = child<QLineEdit>(&page, "ApiUrlEdit");
    url->clear();
    QTest::keyClicks(url, QStringLiteral(" http://127.0.0.1:9/v1 "));
    QCOMPARE(ConfigManager::instance()->apiUrl(), QStringLiteral(" http://127.0.0.1:9/v1 "));
    auto *model = child<QComboBox>(&page, "ModelCombo");
    model->lineEdit()->selectAll();
    QTest::keyClicks(model->lineEdit(), QStringLiteral("qwen-max"));
    QTest::keyClick(model->lineEdit(), Qt::Key_Return);
    QCOMPARE(ConfigManager::instance()->model(), QStringLiteral("qwen-max"));
    QCOMPARE(model->count(), 5);
    QVERIFY(spy.count() >= 2);
    QVERIFY(QFile::exists(ConfigManager::configFilePath()));
}

void TestPreferences::providerConnectionTest_data()
{
    QTest::addColumn<bool>("useServer");
    QTest::addColumn<QString>("key");
    QTest::addColumn<int>("status");
    QTest::addColumn<QString>("title");
    QTest::addColumn<QString>("text");
    QTest::addColumn<int>("requests");

    QTest::newRow("success") << true << "sk-good" << 200 << "Test Connection"
                             << "Connection successful! API is working." << 1;
    QTest::newRow("wrong key") << true << "sk-wrong" << 401 << "Test Connection Failed"
                               << "Failed to connect:\nNetwork error: " << 1;
    QTest::newRow("missing key") << true << "" << 200 << "Test Connection"
                                 << "Please enter an API key first." << 0;
    QTest::newRow("missing url") << false << "sk-good" << 200 << "Test Connection Failed"
                                 << "Failed to configure client. Please check your settings." << 0;
    QTest::newRow("missing key and url") << false << "" << 200 << "Test Connection"
                                         << "Please enter an API key first." << 0;
}

void TestPreferences::providerConnectionTest()
{
    QFETCH(bool, useServer);
    QFETCH(QString, key);
    QFETCH(int, status);
    QFETCH(QString, title);
    QFETCH(QString, text);
    QFETCH(int, requests);

    m_server->setHandler([](const CannedHttpServer::Request &request) {
        CannedHttpServer::Response response;
        if (request.headers.value("authorization") != "Bearer sk-good") {
            response.status = 401;
            response.reason = "Unauthorized";
            response.body = R"({"error":{"message":"Incorrect API key provided"}})";
        } else {
            response.contentType = "text/event-stream";
            response.body = kSseHello;
        }
        return response;
    });
    Q_UNUSED(status)
    const int before = int(m_server->requests().size());

    AIProviderPage page;
    child<QLineEdit>(&page, "ApiUrlEdit")
        ->setText(useServer ? m_server->baseUrl().toString() + QStringLiteral("/v1") : QString());
    child<QLineEdit>(&page, "ApiKeyEdit")->setText(key);
    auto *button = child<QPushButton>(&page, "TestConnectionButton");

    MessageBoxCatcher catcher;
    button->click();
    QTRY_COMPARE_WITH_TIMEOUT(catcher.seen.size(), 1, 20000);
    QCOMPARE(catcher.seen.at(0).title, title);
    QVERIFY2(catcher.seen.at(0).text.startsWith(text), qPrintable(catcher.seen.at(0).text));
    QTRY_VERIFY_WITH_TIMEOUT(button->isEnabled(), 5000);
    QVERIFY(!page.isTesting());
    QCOMPARE(m_server->requests().size(), before + requests);
    if (requests)
        QVERIFY(m_server->requests().last().body.contains("Say 'Hello' and nothing else."));
}

void TestPreferences::actionsTargetLanguage_data()
{
    QTest::addColumn<QString>("configured");
    QTest::addColumn<QString>("shown");
    // main() gives this process a French system locale.
    QTest::newRow("empty follows the system") << ""
                                              << "French";
    QTest::newRow("listed") << "Korean"
                            << "Korean";
    QTest::newRow("not listed") << "Dutch"
                                << "Chinese";
}

void TestPreferences::actionsTargetLanguage()
{
    QFETCH(QString, configured);
    QFETCH(QString, shown);
    ConfigManager *config = ConfigManager::instance();
    config->setTargetLanguage(configured);
    QSignalSpy changed(config, &ConfigManager::configChanged);

    TranslationSettingsPage page;
    auto *combo = child<QComboBox>(&page, "TargetLanguageCombo");
    QCOMPARE(combo->count(), 10);
    QCOMPARE(combo->currentData().toString(), shown);
    QCOMPARE(changed.count(), 0);
    QCOMPARE(config->targetLanguage(), configured);

    // Any edit stores both fields as shown.
    child<QTextEdit>(&page, "SystemPromptEdit")->setPlainText(QStringLiteral("Translate into {lang}."));
    QCOMPARE(config->targetLanguage(), shown);
    QCOMPARE(config->systemPrompt(), QStringLiteral("Translate into {lang}."));
}

void TestPreferences::actionsRenamesItemsOnLanguageChange()
{
    ConfigManager::instance()->setTargetLanguage(QStringLiteral("German"));
    TranslationSettingsPage page;
    auto *combo = child<QComboBox>(&page, "TargetLanguageCombo");
    QCOMPARE(combo->currentText(), QStringLiteral("German"));
    QSignalSpy spy(&page, &TranslationSettingsPage::settingsChanged);
    LanguageManager::instance()->applyLanguage(QStringLiteral("zh-CN"));
    const QString german = QCoreApplication::translate("TranslationSettingsPage", "German");
    QVERIFY(german != QLatin1String("German"));
    QTRY_COMPARE_WITH_TIMEOUT(combo->currentText(), german, 5000);
    QCOMPARE(combo->currentData().toString(), QStringLiteral("German"));
    QCOMPARE(spy.count(), 0);
}

void TestPreferences::actionsPromptIsPlainTextAndMayBeEmptied()
{
    TranslationSettingsPage page;
    auto *prompt = child<QTextEdit>(&page, "SystemPromptEdit");
    QCOMPARE(prompt->toPlainText(), ConfigManager::defaultSystemPrompt());

    prompt->clear();
    auto *mime = new QMimeData;
    mime->setHtml(QStringLiteral("<b>Bold</b> and <i>italic</i>"));
    mime->setText(QStringLiteral("Bold and italic"));
    QApplication::clipboard()->setMimeData(mime);
    prompt->paste();
    QCOMPARE(ConfigManager::instance()->systemPrompt(), QStringLiteral("Bold and italic"));
    QVERIFY(!prompt->toHtml().contains(QLatin1String("font-weight:700")));

    prompt->clear();
    QCOMPARE(ConfigManager::instance()->systemPrompt(), QString());
    TranslationSettingsPage reopened;
    QCOMPARE(child<QTextEdit>(&reopened, "SystemPromptEdit")->toPlainText(),
             ConfigManager::defaultSystemPrompt());
}

void TestPreferences::aboutUpdateCheck_data()
{
    QTest::addColumn<QByteArray>("body");
    QTest::addColumn<int>("status");
    QTest::addColumn<QString>("answer");
    QTest::addColumn<QString>("title");
    QTest::addColumn<QString>("text");
    QTest::addColumn<bool>("opened");

    const QByteArray newer =
        R"({"latest_version":"0.3.0","download_url":"https://example.test/vontrel-0.3.0"})";
    QTest::newRow("newer, download") << newer << 200 << "Download"
                                     << "Update Available"
                                     << "A new version is available: 0.3.0" << true;
    QTest::newRow("newer, later") << newer << 200 << "Later"
                                  << "Update Available"
                                  << "A new version is available: 0.3.0" << false;
    QTest::newRow("newer, window closed") << newer << 200 << ""
                                          << "Update Available"
                                          << "A new version is available: 0.3.0" << false;
    QTest::newRow("up to date") << QByteArray(
                                       R"({"latest_version":"0.2.7","download_url":"https://example.test/"})")
                                << 200 << ""
                                << "Check for Updates"
                                << "You're up to date." << false;
    QTest::newRow("failure") << QByteArray(R"({"latest_version":"v0.3"})") << 200 << ""
                             << "Check for Updates"
                             << "Update check failed: missing fields" << false;
}

void TestPreferences::aboutUpdateCheck()
{
    QFETCH(QByteArray, body);
    QFETCH(int, status);
    QFETCH(QString, answer);
    QFETCH(QString, title);
    QFETCH(QString, text);
    QFETCH(bool, opened);

    m_server->setResponse({status, "OK", "application/json", body, false});
    AboutPage page;
    QVERIFY(visibleLabelWithText(&page, QStringLiteral("Version 0.2.7")));
    auto *button = child<QPushButton>(&page, "CheckForUpdatesButton");
    QCOMPARE(button->text(), QStringLiteral("Check for Updates"));

    MessageBoxCatcher catcher(answer);
    button->click();
    QVERIFY(!button->isEnabled());
    QCOMPARE(button->text(), QStringLiteral("Checking..."));
    QTRY_COMPARE_WITH_TIMEOUT(catcher.seen.size(), 1, 20000);
    QCOMPARE(catcher.seen.at(0).title, title);
    QCOMPARE(catcher.seen.at(0).text, text);
    QTRY_VERIFY_WITH_TIMEOUT(button->isEnabled(), 5000);
    QCOMPARE(button->text(), QStringLiteral("Check for Updates"));
    QCOMPARE(m_openedUrls.size(), opened ? 1 : 0);
    if (opened)
        QCOMPARE(m_openedUrls.at(0), QUrl(QStringLiteral("https://example.test/vontrel-0.3.0")));
}

void TestPreferences::aboutIgnoresChecksStartedElsewhere()
{
    CannedHttpServer::Response stall;
    stall.stall = true;
    m_server->setResponse(stall);
    UpdateChecker *checker = UpdateChecker::instance();
    checker->setTimeoutMs(400);
    QSignalSpy failed(checker, &UpdateChecker::checkFailed);

    AboutPage page;
    checker->checkNow(); // as the tray menu does
    MessageBoxCatcher catcher;
    child<QPushButton>(&page, "CheckForUpdatesButton")->click();
    QTRY_COMPARE_WITH_TIMEOUT(catcher.seen.size(), 1, 20000);
    QCOMPARE(catcher.seen.at(0).text, QStringLiteral("Update check already in progress"));
    QCOMPARE(catcher.seen.at(0).icon, QMessageBox::Warning);

    // The tray's own answer (here its time-out) arrives later and is not shown by the page.
    QTRY_COMPARE_WITH_TIMEOUT(failed.count(), 2, 20000);
    QTest::qWait(50);
    QCOMPARE(catcher.seen.size(), 1);
}

void TestPreferences::aboutKeepsCheckingTextAcrossLanguageChange()
{
    CannedHttpServer::Response stall;
    stall.stall = true;
    m_server->setResponse(stall);
    UpdateChecker::instance()->setTimeoutMs(400);
    AboutPage page;
    auto *button = child<QPushButton>(&page, "CheckForUpdatesButton");
    MessageBoxCatcher catcher;
    button->click();
    LanguageManager::instance()->applyLanguage(QStringLiteral("zh-CN"));
    const QString checking = QCoreApplication::translate("AboutPage", "Checking...");
    QVERIFY(checking != QLatin1String("Checking..."));
    QTRY_COMPARE_WITH_TIMEOUT(button->text(), checking, 5000);
    QVERIFY(!button->isEnabled());
    QTRY_COMPARE_WITH_TIMEOUT(catcher.seen.size(), 1, 20000);
    QCOMPARE(button->text(), QCoreApplication::translate("AboutPage", "Check for Updates"));
}

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
