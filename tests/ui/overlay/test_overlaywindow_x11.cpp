// OverlayWindow on a real X server: activation and focus rules against a window of this process and a
// window of another X client, placement on the cursor's screen, and the rounded window mask.
#include "platform/RoundedCornerHelper.h"
#include "ui/overlay/OverlayWindow.h"

#include <QApplication>
#include <QContextMenuEvent>
#include <QCursor>
#include <QElapsedTimer>
#include <QProcess>
#include <QScreen>
#include <QSignalSpy>
#include <QStandardPaths>
#include <QTest>
#include <QTextEdit>
#include <QTimer>

#include <memory>

namespace {

// How long a window that should stay must be watched: the X connection reports a lost focus only after
// its own short delay, and a deferred hide decision follows 250 ms later.
constexpr int kStaysVisibleMs = 1500;
constexpr int kTimeoutMs = 10000;

QString runTool(const QString &program, const QStringList &arguments)
{
    QProcess process;
    process.start(program, arguments);
    if (!process.waitForFinished(kTimeoutMs) || process.exitCode() != 0)
        return QString();
    return QString::fromLocal8Bit(process.readAllStandardOutput()).trimmed();
}

// A window of another X client, to which the keyboard focus can be given as when the user clicks into
// another application.
class PeerWindow
{
public:
    bool start()
    {
        if (QStandardPaths::findExecutable(QStringLiteral("xmessage")).isEmpty() ||
            QStandardPaths::findExecutable(QStringLiteral("xdotool")).isEmpty())
            return false;
        m_process.start(QStringLiteral("xmessage"),
                        {QStringLiteral("-geometry"), QStringLiteral("+0+0"), QStringLiteral("peer window")});
        if (!m_process.waitForStarted(kTimeoutMs))
            return false;
        // Each test has an X server of its own, so the only xmessage window is this one.
        const QString found =
            runTool(QStringLiteral("xdotool"), {QStringLiteral("search"), QStringLiteral("--sync"),
                                                QStringLiteral("--class"), QStringLiteral("Xmessage")});
        m_windowId = found.section(QLatin1Char('\n'), 0, 0);
        return !m_windowId.isEmpty();
    }

    void takeFocus() const
    {
        runTool(QStringLiteral("xdotool"), {QStringLiteral("windowfocus"), m_windowId});
    }

    ~PeerWindow()
    {
        if (m_process.state() != QProcess::NotRunning) {
            m_process.kill();
            m_process.waitForFinished(kTimeoutMs);
        }
    }

private:
    QProcess m_process;
    QString m_windowId;
};

bool showActive(QWidget *window)
{
    window->show();
    window->raise();
    window->activateWindow();
    return QTest::qWaitForWindowActive(window, kTimeoutMs);
}

std::unique_ptr<OverlayWindow> textOverlay()
{
    auto w = std::make_unique<OverlayWindow>();
    w->setMode(OverlayWindow::TextMode);
    w->setSourceText(QStringLiteral("source"));
    w->showTranslation(true);
    w->setTranslation(QStringLiteral("result"));
    return w;
}

} // namespace

class OverlayWindowX11Test final : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void otherApplicationTakesFocus_data();
    void otherApplicationTakesFocus();
    void unpinningDoesNotHideUntilNextDeactivation();
    void ownWindowTakesFocus_data();
    void ownWindowTakesFocus();
    void reactivatedWithinGraceStays();
    void contextMenuDoesNotHide();
    void centredOnCursorScreen();
    void roundedMaskFollowsWindow();
};

void OverlayWindowX11Test::initTestCase()
{
    if (QGuiApplication::platformName() != QLatin1String("xcb"))
        QSKIP("needs an X server");
}

void OverlayWindowX11Test::otherApplicationTakesFocus_data()
{
    QTest::addColumn<bool>("pinned");
    QTest::newRow("unpinned hides") << false;
    QTest::newRow("pinned stays") << true;
}

void OverlayWindowX11Test::otherApplicationTakesFocus()
{
    QFETCH(bool, pinned);
    PeerWindow peer;
    if (!peer.start())
        QSKIP("xmessage and xdotool are needed for a second X client");

    auto w = textOverlay();
    w->setPinned(pinned);
    QSignalSpy closed(w.get(), &OverlayWindow::closed);
    QVERIFY(showActive(w.get()));

    peer.takeFocus();
    if (pinned) {
        QVERIFY(!closed.wait(kStaysVisibleMs));
        QVERIFY(w->isVisible());
    } else {
        QTRY_VERIFY_WITH_TIMEOUT(!w->isVisible(), kTimeoutMs);
        QCOMPARE(closed.count(), 1);
    }
}

void OverlayWindowX11Test::unpinningDoesNotHideUntilNextDeactivation()
{
    PeerWindow peer;
    if (!peer.start())
        QSKIP("xmessage and xdotool are needed for a second X client");

    auto w = textOverlay();
    w->setPinned(true);
    QSignalSpy closed(w.get(), &OverlayWindow::closed);
    QVERIFY(showActive(w.get()));
    peer.takeFocus();
    QTRY_VERIFY_WITH_TIMEOUT(QGuiApplication::applicationState() != Qt::ApplicationActive, kTimeoutMs);

    w->setPinned(false);
    QVERIFY(!closed.wait(kStaysVisibleMs));
    QVERIFY(w->isVisible());

    // The user clicks back into the overlay (the X server ignores a focus request of an application that
    // has not seen input since another client took the focus, so give it the way a click would).
    runTool(QStringLiteral("xdotool"), {QStringLiteral("windowfocus"), QString::number(w->winId())});
    QTRY_VERIFY_WITH_TIMEOUT(w->isActiveWindow(), kTimeoutMs);
    peer.takeFocus();
    QTRY_VERIFY_WITH_TIMEOUT(!w->isVisible(), kTimeoutMs);
    QCOMPARE(closed.count(), 1);
}

void OverlayWindowX11Test::ownWindowTakesFocus_data()
{
    QTest::addColumn<bool>("pinned");
    QTest::newRow("unpinned hides") << false;
    QTest::newRow("pinned stays") << true;
}

void OverlayWindowX11Test::ownWindowTakesFocus()
{
    QFETCH(bool, pinned);
    auto w = textOverlay();
    w->setPinned(pinned);
    QSignalSpy closed(w.get(), &OverlayWindow::closed);
    QVERIFY(showActive(w.get()));

    // Another window of the same application, such as the preferences or a second overlay.
    QWidget other;
    other.setWindowTitle(QStringLiteral("preferences"));
    other.resize(300, 200);
    QVERIFY(showActive(&other));

    if (pinned) {
        QVERIFY(!closed.wait(kStaysVisibleMs));
        QVERIFY(w->isVisible());
    } else {
        QTRY_VERIFY_WITH_TIMEOUT(!w->isVisible(), kTimeoutMs);
        QCOMPARE(closed.count(), 1);
    }
}

void OverlayWindowX11Test::reactivatedWithinGraceStays()
{
    auto w = textOverlay();
    QSignalSpy closed(w.get(), &OverlayWindow::closed);
    QWidget other;
    other.resize(300, 200);
    other.show();
    QVERIFY(QTest::qWaitForWindowExposed(&other));

    QElapsedTimer sinceShown;
    sinceShown.start();
    QVERIFY(showActive(w.get()));
    // The user's previous window answers once more right after the overlay appeared...
    other.activateWindow();
    QTRY_VERIFY_WITH_TIMEOUT(!w->isActiveWindow(), kTimeoutMs);
    // ...and the overlay gets the activation back.
    w->activateWindow();
    QTRY_VERIFY_WITH_TIMEOUT(w->isActiveWindow(), kTimeoutMs);
    if (sinceShown.elapsed() > 180)
        QSKIP("the X server answered too slowly to stay within the 200 ms grace period");

    QVERIFY(!closed.wait(kStaysVisibleMs));
    QVERIFY(w->isVisible());
}

void OverlayWindowX11Test::contextMenuDoesNotHide()
{
    auto w = textOverlay();
    QSignalSpy closed(w.get(), &OverlayWindow::closed);
    QVERIFY(showActive(w.get()));
    QTRY_VERIFY_WITH_TIMEOUT(!closed.wait(300) && w->isActiveWindow(), kTimeoutMs);

    // The result area's own context menu (Copy, Select All) opens a popup window of this application.
    auto *view = w->findChild<QWidget *>(QStringLiteral("translationView"));
    QVERIFY(view);
    QWidget *viewport = view->findChild<QWidget *>(QStringLiteral("qt_scrollarea_viewport"));
    QVERIFY(viewport);
    QTimer::singleShot(0, viewport, [viewport] {
        QContextMenuEvent event(QContextMenuEvent::Mouse, viewport->rect().center(),
                                viewport->mapToGlobal(viewport->rect().center()));
        QApplication::sendEvent(viewport, &event);
    });
    QTRY_VERIFY_WITH_TIMEOUT(QApplication::activePopupWidget(), kTimeoutMs);
    QVERIFY(!closed.wait(kStaysVisibleMs / 2));
    QApplication::activePopupWidget()->close();
    QVERIFY(!closed.wait(kStaysVisibleMs / 2));
    QVERIFY(w->isVisible());
}

void OverlayWindowX11Test::centredOnCursorScreen()
{
    QScreen *screen = QGuiApplication::primaryScreen();
    QVERIFY(screen);
    QCursor::setPos(screen, screen->geometry().center() + QPoint(200, 100));

    auto w = textOverlay();
    w->show();
    QVERIFY(QTest::qWaitForWindowExposed(w.get()));
    const QRect available = screen->availableGeometry();
    QTRY_COMPARE(w->x(), available.left() + (available.width() - w->width()) / 2);
    // Centred for the height it may still grow to, so it sits at or above the exact centre and the grown
    // window still fits the screen.
    QVERIFY(w->y() <= available.top() + (available.height() - w->height()) / 2);
    QVERIFY(w->y() >= available.top());

    // Grown to a long result, the window is still on the screen.
    const int before = w->height();
    w->setTranslation(QStringList(40, QStringLiteral("result line")).join(QLatin1Char('\n')));
    QTRY_VERIFY_WITH_TIMEOUT(w->height() > before, kTimeoutMs);
    QVERIFY(w->geometry().bottom() <= available.bottom());
}

void OverlayWindowX11Test::roundedMaskFollowsWindow()
{
    // Before the native window exists, the call has nothing to clip and must not fail.
    QWidget plain;
    plain.resize(200, 100);
    RoundedCornerHelper::applyRoundedCorners(nullptr, 12);
    RoundedCornerHelper::applyRoundedCorners(&plain, 12);
    QVERIFY(plain.mask().isEmpty());
    QVERIFY(!plain.testAttribute(Qt::WA_WState_Created));

    // A magenta desktop behind the window: what the X server shows of it is what the user sees.
    QWidget backdrop(nullptr, Qt::FramelessWindowHint);
    backdrop.setStyleSheet(QStringLiteral("background: #ff00ff;"));
    backdrop.setAttribute(Qt::WA_StyledBackground);
    backdrop.setGeometry(QGuiApplication::primaryScreen()->geometry());
    backdrop.show();
    QVERIFY(QTest::qWaitForWindowExposed(&backdrop));

    auto w = textOverlay();
    w->show();
    QVERIFY(QTest::qWaitForWindowExposed(w.get()));
    if (w->testAttribute(Qt::WA_TranslucentBackground))
        QSKIP("a compositing manager draws the rounded border; no mask is needed");

    const QColor desktop(0xff, 0x00, 0xff);
    auto onScreen = [&w](const QPoint &local) {
        const QPoint global = w->mapToGlobal(local);
        return w->screen()->grabWindow(0, global.x(), global.y(), 1, 1).toImage().pixelColor(0, 0);
    };
    // The corners show the desktop, the middle of each edge shows the window.
    auto cornersCut = [&] {
        const QRect r = w->rect();
        for (const QPoint &corner : {r.topLeft(), r.topRight(), r.bottomLeft(), r.bottomRight()}) {
            if (onScreen(corner) != desktop)
                return false;
        }
        for (const QPoint &edge : {QPoint(r.center().x(), 0), QPoint(0, r.center().y()),
                                   QPoint(r.right(), r.center().y()), QPoint(r.center().x(), r.bottom())}) {
            if (onScreen(edge) == desktop)
                return false;
        }
        return true;
    };
    // Applied shortly after showing.
    QTRY_VERIFY_WITH_TIMEOUT(cornersCut(), kTimeoutMs);

    // The window grows with its content; the shape must grow with it or the new part would be cut off.
    const int before = w->height();
    w->setTranslation(QStringList(30, QStringLiteral("a longer result line")).join(QLatin1Char('\n')));
    QTRY_VERIFY_WITH_TIMEOUT(w->height() > before, kTimeoutMs);
    QTRY_VERIFY_WITH_TIMEOUT(cornersCut(), kTimeoutMs);

    // Re-applying with another radius takes the new radius.
    RoundedCornerHelper::applyRoundedCorners(w.get(), 30);
    QTRY_COMPARE_WITH_TIMEOUT(onScreen(QPoint(4, 4)), desktop, kTimeoutMs);
    RoundedCornerHelper::applyRoundedCorners(w.get(), 2);
    QTRY_VERIFY_WITH_TIMEOUT(onScreen(QPoint(4, 4)) != desktop, kTimeoutMs);
}

QTEST_MAIN(OverlayWindowX11Test)
#include "test_overlaywindow_x11.moc"
