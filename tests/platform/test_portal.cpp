// The desktop-portal clients of Wayland sessions against a fake portal on the private session bus that
// run-test.sh starts.

#include "FakePortal.h"

#include "platform/linux/PortalGlobalShortcuts.h"
#include "platform/linux/PortalScreenshot.h"

#include <QDBusConnection>
#include <QGuiApplication>
#include <QPainter>
#include <QSignalSpy>
#include <QTest>

using namespace Qt::StringLiterals;

namespace {

using Triggers = QMap<QString, QString>;

const QString kBus = QString::fromLocal8Bit(qgetenv("DBUS_SESSION_BUS_ADDRESS"));

QList<PortalGlobalShortcuts::Shortcut> pair(const QString &capture, const QString &text = {})
{
    return {
        {u"capture"_s, u"Capture a region"_s, vontrelHotkeyChord(QKeySequence(capture)[0])},
        {u"clipboard-text"_s, u"Translate the clipboard text"_s, vontrelHotkeyChord(QKeySequence(text)[0])}};
}

} // namespace

class TestPortal : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase()
    {
        QGuiApplication::setDesktopFileName(u"app.vontrel.Vontrel"_s);
        QVERIFY2(!kBus.isEmpty(), "run-test.sh starts a private bus for tests labelled dbus");
        QVERIFY(QDBusConnection::sessionBus().isConnected());
    }

    void bindActivateRebind()
    {
        // A connection of its own, so its first request is this test's whatever ran before.
        QDBusConnection fresh = QDBusConnection::connectToBus(kBus, u"vontrel-fresh-connection"_s);
        FakePortal portal(kBus);
        QVERIFY(portal.isRunning());
        PortalGlobalShortcuts shortcuts(fresh);
        QSignalSpy bound(&shortcuts, &PortalGlobalShortcuts::bound);
        QSignalSpy activated(&shortcuts, &PortalGlobalShortcuts::activated);

        shortcuts.bind(pair(u"Meta+Shift+1"_s, u"Ctrl+Alt+T"_s));
        QVERIFY(bound.wait());
        QCOMPARE(portal.binds().size(), 1);
        QCOMPARE(portal.binds().at(0).preferredTriggers,
                 (Triggers{{"capture", "SHIFT+LOGO+1"}, {"clipboard-text", "CTRL+ALT+t"}}));
        QCOMPARE(bound.at(0).at(0).value<Triggers>().keys(),
                 QStringList({u"capture"_s, u"clipboard-text"_s}));
        QVERIFY(shortcuts.isBound());
        // Once per connection, before anything else: the portal files what follows under that id.
        QCOMPARE(portal.calls().mid(0, 2),
                 QStringList({u"Register app.vontrel.Vontrel"_s, u"CreateSession"_s}));

        portal.activate(u"clipboard-text"_s, 4242);
        QVERIFY(activated.wait());
        QCOMPARE(activated.at(0).at(0).toString(), u"clipboard-text"_s);
        QCOMPARE(activated.at(0).at(1).toULongLong(), 4242ULL);

        portal.changeTrigger(u"capture"_s, u"CTRL+F9"_s);
        QVERIFY(bound.wait());
        QCOMPARE(bound.last().at(0).value<Triggers>().value(u"capture"_s), u"CTRL+F9"_s);

        // A changed pair on the Hotkeys page: the old session goes, a new one carries the new triggers, and
        // the old session's activations no longer count.
        const QString oldSession = portal.openSessions().value(0);
        shortcuts.bind(pair(u"Meta+Shift+1"_s, u"Ctrl+Enter"_s));
        QVERIFY(bound.wait());
        QCOMPARE(portal.binds().size(), 2);
        QCOMPARE(portal.binds().at(1).preferredTriggers.value(u"clipboard-text"_s), u"CTRL+Return"_s);
        QVERIFY(portal.binds().at(1).session != oldSession);
        QTRY_COMPARE(portal.openSessions(), QStringList{portal.binds().at(1).session});

        activated.clear();
        portal.activate(u"capture"_s, 7);
        QVERIFY(activated.wait());
        QCOMPARE(activated.at(0).at(0).toString(), u"capture"_s);

        // Two binds in a row: only the last one's answer counts, and the first session is not left open.
        bound.clear();
        shortcuts.bind(pair(u"Alt+1"_s, u"Alt+2"_s));
        shortcuts.bind(pair(u"Alt+Space"_s, u"Meta+F5"_s));
        QVERIFY(bound.wait());
        QTest::qWait(200);
        QCOMPARE(bound.size(), 1);
        QCOMPARE(portal.binds().last().preferredTriggers,
                 (Triggers{{"capture", "ALT+space"}, {"clipboard-text", "LOGO+F5"}}));
        QTRY_COMPARE(portal.openSessions().size(), 1);

        shortcuts.close();
        QVERIFY(!shortcuts.isBound());
        QTRY_VERIFY(portal.openSessions().isEmpty());

        // The screenshot client on the same connection does not register again.
        PortalScreenshot screenshot(fresh);
        QSignalSpy taken(&screenshot, &PortalScreenshot::taken);
        portal.setScreenshot(QImage(8, 8, QImage::Format_RGB32));
        screenshot.take();
        QVERIFY(taken.wait());
        QCOMPARE(portal.calls().filter(u"Register"_s).size(), 1);
    }

    void refusedBindDeliversNothing_data()
    {
        QTest::addColumn<bool>("bindsNothing");
        QTest::newRow("dialog dismissed") << false;
        // Plasma 5.27 answers success with an empty list: as good as a refusal.
        QTest::newRow("success, nothing bound") << true;
    }

    void refusedBindDeliversNothing()
    {
        QFETCH(bool, bindsNothing);
        FakePortal portal(kBus);
        portal.setBindResponse(bindsNothing ? 0 : 1);
        portal.setBindsNothing(bindsNothing);
        PortalGlobalShortcuts shortcuts(QDBusConnection::sessionBus());
        QSignalSpy refused(&shortcuts, &PortalGlobalShortcuts::refused);
        QSignalSpy nothing(&shortcuts, &PortalGlobalShortcuts::boundNothing);
        QSignalSpy bound(&shortcuts, &PortalGlobalShortcuts::bound);
        QSignalSpy activated(&shortcuts, &PortalGlobalShortcuts::activated);

        shortcuts.bind(pair(u"Meta+Shift+1"_s, u"Meta+Shift+2"_s));
        QVERIFY((bindsNothing ? nothing : refused).wait());
        QVERIFY((bindsNothing ? refused : nothing).isEmpty());
        QVERIFY(!shortcuts.isBound());
        // A session that binds nothing is not kept open.
        if (bindsNothing)
            QTRY_VERIFY(portal.openSessions().isEmpty());
        portal.activate(u"capture"_s, 1);
        QTest::qWait(200);
        QVERIFY(activated.isEmpty() && bound.isEmpty());

        // Asking again (the user changed the keys after refusing) shows the dialog again and may succeed.
        portal.setBindResponse(0);
        portal.setBindsNothing(false);
        shortcuts.bind(pair(u"Meta+Shift+1"_s, u"Meta+Shift+2"_s));
        QVERIFY(bound.wait());
    }

    void missingInterfacesAreNamed()
    {
        {
            FakePortal portal(kBus, /*globalShortcuts=*/false, /*screenshot=*/false);
            PortalGlobalShortcuts shortcuts(QDBusConnection::sessionBus());
            QSignalSpy shortcutsMissing(&shortcuts, &PortalGlobalShortcuts::unavailable);
            shortcuts.bind(pair(u"Meta+Shift+1"_s));
            QVERIFY(shortcutsMissing.wait());
            QCOMPARE(shortcutsMissing.at(0).at(0).toString(), u"org.freedesktop.portal.GlobalShortcuts"_s);

            PortalScreenshot screenshot(QDBusConnection::sessionBus());
            QSignalSpy screenshotMissing(&screenshot, &PortalScreenshot::unavailable);
            screenshot.take();
            QVERIFY(screenshotMissing.wait());
            QCOMPARE(screenshotMissing.at(0).at(0).toString(), u"org.freedesktop.portal.Screenshot"_s);
            QVERIFY(!screenshot.isBusy());
        }
        // No portal on the bus at all counts as missing too, not as a refusal.
        PortalGlobalShortcuts shortcuts(QDBusConnection::sessionBus());
        QSignalSpy missing(&shortcuts, &PortalGlobalShortcuts::unavailable);
        shortcuts.bind(pair(u"Meta+Shift+1"_s));
        QVERIFY(missing.wait());
    }

    void screenshotReadsTheReturnedFileEvenLate()
    {
        FakePortal portal(kBus);
        QImage desktop(320, 200, QImage::Format_RGB32);
        desktop.fill(Qt::darkBlue);
        QPainter(&desktop).fillRect(QRect(10, 20, 30, 40), Qt::yellow);
        portal.setScreenshot(desktop);

        PortalScreenshot screenshot(QDBusConnection::sessionBus());
        QSignalSpy taken(&screenshot, &PortalScreenshot::taken);
        screenshot.take();
        screenshot.take(); // ignored while the first runs
        QVERIFY(taken.wait());
        QCOMPARE(portal.screenshotCount(), 1);
        QCOMPARE(portal.lastScreenshotOptions().value(u"interactive"_s).toBool(), false);
        QCOMPARE(taken.at(0).at(0).value<QImage>().convertToFormat(QImage::Format_RGB32), desktop);
        // The portal made the file for this request alone, and it shows the whole screen: gone once read.
        QVERIFY(!portal.lastScreenshotFile().isEmpty());
        QVERIFY(!QFile::exists(portal.lastScreenshotFile()));

        // The user reads the permission dialog for a while before answering: the wait is announced once, and
        // the late picture is still used.
        PortalScreenshot patient(QDBusConnection::sessionBus(), nullptr, std::chrono::seconds(60),
                                 std::chrono::milliseconds(100));
        QSignalSpy waiting(&patient, &PortalScreenshot::waiting);
        QSignalSpy late(&patient, &PortalScreenshot::taken);
        portal.setScreenshotDelay(1500);
        patient.take();
        QVERIFY(waiting.wait());
        QVERIFY(late.isEmpty());
        QVERIFY(late.wait(30000));
        QCOMPARE(waiting.size(), 1);
        QCOMPARE(late.at(0).at(0).value<QImage>().convertToFormat(QImage::Format_RGB32), desktop);

        // A hung portal ends the capture instead of holding it for good, and its request is closed.
        PortalScreenshot impatient(QDBusConnection::sessionBus(), nullptr, std::chrono::milliseconds(300));
        QSignalSpy hung(&impatient, &PortalScreenshot::failed);
        portal.setScreenshotResponse(FakePortal::NoAnswer);
        impatient.take();
        QVERIFY(hung.wait());
        QVERIFY(hung.at(0).at(0).toString().contains(u"no answer"_s));
        QVERIFY(!impatient.isBusy());
        QTRY_COMPARE(portal.closedRequests().size(), 1);
    }

    void screenshotRefusals_data()
    {
        QTest::addColumn<uint>("response");
        QTest::addColumn<QStringList>("stored"); // application id, permission; ...
        QTest::addColumn<QString>("outcome");
        QTest::newRow("dialog dismissed") << 1u << QStringList() << u"refused"_s;
        QTest::newRow("backend failed, nothing stored")
            << 2u << QStringList() << u"failed: Screenshot answered 2"_s;
        // Debian 12's portal files every unsandboxed application under the empty id.
        QTest::newRow("denial kept for all host apps")
            << 0u << QStringList({QString(), u"no"_s}) << u"kept for "_s;
        QTest::newRow("denial kept for this app")
            << 0u << QStringList({u"app.vontrel.Vontrel"_s, u"no"_s}) << u"kept for app.vontrel.Vontrel"_s;
        QTest::newRow("this app allowed despite an old denial")
            << 0u << QStringList({QString(), u"no"_s, u"app.vontrel.Vontrel"_s, u"yes"_s}) << u"taken"_s;
    }

    void screenshotRefusals()
    {
        QFETCH(uint, response);
        QFETCH(QStringList, stored);
        FakePortal portal(kBus);
        portal.setScreenshot(QImage(8, 8, QImage::Format_RGB32));
        portal.setScreenshotResponse(response);
        for (qsizetype i = 0; i + 1 < stored.size(); i += 2)
            portal.setStoredScreenshotPermission(stored.at(i), stored.at(i + 1));

        PortalScreenshot screenshot(QDBusConnection::sessionBus());
        QSignalSpy taken(&screenshot, &PortalScreenshot::taken);
        QSignalSpy refused(&screenshot, &PortalScreenshot::refused);
        QSignalSpy failed(&screenshot, &PortalScreenshot::failed);
        screenshot.take();
        QTRY_COMPARE(taken.size() + refused.size() + failed.size(), 1);
        QVERIFY(!screenshot.isBusy());
        const QString outcome = !taken.isEmpty()               ? u"taken"_s
                                : !failed.isEmpty()            ? "failed: " + failed.at(0).at(0).toString()
                                : refused.at(0).at(0).toBool() ? "kept for " + refused.at(0).at(1).toString()
                                                               : u"refused"_s;
        QTEST(outcome, "outcome");
    }
};

QTEST_MAIN(TestPortal)
#include "test_portal.moc"
