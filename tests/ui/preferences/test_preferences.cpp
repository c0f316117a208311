#include "LoopbackHttpServer.h"
#include "config/ConfigManager.h"
#include "i18n/LanguageManager.h"
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

// Answers the modal message boxes a page opens: records "title: text" and presses the named button.
class MessageBoxCatcher : public QTimer
{
public:
    QStringList seen;
    explicit MessageBoxCatcher(const QString &answer = QString())
    {
        connect(this, &QTimer::timeout, this, [this, answer] {
            auto *box = qobject_cast<QMessageBox *>(QApplication::activeModalWidget());
            if (!box || box->property("seen").toBool())
                return;
            box->setProperty("seen", true);
            seen << box->windowTitle() + QStringLiteral(": ") + box->text();
            for (QAbstractButton *button : box->buttons())
                if (button->text() == answer)
                    return button->click();
            box->close();
        });
        start(5);
    }
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
        m_openedUrls.clear();
    }

    // Escape closes the window as the close button does, unless the focused control takes the key itself.
    void escapeCloses_data()
    {
        QTest::addColumn<int>("page");
        QTest::addColumn<QString>("focus"); // a control's class or object name; empty: the page list
        QTest::addColumn<bool>("closes");
        QTest::newRow("page list") << int(PreferencesWindow::GeneralPageIndex) << QString() << true;
        QTest::newRow("text field") << int(PreferencesWindow::AIProviderPageIndex)
                                    << QStringLiteral("QLineEdit") << true;
        QTest::newRow("hotkey editor")
            << int(PreferencesWindow::HotkeysPageIndex) << QStringLiteral("CaptureHotkeyEdit") << false;
    }

    void escapeCloses()
    {
        QFETCH(int, page);
        QFETCH(QString, focus);
        PreferencesWindow window;
        window.show();
        QVERIFY(QTest::qWaitForWindowExposed(&window));
        window.showPage(page);
        QWidget *target = window.findChild<QListWidget *>();
        if (!focus.isEmpty()) {
            const QList<QWidget *> all = window.findChildren<QWidget *>();
            const auto found = std::find_if(all.cbegin(), all.cend(), [&](QWidget *w) {
                return w->isVisible() && (w->objectName() == focus || w->inherits(qPrintable(focus)));
            });
            QVERIFY(found != all.cend());
            target = *found;
        }
        QTest::keyClick(target, Qt::Key_Escape);
        QFETCH(bool, closes);
        QCOMPARE(window.isVisible(), !closes);
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

        // A key that would cross other networks in clear text is warned of, and still stored as typed.
        const auto *warning = child<QLabel>(&page, "WarningText");
        QVERIFY(warning->isHidden());
        url->setText(QStringLiteral("http://llm.example.com/v1"));
        QCOMPARE(config->apiUrl(), QStringLiteral("http://llm.example.com/v1"));
        QVERIFY(!warning->isHidden() && warning->text().contains(QLatin1String("llm.example.com")));
        url->setText(QStringLiteral("https://llm.example.com/v1"));
        QVERIFY(warning->isHidden());
    }

    void providerConnectionTest_data()
    {
        QTest::addColumn<QString>("key");
        QTest::addColumn<QString>("message");
        QTest::newRow("success") << "sk-good"
                                 << "Test Connection: Connection successful! API is working.";
        QTest::newRow("wrong key")
            << "sk-wrong"
            << "Test Connection Failed: Failed to connect:\nAPI error 401: Incorrect API key provided";
        QTest::newRow("missing key") << ""
                                     << "Test Connection: Please enter an API key first.";
    }

    void providerConnectionTest()
    {
        QFETCH(QString, key);
        QFETCH(QString, message);
        const int before = m_server.requestCount();
        AIProviderPage page;
        child<QLineEdit>(&page, "ApiUrlEdit")->setText(m_server.baseUrl());
        child<QLineEdit>(&page, "ApiKeyEdit")->setText(key);
        auto *button = child<QPushButton>(&page, "TestConnectionButton");
        MessageBoxCatcher catcher;
        button->click();
        QTRY_COMPARE_WITH_TIMEOUT(catcher.seen.size(), 1, 20000);
        QVERIFY2(catcher.seen.at(0).startsWith(message), qPrintable(catcher.seen.at(0)));
        QTRY_VERIFY_WITH_TIMEOUT(button->isEnabled(), 5000);
        const int asked = key.isEmpty() ? 0 : 1;
        QCOMPARE(m_server.requestCount(), before + asked);
        QVERIFY(!asked || m_server.requests().last().body.contains("Say 'Hello' and nothing else."));
    }

    void actionsTargetLanguageFallsBackToSystemLocale()
    {
        ConfigManager::instance()->setTargetLanguage(QString()); // main() gives a French system locale
        QFile::remove(ConfigManager::configFilePath());
        TranslationSettingsPage page;
        QCOMPARE(child<QComboBox>(&page, "TargetLanguageCombo")->currentData().toString(), "French");
        QVERIFY(!QFile::exists(ConfigManager::configFilePath())); // untouched until a change
        child<QTextEdit>(&page, "SystemPromptEdit")->setPlainText(QStringLiteral("Into {lang}."));
        QCOMPARE(ConfigManager::instance()->targetLanguage(), "French"); // any edit stores both as shown
    }

    // A newer version found, and the user chooses to download it.
    void aboutUpdateCheck()
    {
        m_updateAnswer = ScriptedResponse::json(
            200, "{\"latest_version\":\"0.3.0\",\"download_url\":\"https://example.test/vontrel-0.3.0\"}");
        AboutPage page;
        QVERIFY(showsLabel(&page, QStringLiteral("Version 0.2.7")));
        auto *button = child<QPushButton>(&page, "CheckForUpdatesButton");
        MessageBoxCatcher catcher(QStringLiteral("Download"));
        button->click();
        QVERIFY(!button->isEnabled());
        QTRY_COMPARE_WITH_TIMEOUT(
            catcher.seen, QStringList(QStringLiteral("Update Available: A new version is available: 0.3.0")),
            20000);
        QTRY_VERIFY_WITH_TIMEOUT(button->isEnabled(), 5000);
        QCOMPARE(button->text(), QStringLiteral("Check for Updates"));
        QCOMPARE(m_openedUrls, QList<QUrl>{QUrl(QStringLiteral("https://example.test/vontrel-0.3.0"))});
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

#include "test_preferences.moc"
