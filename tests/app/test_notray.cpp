// A desktop without a tray (GNOME without an extension, sway without a bar) whose portal may lack global
// shortcuts: the fake portal and a notification service of our own share the private bus run-test.sh starts.

#include "FakePortal.h"

#include "app/Notifier.h"
#include "app/SingleInstance.h"
#include "app/TrayMenu.h"
#include "app/VontrelApp.h"
#include "config/ConfigManager.h"
#include "platform/linux/PortalHotkeyBackend.h"
#include "platform/linux/WaylandPlatform.h"
#include "ui/preferences/HotkeysPage.h"
#include "ui/preferences/PreferencesWindow.h"
#include "update/UpdateChecker.h"

#include <QAction>
#include <QApplication>
#include <QDBusConnection>
#include <QDir>
#include <QFileInfo>
#include <QMenu>
#include <QRegularExpression>
#include <QSystemTrayIcon>
#include <QTest>

using namespace Qt::StringLiterals;

namespace {

const QString kBus = QString::fromLocal8Bit(qgetenv("DBUS_SESSION_BUS_ADDRESS"));
QStringList g_log;

void recordLog(QtMsgType, const QMessageLogContext &, const QString &message)
{
    g_log << message;
}

void startOnWayland(VontrelApp &app)
{
    app.setInteractive(false);
    app.setPlatformForTesting(std::make_unique<WaylandPlatform>(QDBusConnection::sessionBus()));
    app.setHotkeyBackendForTesting(std::make_unique<PortalHotkeyBackend>(QDBusConnection::sessionBus()));
    app.start();
}

} // namespace

// The desktop's notification service as far as a client sees it: records each Notify.
class NotificationRecorder final : public QObject
{
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.freedesktop.Notifications")

public:
    struct Notification
    {
        QString appName;
        QString icon;
        QString summary;
        QString body;
        QVariantMap hints;
    };
    QList<Notification> received;
    QStringList summaries; // those of `received`

    explicit NotificationRecorder(const QString &address)
        : m_bus(QDBusConnection::connectToBus(address, u"vontrel-notification-recorder"_s))
    {
        m_running = m_bus.registerObject(u"/org/freedesktop/Notifications"_s, this,
                                         QDBusConnection::ExportScriptableSlots) &&
                    m_bus.registerService(u"org.freedesktop.Notifications"_s);
    }
    ~NotificationRecorder() override
    {
        m_bus.unregisterService(u"org.freedesktop.Notifications"_s);
        m_bus.unregisterObject(u"/org/freedesktop/Notifications"_s);
        QDBusConnection::disconnectFromBus(u"vontrel-notification-recorder"_s);
    }

    bool isRunning() const { return m_running; }

public slots:
    Q_SCRIPTABLE uint Notify(const QString &appName, uint, const QString &icon, const QString &summary,
                             const QString &body, const QStringList &, const QVariantMap &hints, int)
    {
        received.append({appName, icon, summary, body, hints});
        summaries << summary;
        return uint(received.size());
    }
    Q_SCRIPTABLE QStringList GetCapabilities() { return {u"body"_s}; }

private:
    QDBusConnection m_bus;
    bool m_running = false;
};

class TestNoTray : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase()
    {
        QVERIFY2(!kBus.isEmpty(), "run-test.sh starts a private bus for tests labelled dbus");
        QApplication::setApplicationName(u"Vontrel"_s);
        QApplication::setOrganizationName(u"Vontrel"_s);
        QGuiApplication::setDesktopFileName(u"app.vontrel.Vontrel"_s);
        UpdateChecker::instance()->setServiceUrl(QUrl(u"http://127.0.0.1:1"_s));
        qputenv("XDG_CURRENT_DESKTOP", "sway");
        QVERIFY(!QSystemTrayIcon::isSystemTrayAvailable());
    }

    void init()
    {
        QDir(QFileInfo(ConfigManager::configFilePath()).absolutePath()).removeRecursively();
        ConfigManager::instance()->resetToDefaults();
        ConfigManager::instance()->setApiKey(u"sk-test"_s);
    }

    void hotkeyOutcomeReachesTheUser_data()
    {
        QTest::addColumn<bool>("globalShortcuts");
        QTest::addColumn<bool>("bindsNothing");
        QTest::addColumn<QString>("reason"); // empty: the hotkeys work
        QTest::newRow("no shortcuts portal")
            << false << false
            << u"This desktop's portal has no org.freedesktop.portal.GlobalShortcuts interface, so "
               "global hotkeys are off."_s;
        QTest::newRow("portal binds nothing")
            << true << true
            << u"The desktop's shortcuts portal accepted the global hotkeys but bound none of "
               "them, so they are off."_s;
        QTest::newRow("granted") << true << false << QString();
    }

    void hotkeyOutcomeReachesTheUser()
    {
        QFETCH(bool, globalShortcuts);
        QFETCH(bool, bindsNothing);
        QFETCH(QString, reason);
        NotificationRecorder notifications(kBus);
        QVERIFY(notifications.isRunning());
        FakePortal portal(kBus, globalShortcuts);
        QVERIFY(portal.isRunning());
        portal.setBindsNothing(bindsNothing);

        g_log.clear();
        const QtMessageHandler previous = qInstallMessageHandler(recordLog);
        VontrelApp app;
        app.setInteractive(false);
        app.setHotkeyBackendForTesting(std::make_unique<PortalHotkeyBackend>(QDBusConnection::sessionBus()));
        app.start();
        const QRegularExpression answer(u"\\(startup\\): ok = false|the desktop granted the hotkeys"_s);
        const bool answered = QTest::qWaitFor([&] { return !g_log.filter(answer).isEmpty(); }, 30000);
        qInstallMessageHandler(previous);
        QVERIFY2(answered, qPrintable(g_log.join(u'\n')));

        // Until the portal has answered, the log does not claim the hotkeys work.
        const QStringList registration = g_log.filter(u"Hotkey registration (startup)"_s);
        QCOMPARE(registration.size(), 2);
        QVERIFY2(registration.at(0).contains(u"ok = awaiting the desktop's answer"_s),
                 qPrintable(registration.at(0)));
        QVERIFY(g_log.filter(u"ok = true"_s).isEmpty());

        QMenu *menu = app.trayMenu();
        HotkeysPage *page = app.preferencesWindow()->hotkeysPage();
        if (reason.isEmpty()) {
            QVERIFY(!menu->actions().first()->isVisible());
            QVERIFY(!app.captureAction()->shortcut().isEmpty());
            QVERIFY(page->hotkeysOffText().isEmpty());
            QTest::qWait(200);
            QVERIFY(notifications.received.isEmpty());
            return;
        }

        // With no tray to show a balloon, the desktop's notification service says it.
        QTRY_COMPARE(notifications.summaries, QStringList{u"Global Hotkeys Unavailable"_s});
        const NotificationRecorder::Notification told = notifications.received.first();
        QCOMPARE(told.appName, u"Vontrel"_s);
        QCOMPARE(told.icon, u"app.vontrel.Vontrel"_s);
        QCOMPARE(told.hints.value(u"desktop-entry"_s).toString(), u"app.vontrel.Vontrel"_s);
        QVERIFY2(told.body.startsWith(u"Global hotkeys are off: "_s + reason), qPrintable(told.body));
        for (const char *expected :
             {"vontrel --capture", "vontrel --selection", "bindsym $mod+Shift+1 exec", "start Vontrel again"})
            QVERIFY2(told.body.contains(QLatin1String(expected)), expected);
        // On sway the advice is sway's alone.
        QVERIFY(!told.body.contains("GNOME"_L1));

        QCOMPARE(page->hotkeysOffText(), told.body);
        QVERIFY(menu->actions().first()->isVisible());
        // The menu entry is cut to a readable width; its tool tip has the whole reason.
        QVERIFY(menu->actions().first()->text().startsWith(u"Hotkeys off: "_s + reason.left(60)));
        QCOMPARE(menu->actions().first()->toolTip(), reason);
        QVERIFY(app.captureAction()->shortcut().isEmpty());
        QVERIFY(app.clipboardTextAction()->shortcut().isEmpty());
    }

    // An earlier Deny the desktop keeps: the capture says so, and Vontrel offers to make the desktop ask
    // again. Then the desktop's dialog is open and unanswered: the user learns what it is for, and a capture
    // asked for meanwhile is told to wait rather than vanish.
    void captureRefusedThenWaitingForTheDesktop()
    {
        NotificationRecorder notifications(kBus);
        FakePortal portal(kBus);
        portal.setStoredScreenshotPermission(QString(), u"no"_s);
        portal.setScreenshot(QImage(64, 64, QImage::Format_RGB32));
        VontrelApp app;
        startOnWayland(app);
        app.notifier()->setNextAnswer(true);

        const InstanceRequest capture{InstanceRequest::Capture, {}, {}};
        app.handleRequest(capture);
        QTRY_VERIFY(app.shownMessages().filter(u"Screenshots Refused"_s).size() == 1);
        QTRY_VERIFY(portal.storedScreenshotPermissions().isEmpty());
        const QStringList told = notifications.summaries;
        QVERIFY2(told.contains(u"Vontrel Error"_s), qPrintable(told.join(u',')));
        QTRY_VERIFY(notifications.summaries.count(u"Screenshots Refused"_s) == 1);
        const QString error = notifications.received.at(told.indexOf(u"Vontrel Error"_s)).body;
        QVERIFY2(error.contains(u"DeletePermission screenshot screenshot ''"_s), qPrintable(error));

        // The next capture reaches the desktop again.
        portal.setScreenshotResponse(FakePortal::NoAnswer);
        app.handleRequest(capture);
        QTRY_COMPARE(portal.screenshotCount(), 2);
        QTRY_COMPARE_WITH_TIMEOUT(notifications.summaries.count(u"Waiting for Screenshot Permission"_s), 1,
                                  30000);
        app.handleRequest(capture);
        QTRY_VERIFY(notifications.summaries.contains(u"Screenshot Pending"_s));
        QCOMPARE(portal.screenshotCount(), 2);
    }
};

QTEST_MAIN(TestNoTray)
#include "test_notray.moc"
