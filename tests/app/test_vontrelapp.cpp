#include "FakeHotkeyBackend.h"
#include "TestEnv.h"

#include "app/DebugLog.h"
#include "app/VontrelApp.h"
#include "config/ConfigManager.h"
#include "platform/HotkeyManager.h"
#include "ui/preferences/HotkeysPage.h"
#include "ui/preferences/PreferencesWindow.h"
#include "update/UpdateChecker.h"

#include <QAction>
#include <QApplication>
#include <QDir>
#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>
#include <QMenu>
#include <QSignalSpy>
#include <QSystemTrayIcon>
#include <QTest>

using namespace Qt::StringLiterals;

namespace {

const QKeySequence kMetaShift1(Qt::META | Qt::SHIFT | Qt::Key_1);
const QKeySequence kMetaShift2(Qt::META | Qt::SHIFT | Qt::Key_2);
const QKeySequence kCtrlAltT(Qt::CTRL | Qt::ALT | Qt::Key_T);
const QKeySequence kCtrlAltY(Qt::CTRL | Qt::ALT | Qt::Key_Y);

} // namespace

class TestVontrelApp : public QObject
{
    Q_OBJECT

private:
    std::shared_ptr<FakeHotkeyBackend::State> m_hotkeys; // what the last app's hotkey backend was asked

    // A started app whose hotkeys go to a fake backend.
    std::unique_ptr<VontrelApp> startApp(QMap<int, int> failingIds = {})
    {
        auto backend = std::make_unique<FakeHotkeyBackend>();
        m_hotkeys = backend->state();
        m_hotkeys->registerStatus = failingIds;
        m_hotkeys->errorText = u"Ctrl+Alt+Y is held by another program"_s;
        auto app = std::make_unique<VontrelApp>();
        app->setInteractive(false);
        app->setHotkeyBackendForTesting(std::move(backend));
        app->start();
        return app;
    }

private slots:
    void initTestCase()
    {
        QApplication::setApplicationName(u"Vontrel"_s);
        QApplication::setOrganizationName(u"Vontrel"_s);
        // Nothing in this test may reach beyond the loopback interface: port 1 refuses at once.
        UpdateChecker::instance()->setServiceUrl(QUrl(u"http://127.0.0.1:1"_s));
    }

    void init()
    {
        QDir(QFileInfo(ConfigManager::configFilePath()).absolutePath()).removeRecursively();
        ConfigManager::instance()->resetToDefaults();
    }

    void firstStartWritesFileAndAsksForKey()
    {
        auto app = startApp();

        const QString path = ConfigManager::configFilePath();
        const QJsonObject hotkeys = QJsonDocument::fromJson(TestEnv::readFile(path))["hotkeys"].toObject();
        // The default hotkeys stand in at run time but are not stored.
        QCOMPARE(hotkeys.value("capture"), QJsonValue(QString()));
        QCOMPARE(m_hotkeys->grabbed.value(HotkeyManager::CaptureHotkey).key, Qt::Key_1);
        QCOMPARE(m_hotkeys->grabbed.value(HotkeyManager::ClipboardTextHotkey).key, Qt::Key_2);

        QCOMPARE(app->shownMessages(),
                 QStringList(u"Configuration Required\nPlease configure your API key in:\n"
                             "%1\n\nThen restart the application."_s.arg(path)));

        // What the Hotkeys page stores when the capture hotkey takes the clipboard hotkey's default: the
        // clipboard hotkey left empty does not take back its default.
        app.reset();
        ConfigManager::instance()->setCaptureHotkey(kMetaShift2);
        app = startApp();
        QCOMPARE(m_hotkeys->grabbed.value(HotkeyManager::CaptureHotkey).key, Qt::Key_2);
        QVERIFY(!m_hotkeys->grabbed.contains(HotkeyManager::ClipboardTextHotkey));
    }

    void failedStartupRegistration()
    {
        ConfigManager::instance()->setClipboardTextHotkey(kCtrlAltY);
        auto app = startApp({{HotkeyManager::ClipboardTextHotkey, 1}});
        QVERIFY(m_hotkeys->grabbed.isEmpty());
        QVERIFY(app->shownMessages().last().endsWith(
            u"Hotkey Registration Failed\nFailed to register global hotkeys.\n\nCtrl+Alt+Y is "
            "held by another program"_s));
        QCOMPARE(app->shownBalloons(), QStringList(u"Hotkey Registration Failed\nGlobal hotkeys are "
                                                   "not active. See debug log:\n%1"_s.arg(debugLogPath())));
        // The pair tried stays on the Hotkeys page to be changed; the menu and the page say the hotkeys are
        // off and why, rather than show keys that do nothing.
        QCOMPARE(app->preferencesWindow()->hotkeysPage()->clipboardTextHotkey(), kCtrlAltY);
        QVERIFY(app->clipboardTextAction()->shortcut().isEmpty());
        QVERIFY(app->trayMenu()->actions().first()->isVisible());
        QCOMPARE(app->trayMenu()->actions().first()->text(),
                 u"Hotkeys off: Ctrl+Alt+Y is held by another program"_s);
        QVERIFY(app->preferencesWindow()->hotkeysPage()->hotkeysOffText().startsWith(
            u"Global hotkeys are off: Ctrl+Alt+Y is held by another program\n\n"_s));
    }

    // Changes made while the recorder is active wait for it to end; a change that fails takes the working
    // pair back.
    void hotkeyChanges()
    {
        ConfigManager::instance()->setApiKey(u"sk-test"_s);
        auto app = startApp();

        app->onHotkeyEditingChanged(true);
        QVERIFY(m_hotkeys->grabbed.isEmpty());
        app->onHotkeysChanged(kCtrlAltY, kMetaShift2);
        app->onHotkeysChanged(kCtrlAltT, kMetaShift2);
        QVERIFY2(m_hotkeys->grabbed.isEmpty(), "nothing is registered while the recorder is active");

        app->onHotkeyEditingChanged(false);
        QCOMPARE(m_hotkeys->grabbed.value(HotkeyManager::CaptureHotkey).key, Qt::Key_T);
        QCOMPARE(app->captureAction()->shortcut(), kCtrlAltT);
        QVERIFY(app->trayIcon()->toolTip().contains(kCtrlAltT.toString(QKeySequence::NativeText)));

        // An edit that ends without a change registers the last working pair again.
        app->onHotkeyEditingChanged(true);
        app->onHotkeyEditingChanged(false);
        QCOMPARE(m_hotkeys->grabbed.value(HotkeyManager::CaptureHotkey).key, Qt::Key_T);
        QVERIFY(app->shownBalloons().isEmpty());

        // A change that fails says so and reverts to the pair that worked last.
        m_hotkeys->registerStatus.insert(HotkeyManager::CaptureHotkey, 1);
        ConfigManager::instance()->setCaptureHotkey(kCtrlAltY);
        app->onHotkeysChanged(kCtrlAltY, kMetaShift2);
        QCOMPARE(app->shownBalloons(),
                 QStringList(u"Hotkey Registration Failed\nFailed to register the new hotkeys. "
                             "Reverted to the previous working hotkeys."_s));
        QCOMPARE(ConfigManager::instance()->captureHotkey(), kCtrlAltT);
        // The working pair failed to come back as well (the fake refuses the capture id whatever its keys).
        QVERIFY(app->captureAction()->shortcut().isEmpty());
        QVERIFY(!app->hotkeysOffText().isEmpty());

        // A failure after editing says why and takes the working pair back, rather than leaving none.
        m_hotkeys->registerStatus.clear();
        m_hotkeys->refusedKeys << kCtrlAltY.toString();
        app->onHotkeyEditingChanged(true);
        ConfigManager::instance()->setCaptureHotkey(kCtrlAltY);
        app->onHotkeysChanged(kCtrlAltY, kMetaShift2);
        app->onHotkeyEditingChanged(false);
        QCOMPARE(app->shownBalloons().last(),
                 u"Hotkey Registration Failed\nFailed to register hotkeys after editing.\nCtrl+Alt+Y "
                 "is held by another program\nReverted to the previous working hotkeys."_s);
        QCOMPARE(m_hotkeys->grabbed.value(HotkeyManager::CaptureHotkey).key, Qt::Key_T);
        QCOMPARE(m_hotkeys->grabbed.value(HotkeyManager::ClipboardTextHotkey).key, Qt::Key_2);
        QCOMPARE(ConfigManager::instance()->captureHotkey(), kCtrlAltT);
        // Working again, the menu shows them again.
        QCOMPARE(app->captureAction()->shortcut(), kCtrlAltT);
        QVERIFY(!app->trayMenu()->actions().first()->isVisible());
        QVERIFY(app->preferencesWindow()->hotkeysPage()->hotkeysOffText().isEmpty());
    }

    // A left click opens the menu a right click opens; a double click adds no second one.
    void trayLeftClickOpensTheMenu()
    {
        auto app = startApp();
        QMenu *menu = app->trayMenu();
        QCOMPARE(app->trayIcon()->contextMenu(), menu);
        emit app->trayIcon()->activated(QSystemTrayIcon::Context);
        QVERIFY(!menu->isVisible()); // the tray itself shows the context menu
        emit app->trayIcon()->activated(QSystemTrayIcon::Trigger);
        QTRY_VERIFY(menu->isVisible());
        menu->hide();
        emit app->trayIcon()->activated(QSystemTrayIcon::DoubleClick);
        QVERIFY(!menu->isVisible());
    }

    void configuredAppAndMenuUpdateCheck()
    {
        // With a key in the file nothing is shown at start-up; a session's error is a balloon.
        ConfigManager::instance()->setApiKey(u"sk-test"_s);
        ConfigManager::instance()->resetToDefaults();
        auto app = startApp();
        QVERIFY(app->shownMessages().isEmpty() && app->shownBalloons().isEmpty());
        app->onSessionError(u"Network error: refused"_s);
        QCOMPARE(app->shownBalloons(), QStringList(u"Vontrel Error\nNetwork error: refused"_s));
        UpdateChecker *checker = UpdateChecker::instance();

        // Answers to checks the menu did not start (the About page's) are not the menu's.
        emit checker->checkFailed(u"elsewhere"_s);
        QVERIFY(app->shownMessages().isEmpty());

        app->updateAction()->trigger();
        QVERIFY(!app->updateAction()->isEnabled());
        QCOMPARE(app->updateAction()->text(), u"Checking..."_s);
        QTRY_VERIFY_WITH_TIMEOUT(app->updateAction()->isEnabled(), 30000);
        QCOMPARE(app->updateAction()->text(), u"Check for Updates..."_s);
        QCOMPARE(app->shownMessages().size(), 1);
        QVERIFY(app->shownMessages().first().startsWith(u"Check for Updates\n"_s));

        // The answer arrives before the refused connection's: that one is then no longer awaited.
        QSignalSpy refused(checker, &UpdateChecker::checkFailed);
        app->updateAction()->trigger();
        emit checker->checkSucceeded(false, u"0.2.7"_s, QUrl());
        QCOMPARE(app->shownMessages().last(), u"Check for Updates\nYou're up to date."_s);
        QVERIFY(refused.wait(30000));
        QCOMPARE(app->shownMessages().size(), 2);
    }
};

QTEST_MAIN(TestVontrelApp)
#include "test_vontrelapp.moc"
