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

QList<PortalGlobalShortcuts::Shortcut> pair(const QKeySequence &capture, const QKeySequence &text)
{
    return {{QStringLiteral("capture"), QStringLiteral("Capture a region"), vontrelHotkeyChord(capture[0])},
            {QStringLiteral("clipboard-text"), QStringLiteral("Translate the clipboard text"),
             vontrelHotkeyChord(text[0])}};
}

} // namespace

class TestPortal : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void bindActivateRebind();
    void refusedBindDeliversNothing();
    void missingInterfacesAreNamed();
    void screenshotReadsTheReturnedFile();
    void screenPartAndRatio_data();
    void screenPartAndRatio();
};

void TestPortal::initTestCase()
{
    QVERIFY2(!kBus.isEmpty(), "run-test.sh starts a private bus for tests labelled dbus");
    QVERIFY(QDBusConnection::sessionBus().isConnected());
}

void TestPortal::bindActivateRebind()
{
    FakePortal portal(kBus);
    QVERIFY(portal.isRunning());
    PortalGlobalShortcuts shortcuts(QDBusConnection::sessionBus());
    QSignalSpy bound(&shortcuts, &PortalGlobalShortcuts::bound);
    QSignalSpy activated(&shortcuts, &PortalGlobalShortcuts::activated);

    shortcuts.bind(
        pair(QKeySequence(QStringLiteral("Meta+Shift+1")), QKeySequence(QStringLiteral("Ctrl+Alt+T"))));
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

    // A changed pair on the Hotkeys page: the old session goes, a new one carries the new triggers, and the
    // old session's activations no longer count.
    const QString oldSession = portal.openSessions().value(0);
    shortcuts.bind(
        pair(QKeySequence(QStringLiteral("Meta+Shift+1")), QKeySequence(QStringLiteral("Ctrl+Enter"))));
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
    shortcuts.bind(pair(QKeySequence(QStringLiteral("Alt+1")), QKeySequence(QStringLiteral("Alt+2"))));
    shortcuts.bind(pair(QKeySequence(QStringLiteral("Alt+Space")), QKeySequence(QStringLiteral("Meta+F5"))));
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

void TestPortal::refusedBindDeliversNothing()
{
    FakePortal portal(kBus);
    portal.setBindResponse(1);
    PortalGlobalShortcuts shortcuts(QDBusConnection::sessionBus());
    QSignalSpy refused(&shortcuts, &PortalGlobalShortcuts::refused);
    QSignalSpy bound(&shortcuts, &PortalGlobalShortcuts::bound);
    QSignalSpy activated(&shortcuts, &PortalGlobalShortcuts::activated);

    shortcuts.bind(
        pair(QKeySequence(QStringLiteral("Meta+Shift+1")), QKeySequence(QStringLiteral("Meta+Shift+2"))));
    QVERIFY(refused.wait());
    QVERIFY(!shortcuts.isBound());
    portal.activate(QStringLiteral("capture"), 1);
    QTest::qWait(200);
    QVERIFY(activated.isEmpty());
    QVERIFY(bound.isEmpty());

    // Asking again (the user changed the keys after refusing) shows the dialog again and may succeed.
    portal.setBindResponse(0);
    shortcuts.bind(
        pair(QKeySequence(QStringLiteral("Meta+Shift+1")), QKeySequence(QStringLiteral("Meta+Shift+2"))));
    QVERIFY(bound.wait());
}

void TestPortal::missingInterfacesAreNamed()
{
    {
        FakePortal portal(kBus, /*globalShortcuts=*/false, /*screenshot=*/false);
        PortalGlobalShortcuts shortcuts(QDBusConnection::sessionBus());
        QSignalSpy shortcutsMissing(&shortcuts, &PortalGlobalShortcuts::unavailable);
        shortcuts.bind(pair(QKeySequence(QStringLiteral("Meta+Shift+1")), QKeySequence()));
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
    shortcuts.bind(pair(QKeySequence(QStringLiteral("Meta+Shift+1")), QKeySequence()));
    QVERIFY(missing.wait());
}

void TestPortal::screenshotReadsTheReturnedFile()
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
    // The portal's file may be the user's own copy: it stays.
    QVERIFY(QFile::exists(portal.lastScreenshotFile()));

    portal.setScreenshotResponse(1);
    screenshot.take();
    QVERIFY(failed.wait());
    QCOMPARE(taken.size(), 1);
    QVERIFY(!screenshot.isBusy());

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

void TestPortal::screenPartAndRatio_data()
{
    QTest::addColumn<QSize>("wholeSize");
    QTest::addColumn<QRect>("screen");
    QTest::addColumn<QRect>("expectedSource");
    QTest::addColumn<qreal>("expectedRatio");

    // Two screens side by side: 1000x600 at (0,0) and 800x600 at (1000,0); the desktop box is 1800x600.
    QTest::newRow("unscaled right screen")
        << QSize(1800, 600) << QRect(1000, 0, 800, 600) << QRect(1000, 0, 800, 600) << 1.0;
    QTest::newRow("scale 2 left screen")
        << QSize(3600, 1200) << QRect(0, 0, 1000, 600) << QRect(0, 0, 2000, 1200) << 2.0;
    QTest::newRow("fractional 1.5") << QSize(2700, 900) << QRect(1000, 0, 800, 600)
                                    << QRect(1500, 0, 1200, 900) << 1.5;
}

void TestPortal::screenPartAndRatio()
{
    QFETCH(QSize, wholeSize);
    QFETCH(QRect, screen);
    QFETCH(QRect, expectedSource);
    QFETCH(qreal, expectedRatio);

    QImage whole(wholeSize, QImage::Format_RGB32);
    whole.fill(Qt::black);
    QPainter(&whole).fillRect(expectedSource, Qt::green);
    const QImage part = PortalScreenshot::screenPart(whole, QRect(0, 0, 1800, 600), screen);
    QCOMPARE(part.size(), expectedSource.size());
    QCOMPARE(part.devicePixelRatio(), expectedRatio);
    QCOMPARE(part.deviceIndependentSize().toSize(), screen.size());
    QCOMPARE(part.pixelColor(0, 0), QColor(Qt::green));
    QCOMPARE(part.pixelColor(part.width() - 1, part.height() - 1), QColor(Qt::green));
}

QTEST_MAIN(TestPortal)
#include "test_portal.moc"
