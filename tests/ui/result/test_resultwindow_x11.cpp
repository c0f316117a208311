// ResultWindow on a real X server: activation and focus rules against a window of this process and a
// window of another X client, and corners that never cut the border.
#include "platform/Platform.h"
#include "ui/ThemeColors.h"
#include "ui/result/ResultWindow.h"

#include "X11TestHelpers.h"

#include <QApplication>
#include <QScreen>
#include <QSignalSpy>
#include <QTest>

#include <memory>

namespace {

// Focus loss arrives after a delay of its own, a deferred hide 250 ms later: a staying window is watched this
// long.
constexpr int kStaysVisibleMs = 1500;
constexpr int kTimeoutMs = 10000;

bool showActive(QWidget *window)
{
    window->show();
    window->activateWindow();
    return QTest::qWaitForWindowActive(window, kTimeoutMs);
}

std::unique_ptr<ResultWindow> textOverlay(bool pinned = false)
{
    static const std::unique_ptr<Platform> platform = Platform::create();
    auto w = std::make_unique<ResultWindow>();
    w->setPlatform(platform.get());
    w->setMode(ResultWindow::TextMode);
    w->setSourceText(QStringLiteral("source"));
    w->showTranslation(true);
    w->setTranslation(QStringLiteral("result"));
    w->setPinned(pinned);
    return w;
}

} // namespace

class ResultWindowX11Test final : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase()
    {
        if (QGuiApplication::platformName() != QLatin1String("xcb"))
            QSKIP("needs an X server");
    }

    void deactivation_data()
    {
        QTest::addColumn<bool>("otherClient");
        QTest::addColumn<bool>("pinned");
        QTest::newRow("other application, unpinned hides") << true << false;
        QTest::newRow("other application, pinned stays") << true << true;
        QTest::newRow("own window, unpinned hides") << false << false;
    }
    void deactivation()
    {
        QFETCH(bool, otherClient);
        QFETCH(bool, pinned);
        auto w = textOverlay(pinned);
        QSignalSpy closed(w.get(), &ResultWindow::closed);
        QVERIFY(showActive(w.get()));
        QWidget own; // such as the preferences
        own.resize(300, 200);
        X11TestHelpers::HelperProcess peer; // takes the focus once shown
        if (otherClient)
            QVERIFY(peer.start({QStringLiteral("text-window"), QStringLiteral("peer")}));
        else
            QVERIFY(showActive(&own));

        if (pinned) {
            QVERIFY(!closed.wait(kStaysVisibleMs));
            w->setPinned(false); // while another window has the focus: no hiding until the next change
            QVERIFY(!closed.wait(kStaysVisibleMs));
        } else {
            QTRY_VERIFY_WITH_TIMEOUT(!w->isVisible(), kTimeoutMs);
            QCOMPARE(closed.count(), 1);
        }
    }

    void cornersKeepTheBorderWhole()
    {
        // A magenta desktop behind the window: what the X server shows of it is what the user sees.
        QWidget desktop(nullptr, Qt::FramelessWindowHint);
        desktop.setStyleSheet(QStringLiteral("background: #ff00ff;"));
        desktop.setAttribute(Qt::WA_StyledBackground);
        desktop.setGeometry(QGuiApplication::primaryScreen()->geometry());
        desktop.show();
        QVERIFY(QTest::qWaitForWindowExposed(&desktop));
        auto w = textOverlay();
        w->show();
        QVERIFY(QTest::qWaitForWindowExposed(w.get()));
        if (w->testAttribute(Qt::WA_TranslucentBackground))
            QSKIP("a compositing manager draws the antialiased rounded border");

        const QColor border(vontrelThemeColors().windowBorder);
        auto shown = [&w](int x, int y) {
            const QPoint at = w->mapToGlobal(QPoint(x, y));
            return w->screen()->grabWindow(0, at.x(), at.y(), 1, 1).toImage().pixelColor(0, 0);
        };
        // Without a compositor nothing is cut away: every corner pixel is the border's, so the 1 px frame
        // runs unbroken round the window, also after the window grew with its content.
        auto squareCorners = [&] {
            const QRect r = w->rect();
            return shown(0, 0) == border && shown(r.right(), 0) == border && shown(0, r.bottom()) == border &&
                   shown(r.right(), r.bottom()) == border;
        };
        QTRY_VERIFY_WITH_TIMEOUT(squareCorners(), kTimeoutMs);
        const int before = w->height();
        w->setTranslation(QStringList(30, QStringLiteral("a longer result line")).join(QLatin1Char('\n')));
        QTRY_VERIFY_WITH_TIMEOUT(w->height() > before, kTimeoutMs);
        QTRY_VERIFY_WITH_TIMEOUT(squareCorners(), kTimeoutMs);
    }
};

QTEST_MAIN(ResultWindowX11Test)
#include "test_resultwindow_x11.moc"
