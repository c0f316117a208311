// Vontrel as GNOME Shell 43 runs it, headless, with its real portals (tests/wayland/gnome-session.sh): no
// tray and no shortcuts portal, so the user binds `vontrel --capture` and `vontrel --selection` to desktop
// shortcuts. This test is the other application: a full-screen window of known text that has the focus and
// owns the clipboard and the selected text. Input goes through Mutter's RemoteDesktop (gnome-input.js).

#include "SwayHarness.h"

#include <QClipboard>
#include <QDBusInterface>
#include <QDir>
#include <QLabel>

using SwayHarness::kBound;
using SwayHarness::run;
using SwayHarness::sentText;

class TestGnomeSession : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase()
    {
        const QString unavailable = qEnvironmentVariable("VONTREL_WAYLAND_UNAVAILABLE");
        if (!unavailable.isEmpty())
            QSKIP(qPrintable(QStringLiteral("no headless GNOME Shell: ") + unavailable));
        QCOMPARE(QGuiApplication::platformName(), QStringLiteral("wayland"));
        QApplication::setApplicationName(QStringLiteral("Vontrel"));
        QApplication::setOrganizationName(QStringLiteral("Vontrel"));
        QVERIFY(SessionRig::serveAsProvider(m_server)); // the settings the program reads at start

        // Screenshots were allowed once: GNOME's question itself is answered by hand (gnome-input.js).
        const QString store = QStringLiteral("org.freedesktop.impl.portal.PermissionStore");
        QDBusInterface permissions(store, QStringLiteral("/org/freedesktop/impl/portal/PermissionStore"),
                                   store);
        const QDBusMessage grant =
            permissions.call(QStringLiteral("SetPermission"), QStringLiteral("screenshot"), true,
                             QStringLiteral("screenshot"), QString(), QStringList{"yes"});
        QVERIFY2(grant.type() == QDBusMessage::ReplyMessage, qPrintable(grant.errorMessage()));

        m_monitor.start(QStringLiteral("dbus-monitor"),
                        {QStringLiteral("interface='org.freedesktop.Notifications',member='Notify'")});
        QVERIFY(m_monitor.waitForStarted());
        m_vontrel.setProcessChannelMode(QProcess::ForwardedChannels);
        m_vontrel.start(m_program, {});
        QVERIFY(m_vontrel.waitForStarted());

        m_window.setAlignment(Qt::AlignLeft | Qt::AlignTop);
        m_window.setStyleSheet(
            QStringLiteral("background: white; color: black; padding: 60px; font-size: 40px"));
        m_window.showFullScreen();
        QTRY_VERIFY_WITH_TIMEOUT(m_window.isActiveWindow(), kBound);
    }

    void toldWhereToBindTheActions()
    {
        QByteArray notices;
        QVERIFY(QTest::qWaitFor(
            [&] {
                notices += m_monitor.readAllStandardOutput();
                return notices.contains("Global Hotkeys Unavailable") &&
                       notices.contains("vontrel --selection");
            },
            kBound));
        QVERIFY2(notices.contains("vontrel --capture"), notices.constData());
    }

    void selectionFromASecondStart_data()
    {
        QTest::addColumn<QString>("clipboard");
        QTest::addColumn<QString>("selected");
        QTest::newRow("clipboard") << QStringLiteral("Bonjour tout le monde") << QString();
        QTest::newRow("selected text before the clipboard")
            << QStringLiteral("Bonjour tout le monde") << QStringLiteral("Guten Tag");
    }

    void selectionFromASecondStart()
    {
        QFETCH(QString, clipboard);
        QFETCH(QString, selected);
        QVERIFY(focusOurWindow());
        QGuiApplication::clipboard()->setText(clipboard);
        QGuiApplication::clipboard()->setText(selected, QClipboard::Selection);

        // The reading process runs while this one serves its clipboard.
        QVERIFY(secondStart(QStringLiteral("--selection")));
        ++m_requests;
        QTRY_COMPARE_WITH_TIMEOUT(m_server.requests().size(), m_requests, kBound);
        QCOMPARE(sentText(m_server, m_requests - 1), selected.isEmpty() ? clipboard : selected);
        // The answer's window took the focus.
        QTRY_VERIFY_WITH_TIMEOUT(!m_window.isActiveWindow(), kBound);
    }

    void captureFromASecondStart()
    {
        QVERIFY(focusOurWindow());
        QVERIFY(secondStart(QStringLiteral("--capture")));
        // The selector takes the focus once the portal's screenshot is in; the text is at the top left.
        QTRY_VERIFY_WITH_TIMEOUT(!m_window.isActiveWindow(), kBound);
        QVERIFY(input(QStringLiteral("move 20 20 press move 500 80 move 800 140 release")));
        ++m_requests;
        QTRY_COMPARE_WITH_TIMEOUT(m_server.requests().size(), m_requests, kBound);
        const QString sent = sentText(m_server, m_requests - 1);
        QVERIFY2(sent.contains(m_window.text(), Qt::CaseInsensitive), qPrintable(sent));
        // GNOME's portal writes the screenshot into the home folder.
        QCOMPARE(QDir::home().entryList({QStringLiteral("Screenshot*")}, QDir::Files), QStringList());
    }

    void cleanupTestCase()
    {
        m_vontrel.terminate();
        m_vontrel.waitForFinished(kBound);
        m_monitor.kill();
        m_monitor.waitForFinished();
    }

private:
    static bool input(const QString &commands)
    {
        int exitCode = -1;
        run(QStringLiteral("gjs"),
            QStringList{qEnvironmentVariable("VONTREL_GNOME_INPUT")} + commands.split(' '), &exitCode);
        return exitCode == 0;
    }

    // A click on our window, away from where Vontrel's windows open, as a user gives it the focus back.
    bool focusOurWindow()
    {
        if (m_window.isActiveWindow())
            return true;
        return input(QStringLiteral("move 1260 780 press release")) &&
               QTest::qWaitFor([this] { return m_window.isActiveWindow(); }, kBound);
    }

    // Runs `vontrel ARGUMENT` without blocking this process's event loop, which serves its clipboard.
    bool secondStart(const QString &argument)
    {
        QProcess second;
        second.setProcessChannelMode(QProcess::ForwardedChannels);
        second.start(m_program, {argument});
        return QTest::qWaitFor([&second] { return second.state() == QProcess::NotRunning; }, kBound) &&
               second.exitStatus() == QProcess::NormalExit && second.exitCode() == 0;
    }

    const QString m_program = qEnvironmentVariable("VONTREL_BINARY_DIR") + QStringLiteral("/src/vontrel");
    LoopbackHttpServer m_server;
    QProcess m_monitor;
    QProcess m_vontrel;
    QLabel m_window{QStringLiteral("Quiet harbour lights")};
    int m_requests = 0;
};

QTEST_MAIN(TestGnomeSession)
#include "test_gnome_session.moc"
