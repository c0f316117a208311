// The result window under a real window manager (openbox, with its focus-stealing prevention): the window a
// global hotkey opens takes the focus from the application the user was in, and a click back into that
// application hides it again.

#include "SessionRig.h"
#include "X11TestHelpers.h"

#include "ui/result/ResultWindow.h"

#include <QApplication>
#include <QPointer>
#include <QStandardPaths>

using namespace Qt::StringLiterals;

using namespace X11TestHelpers;

namespace {

constexpr int kBound = 20000;

QString activeWindowId()
{
    return QString::fromLocal8Bit(runTool(u"xdotool"_s, {"getactivewindow"}).output).trimmed();
}

void clickInto(const QString &windowId)
{
    xdotool({"mousemove", "--window", windowId, "20", "20", "click", "1"});
}

} // namespace

class TestX11WindowManager : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase()
    {
        QCOMPARE(QGuiApplication::platformName(), u"xcb"_s);
        if (QStandardPaths::findExecutable(u"openbox"_s).isEmpty())
            QSKIP("openbox is not installed (Debian package openbox)");
        m_windowManager.setProcessChannelMode(QProcess::ForwardedErrorChannel);
        m_windowManager.start(u"openbox"_s, {u"--sm-disable"_s});
        QVERIFY(m_windowManager.waitForStarted());
        QTRY_VERIFY_WITH_TIMEOUT(
            runTool(u"xprop"_s, {"-root", "_NET_SUPPORTING_WM_CHECK"}).output.contains("window id"), kBound);
    }

    void cleanupTestCase()
    {
        m_windowManager.terminate();
        m_windowManager.waitForFinished();
    }

    void hotkeyWindowTakesFocusAndYieldsIt()
    {
        // The windows are made as the application makes them: with the system, which activates them with the
        // time of the hotkey's key press.
        Platform *platform = nullptr;
        SessionRig rig(nullptr, true, [&platform] {
            auto *window = new ResultWindow;
            window->setPlatform(platform);
            return window;
        });
        platform = rig.platform.get();
        QVERIFY(rig.listening);
        QVERIFY2(rig.hotkeys->registerHotkeys(), qPrintable(rig.hotkeys->lastError()));

        // The application the user works in, made active by a click as the user would.
        HelperProcess other;
        QVERIFY(other.start({u"text-window"_s, u"Guten Morgen"_s}));
        const QString otherId = other.readyValue();
        clickInto(otherId);
        QTRY_COMPARE_WITH_TIMEOUT(activeWindowId(), otherId, kBound);

        // Twice: the second window opens after the user went back to the other application.
        for (int round = 0; round < 2; ++round) {
            QPointer<ResultWindow> old = dynamic_cast<ResultWindow *>(rig.controller->currentWindow());
            xdotool({u"key"_s, u"super+shift+2"_s});
            QPointer<ResultWindow> window;
            QTRY_VERIFY_WITH_TIMEOUT(
                (window = dynamic_cast<ResultWindow *>(rig.controller->currentWindow())) && window != old &&
                    window->isVisible(),
                kBound);
            // The window manager, not only Qt, sees the window as the active one, and it is marked as a
            // utility window, so it stays out of the taskbar.
            const QString windowId = QString::number(window->winId());
            QTRY_COMPARE_WITH_TIMEOUT(activeWindowId(), windowId, kBound);
            QTRY_VERIFY_WITH_TIMEOUT(QApplication::activeWindow() == window, kBound);
            const QByteArray type =
                runTool(u"xprop"_s, {u"-id"_s, windowId, u"_NET_WM_WINDOW_TYPE"_s}).output;
            QVERIFY2(type.contains("_NET_WM_WINDOW_TYPE_UTILITY"), type.constData());
            QVERIFY(!window->windowTitle().isEmpty());

            clickInto(otherId);
            QTRY_VERIFY_WITH_TIMEOUT(!window || !window->isVisible(), kBound);
            QTRY_COMPARE_WITH_TIMEOUT(activeWindowId(), otherId, kBound);
        }
    }

private:
    QProcess m_windowManager;
};

QTEST_MAIN(TestX11WindowManager)
#include "test_x11_windowmanager.moc"
