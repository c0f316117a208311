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

namespace {

const QString kBus = QString::fromLocal8Bit(qgetenv("DBUS_SESSION_BUS_ADDRESS"));

QList<PortalGlobalShortcuts::Shortcut> pair(const QString &capture, const QString &text = {})
{
    return {{QStringLiteral("capture"), QStringLiteral("Capture a region"),
             vontrelHotkeyChord(QKeySequence(capture)[0])},
            {QStringLiteral("clipboard-text"), QStringLiteral("Translate the clipboard text"),
             vontrelHotkeyChord(QKeySequence(text)[0])}};
}

} // namespace

class TestPortal : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase()
    {
        QGuiApplication::setDesktopFileName(QStringLiteral("app.vontrel.Vontrel"));
        QVERIFY2(!kBus.isEmpty(), "run-test.sh starts a private bus for tests labelled dbus");
        QVERIFY(QDBusConnection::sessionBus().isConnected());
    }

    void bindActivateRebind()
    {
        FakePortal portal(kBus);
        QVERIFY(portal.isRunning());
        PortalGlobalShortcuts shortcuts(QDBusConnection::sessionBus());
        QSignalSpy bound(&shortcuts, &PortalGlobalShortcuts::bound);
        QSignalSpy activated(&shortcuts, &PortalGlobalShortcuts::activated);

        shortcuts.bind(pair(QStringLiteral("Meta+Shift+1"), QStringLiteral("Ctrl+Alt+T")));
        QVERIFY(bound.wait());
        QCOMPARE(portal.binds().size(), 1);
        QCOMPARE(portal.binds().at(0).preferredTriggers.value(QStringLiteral("capture")),
                 QStringLiteral("SHIFT+LOGO+1"));
        QCOMPARE(portal.binds().at(0).preferredTriggers.value(QStringLiteral("clipboard-text")),
                 QStringLiteral("CTRL+ALT+t"));
        const QStringList boundIds = bound.at(0).at(0).value<QMap<QString, QString>>().keys();
        QCOMPARE(boundIds, QStringList({QStringLiteral("capture"), QStringLiteral("clipboard-text")}));
        QVERIFY(shortcuts.isBound());

        portal.activate(QStringLiteral("clipboard-text"), 4242);
        QVERIFY(activated.wait());
        QCOMPARE(activated.at(0).at(0).toString(), QStringLiteral("clipboard-text"));
        QCOMPARE(activated.at(0).at(1).toULongLong(), 4242ULL);

        portal.changeTrigger(QStringLiteral("capture"), QStringLiteral("CTRL+F9"));
        QVERIFY(bound.wait());
        const auto changed = bound.last().at(0).value<QMap<QString, QString>>();
        QCOMPARE(changed.value(QStringLiteral("capture")), QStringLiteral("CTRL+F9"));

        // A changed pair on the Hotkeys page: the old session goes, a new one carries the new triggers, and
        // the old session's activations no longer count.
        const QString oldSession = portal.openSessions().value(0);
        shortcuts.bind(pair(QStringLiteral("Meta+Shift+1"), QStringLiteral("Ctrl+Enter")));
        QVERIFY(bound.wait());
        QCOMPARE(portal.binds().size(), 2);
        QCOMPARE(portal.binds().at(1).preferredTriggers.value(QStringLiteral("clipboard-text")),
                 QStringLiteral("CTRL+Return"));
        QVERIFY(portal.binds().at(1).session != oldSession);
        QTRY_COMPARE(portal.openSessions(), QStringList{portal.binds().at(1).session});

        activated.clear();
        portal.activate(QStringLiteral("capture"), 7);
        QVERIFY(activated.wait());
        QCOMPARE(activated.at(0).at(0).toString(), QStringLiteral("capture"));

        // Two binds in a row: only the last one's answer counts, and the first session is not left open.
        bound.clear();
        shortcuts.bind(pair(QStringLiteral("Alt+1"), QStringLiteral("Alt+2")));
        shortcuts.bind(pair(QStringLiteral("Alt+Space"), QStringLiteral("Meta+F5")));
        QVERIFY(bound.wait());
        QTest::qWait(200);
        QCOMPARE(bound.size(), 1);
        QCOMPARE(portal.binds().last().preferredTriggers.value(QStringLiteral("capture")),
                 QStringLiteral("ALT+space"));
        QCOMPARE(portal.binds().last().preferredTriggers.value(QStringLiteral("clipboard-text")),
                 QStringLiteral("LOGO+F5"));
        QTRY_COMPARE(portal.openSessions().size(), 1);

        shortcuts.close();
        QVERIFY(!shortcuts.isBound());
        QTRY_VERIFY(portal.openSessions().isEmpty());
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

        shortcuts.bind(pair(QStringLiteral("Meta+Shift+1"), QStringLiteral("Meta+Shift+2")));
        QVERIFY((bindsNothing ? nothing : refused).wait());
        QVERIFY((bindsNothing ? refused : nothing).isEmpty());
        QVERIFY(!shortcuts.isBound());
        // A session that binds nothing is not kept open.
        if (bindsNothing)
            QTRY_VERIFY(portal.openSessions().isEmpty());
        portal.activate(QStringLiteral("capture"), 1);
        QTest::qWait(200);
        QVERIFY(activated.isEmpty());
        QVERIFY(bound.isEmpty());

        // Asking again (the user changed the keys after refusing) shows the dialog again and may succeed.
        portal.setBindResponse(0);
        portal.setBindsNothing(false);
        shortcuts.bind(pair(QStringLiteral("Meta+Shift+1"), QStringLiteral("Meta+Shift+2")));
        QVERIFY(bound.wait());
    }

    void requestsComeAfterTheAppId()
    {
        // A connection of its own, so this is its first request whatever ran before.
        const QString name = QStringLiteral("vontrel-fresh-connection");
        {
            QDBusConnection fresh = QDBusConnection::connectToBus(kBus, name);
            FakePortal portal(kBus);
            PortalGlobalShortcuts shortcuts(fresh);
            QSignalSpy bound(&shortcuts, &PortalGlobalShortcuts::bound);
            shortcuts.bind(pair(QStringLiteral("Meta+Shift+1")));
            QVERIFY(bound.wait());
            PortalScreenshot screenshot(fresh);
            QSignalSpy taken(&screenshot, &PortalScreenshot::taken);
            portal.setScreenshot(QImage(8, 8, QImage::Format_RGB32));
            screenshot.take();
            QVERIFY(taken.wait());
            // Once per connection, before anything else: the portal files what follows under that id.
            QCOMPARE(portal.calls().mid(0, 2), QStringList({QStringLiteral("Register app.vontrel.Vontrel"),
                                                            QStringLiteral("CreateSession")}));
            QCOMPARE(portal.calls().filter(QStringLiteral("Register")).size(), 1);
        }
        QDBusConnection::disconnectFromBus(name);
    }

    void missingInterfacesAreNamed()
    {
        {
            FakePortal portal(kBus, /*globalShortcuts=*/false, /*screenshot=*/false);
            PortalGlobalShortcuts shortcuts(QDBusConnection::sessionBus());
            QSignalSpy shortcutsMissing(&shortcuts, &PortalGlobalShortcuts::unavailable);
            shortcuts.bind(pair(QStringLiteral("Meta+Shift+1")));
            QVERIFY(shortcutsMissing.wait());
            QCOMPARE(shortcutsMissing.at(0).at(0).toString(),
                     QStringLiteral("org.freedesktop.portal.GlobalShortcuts"));

            PortalScreenshot screenshot(QDBusConnection::sessionBus());
            QSignalSpy screenshotMissing(&screenshot, &PortalScreenshot::unavailable);
            screenshot.take();
            QVERIFY(screenshotMissing.wait());
            QCOMPARE(screenshotMissing.at(0).at(0).toString(),
                     QStringLiteral("org.freedesktop.portal.Screenshot"));
            QVERIFY(!screenshot.isBusy());
        }
        // No portal on the bus at all counts as missing too, not as a refusal.
        PortalGlobalShortcuts shortcuts(QDBusConnection::sessionBus());
        QSignalSpy missing(&shortcuts, &PortalGlobalShortcuts::unavailable);
        shortcuts.bind(pair(QStringLiteral("Meta+Shift+1")));
        QVERIFY(missing.wait());
    }

    void screenshotReadsTheReturnedFile()
    {
        FakePortal portal(kBus);
        QImage desktop(320, 200, QImage::Format_RGB32);
        desktop.fill(Qt::darkBlue);
        QPainter(&desktop).fillRect(QRect(10, 20, 30, 40), Qt::yellow);
        portal.setScreenshot(desktop);

        PortalScreenshot screenshot(QDBusConnection::sessionBus());
        QSignalSpy taken(&screenshot, &PortalScreenshot::taken);
        QSignalSpy failed(&screenshot, &PortalScreenshot::failed);
        screenshot.take();
        screenshot.take(); // ignored while the first runs
        QVERIFY(taken.wait());
        QCOMPARE(portal.screenshotCount(), 1);
        QCOMPARE(portal.lastScreenshotOptions().value(QStringLiteral("interactive")).toBool(), false);
        QCOMPARE(taken.at(0).at(0).value<QImage>().convertToFormat(QImage::Format_RGB32), desktop);
        // The portal made the file for this request alone, and it shows the whole screen: gone once read.
        QVERIFY(!portal.lastScreenshotFile().isEmpty());
        QVERIFY(!QFile::exists(portal.lastScreenshotFile()));

        // A hung portal ends the capture instead of holding it for good, and its request is closed.
        PortalScreenshot impatient(QDBusConnection::sessionBus(), nullptr, std::chrono::milliseconds(300));
        QSignalSpy hung(&impatient, &PortalScreenshot::failed);
        portal.setScreenshotResponse(FakePortal::NoAnswer);
        impatient.take();
        QVERIFY(hung.wait());
        QVERIFY(hung.at(0).at(0).toString().contains(QStringLiteral("no answer")));
        QVERIFY(!impatient.isBusy());
        QTRY_COMPARE(portal.closedRequests().size(), 1);
    }

    void screenshotRefusals_data()
    {
        QTest::addColumn<uint>("response");
        QTest::addColumn<QStringList>("stored"); // application id, permission; ...
        QTest::addColumn<QString>("outcome");    // "taken", "failed", "refused", "remembered:<id>"

        QTest::newRow("dialog dismissed") << 1u << QStringList() << QStringLiteral("refused");
        QTest::newRow("backend failed, nothing stored") << 2u << QStringList() << QStringLiteral("failed");
        // Debian 12's portal files every unsandboxed application under the empty id.
        QTest::newRow("denial kept for all host apps")
            << 0u << QStringList({QString(), QStringLiteral("no")}) << QStringLiteral("remembered:");
        QTest::newRow("denial kept for this app")
            << 0u << QStringList({QStringLiteral("app.vontrel.Vontrel"), QStringLiteral("no")})
            << QStringLiteral("remembered:app.vontrel.Vontrel");
        QTest::newRow("this app allowed despite an old denial")
            << 0u
            << QStringList({QString(), QStringLiteral("no"), QStringLiteral("app.vontrel.Vontrel"),
                            QStringLiteral("yes")})
            << QStringLiteral("taken");
    }

    void screenshotRefusals()
    {
        QFETCH(uint, response);
        QFETCH(QStringList, stored);
        QFETCH(QString, outcome);
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
        if (outcome == QLatin1String("taken")) {
            QCOMPARE(taken.size(), 1);
        } else if (outcome == QLatin1String("failed")) {
            QCOMPARE(failed.at(0).at(0).toString(), QStringLiteral("Screenshot answered 2"));
        } else {
            QCOMPARE(refused.size(), 1);
            const bool remembered = outcome.startsWith(QLatin1String("remembered:"));
            QCOMPARE(refused.at(0).at(0).toBool(), remembered);
            if (remembered)
                QCOMPARE(refused.at(0).at(1).toString(), outcome.section(QLatin1Char(':'), 1));
        }
    }

    void lateScreenshotIsAnnouncedAndUsed()
    {
        FakePortal portal(kBus);
        QImage desktop(16, 16, QImage::Format_RGB32);
        desktop.fill(Qt::red);
        portal.setScreenshot(desktop);
        // The user reads the permission dialog for a while before answering.
        portal.setScreenshotDelay(1500);
        PortalScreenshot screenshot(QDBusConnection::sessionBus(), nullptr, std::chrono::seconds(60),
                                    std::chrono::milliseconds(100));
        QSignalSpy waiting(&screenshot, &PortalScreenshot::waiting);
        QSignalSpy taken(&screenshot, &PortalScreenshot::taken);
        screenshot.take();
        QVERIFY(waiting.wait());
        QVERIFY(taken.isEmpty());
        QVERIFY(taken.wait(30000));
        QCOMPARE(waiting.size(), 1);
        QCOMPARE(taken.at(0).at(0).value<QImage>().pixelColor(0, 0), QColor(Qt::red));
    }
};

QTEST_MAIN(TestPortal)
#include "test_portal.moc"
