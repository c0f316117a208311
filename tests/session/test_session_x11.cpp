// Sessions end to end on Xvfb: real hotkeys pressed by xdotool, the copy answered by another X client, the
// clipboard read by xclip, the real region selector and recogniser; a loopback provider streams the answer.

#include "SessionRig.h"
#include "X11TestHelpers.h"

#include "capture/CaptureOverlay.h"
#include "ui/result/ResultWindow.h"

#include <QApplication>
#include <QClipboard>
#include <QElapsedTimer>
#include <QLabel>
#include <QPointer>
#include <QPushButton>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QToolButton>

using namespace X11TestHelpers;

namespace {

constexpr int kBound = 20000;
const QString kTextHotkey = QStringLiteral("super+shift+2");

bool xdotool(const QStringList &arguments)
{
    return runTool(QStringLiteral("xdotool"), arguments).exitCode == 0;
}

// Every target the clipboard owner offers (but the protocol's own) with its bytes, as another client sees.
QMap<QString, QByteArray> clipboardContents()
{
    static const QStringList meta{"TARGETS", "TIMESTAMP", "MULTIPLE", "SAVE_TARGETS"};
    QMap<QString, QByteArray> contents;
    for (const QString &target : clipboardTargets()) {
        if (!meta.contains(target))
            contents.insert(target, clipboardData(target).output);
    }
    return contents;
}

// Clicks the visible button with this tool tip as the user would.
template<typename T>
bool click(QWidget *window, const QString &toolTip)
{
    for (T *child : window->findChildren<T *>()) {
        if (child->isVisible() && child->toolTip() == toolTip) {
            const QPoint centre = child->mapToGlobal(child->rect().center());
            return xdotool(
                {"mousemove", QString::number(centre.x()), QString::number(centre.y()), "click", "1"});
        }
    }
    return false;
}

} // namespace

class TestSessionX11 : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup();
    void selectionInAnotherClient();
    void selectionInTerminalIsReadWithoutKeystroke();
    void emptyClipboardOpensWindowToType();
    void captureRecognisesRegion();
    void hotkeyDuringStreamingAndPinnedRetry();
    void clipboardTextStopAndUnconfigured();

private:
    bool ownClipboard(const QList<QPair<QString, QByteArray>> &formats);
    ResultWindow *current() const;
    ResultWindow *press(const QString &keys);

    QTemporaryDir m_files;
    std::unique_ptr<SessionRig> m_rig;
    std::unique_ptr<HelperProcess> m_clipboardOwner;
    std::unique_ptr<HelperProcess> m_textWindow;
};

void TestSessionX11::init()
{
    QCOMPARE(QGuiApplication::platformName(), QStringLiteral("xcb"));
    m_rig = std::make_unique<SessionRig>(Platform::create()->createOcrProvider(QStringLiteral("eng")), true,
                                         [] { return new ResultWindow; });
    QVERIFY(m_rig->listening);
    QVERIFY2(m_rig->hotkeys->registerHotkeys(), qPrintable(m_rig->hotkeys->lastError()));
}

void TestSessionX11::cleanup()
{
    m_textWindow.reset();
    m_clipboardOwner.reset();
    m_rig.reset();
    QGuiApplication::clipboard()->clear(); // the clipboard this process took over by restoring
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
}

bool TestSessionX11::ownClipboard(const QList<QPair<QString, QByteArray>> &formats)
{
    QStringList arguments{QStringLiteral("own-clipboard")};
    for (const auto &[format, bytes] : formats) {
        QFile file(m_files.filePath(QString::number(arguments.size())));
        if (!file.open(QIODevice::WriteOnly) || file.write(bytes) != bytes.size())
            return false;
        arguments << format << file.fileName();
    }
    m_clipboardOwner = std::make_unique<HelperProcess>();
    return m_clipboardOwner->start(arguments);
}

ResultWindow *TestSessionX11::current() const
{
    return dynamic_cast<ResultWindow *>(m_rig->controller->currentWindow());
}

ResultWindow *TestSessionX11::press(const QString &keys)
{
    QPointer<ResultWindow> old = current();
    const auto shown = [](const ResultWindow *window) {
        return window->isVisible();
    };
    return xdotool({"key", keys}) ? m_rig->waitForNewWindow<ResultWindow>(old, kBound, shown) : nullptr;
}

void TestSessionX11::selectionInAnotherClient()
{
    QVERIFY(ownClipboard({{"text/plain", "what the user copied before"},
                          {"text/html", "<b>what the user</b> copied before"},
                          {"application/x-vontrel-test", QByteArray("\x00\x01\x02\xff", 4)}}));
    const QMap<QString, QByteArray> before = clipboardContents();
    QVERIFY(before.contains(QStringLiteral("application/x-vontrel-test")));
    m_textWindow = std::make_unique<HelperProcess>();
    QVERIFY(m_textWindow->start({QStringLiteral("text-window"), QStringLiteral("Guten Morgen, liebe Welt")}));

    ResultWindow *window = press(kTextHotkey);
    QVERIFY(window);
    QTRY_COMPARE_WITH_TIMEOUT(window->getTranslation(), QStringLiteral("Hello"), kBound);
    QCOMPARE(m_rig->promptInput(), QStringLiteral("Guten Morgen, liebe Welt"));
    QCOMPARE(m_rig->controller->inputSource(), SessionController::SelectedText);
    QCOMPARE(clipboardContents(), before);
}

void TestSessionX11::selectionInTerminalIsReadWithoutKeystroke()
{
    QVERIFY(ownClipboard({{"text/plain", "what the user copied before"}}));
    const QMap<QString, QByteArray> before = clipboardContents();
    m_textWindow = std::make_unique<HelperProcess>();
    QVERIFY(m_textWindow->start({QStringLiteral("terminal-window"), QStringLiteral("URxvt"),
                                 QStringLiteral("Guten Abend, liebe Welt")}));
    // The terminal does hear a Ctrl+C, so its silence below means that none was sent.
    QVERIFY(m_rig->platform->sendCopyKeystroke());
    QTRY_COMPARE_WITH_TIMEOUT(m_textWindow->output(), QByteArray("interrupted\n"), kBound);

    ResultWindow *window = press(kTextHotkey);
    QVERIFY(window);
    QTRY_COMPARE_WITH_TIMEOUT(window->getTranslation(), QStringLiteral("Hello"), kBound);
    QCOMPARE(m_rig->promptInput(), QStringLiteral("Guten Abend, liebe Welt"));
    QCOMPARE(m_rig->controller->inputSource(), SessionController::SelectedText);
    QCOMPARE(m_textWindow->output(), QByteArray("interrupted\n"));
    QCOMPARE(clipboardContents(), before);
}

void TestSessionX11::emptyClipboardOpensWindowToType()
{
    QVERIFY(clipboardTargets().isEmpty());
    ResultWindow *window = press(kTextHotkey);
    QVERIFY(window);
    QCOMPARE(window->getSourceText(), QString());
    QCOMPARE(m_rig->controller->state(), SessionController::WaitingAction);
    QTRY_VERIFY_WITH_TIMEOUT(window->isActiveWindow(), kBound);
    QVERIFY(xdotool({"type", "typed by hand"}));
    QTRY_COMPARE_WITH_TIMEOUT(window->getSourceText(), QStringLiteral("typed by hand"), kBound);
    QCOMPARE(m_rig->server.requestCount(), 0);
    QVERIFY(xdotool({"key", "Return"}));
    QTRY_COMPARE_WITH_TIMEOUT(window->getTranslation(), QStringLiteral("Hello"), kBound);
    QCOMPARE(m_rig->promptInput(), QStringLiteral("typed by hand"));
}

void TestSessionX11::captureRecognisesRegion()
{
    if (!m_rig->ocr->isAvailable())
        QSKIP("No text recogniser with English data on this system");
    QLabel page(QStringLiteral("Quiet rivers carry bright stones"));
    page.setWindowFlags(Qt::FramelessWindowHint);
    page.setStyleSheet(QStringLiteral("background: white; color: black; padding: 20px; font-size: 44px;"));
    page.setGeometry(100, 100, 1000, 120);
    page.show();
    QVERIFY(QTest::qWaitForWindowExposed(&page));

    // Timed from inside the controller's own state change, before it schedules the request, so load on the
    // machine can only lengthen what is measured.
    QElapsedTimer sinceText;
    connect(m_rig->controller.get(), &SessionController::stateChanged, this,
            [&sinceText](SessionController::SessionState state) {
                if (state == SessionController::WaitingAction)
                    sinceText.start();
            });
    QSignalSpy requests(&m_rig->server, &LoopbackHttpServer::requestReceived);
    QVERIFY(xdotool({"key", "super+shift+1"}));
    QVERIFY(QTest::qWaitFor(X11TestHelpers::captureSelectorShown, kBound));
    QVERIFY(xdotool({"mousemove", "90", "90", "mousedown", "1", "mousemove", "600", "180", "mousemove",
                     "1110", "230", "mouseup", "1"}));

    // The request starts only after the pause (a precise timer of a second).
    QTRY_COMPARE_WITH_TIMEOUT(requests.size(), 1, kBound);
    QVERIFY(sinceText.isValid());
    QVERIFY2(sinceText.elapsed() >= 990, qPrintable(QString::number(sinceText.elapsed())));
    ResultWindow *window = current();
    const QString recognised = window->getSourceText();
    QVERIFY2(recognised.contains(QStringLiteral("rivers carry bright")), qPrintable(recognised));
    QCOMPARE(m_rig->promptInput(), recognised);
    QTRY_COMPARE_WITH_TIMEOUT(window->getTranslation(), QStringLiteral("Hello"), kBound);
}

void TestSessionX11::hotkeyDuringStreamingAndPinnedRetry()
{
    QVERIFY(ownClipboard({{"text/plain", "first text"}}));

    // The first request fails; the user pins its window and moves it aside.
    m_rig->server.setFallback(stream({}, false, QStringLiteral("model overloaded")));
    QPointer<ResultWindow> first = press(kTextHotkey);
    QVERIFY(first);
    QTRY_COMPARE_WITH_TIMEOUT(first->getTranslation(),
                              QStringLiteral("AI failed: API error: model overloaded"), kBound);
    QVERIFY(click<QPushButton>(first, QStringLiteral("Pin window")));
    QTRY_VERIFY_WITH_TIMEOUT(first->isPinned(), kBound);
    first->move(20, 650);

    m_rig->server.setFallback(stream({QStringLiteral("partial")}, true)); // held open
    QPointer<ResultWindow> second = press(kTextHotkey);
    QVERIFY(second);
    QTRY_COMPARE_WITH_TIMEOUT(second->getTranslation(), QStringLiteral("partial"), kBound);

    // A press during the stream cancels it and discards its window; the pinned window stays.
    m_rig->server.setFallback(stream({QStringLiteral("third answer")}));
    ResultWindow *third = press(kTextHotkey);
    QVERIFY(third && third != first);
    QTRY_VERIFY_WITH_TIMEOUT(second.isNull(), kBound);
    QTRY_COMPARE_WITH_TIMEOUT(third->getTranslation(), QStringLiteral("third answer"), kBound);
    QTRY_COMPARE_WITH_TIMEOUT(m_rig->controller->runningRequestCount(), 0, kBound); // the held one too
    QVERIFY(first && first->isVisible());

    // Retry in the pinned window streams again there.
    m_rig->server.setFallback(stream({QStringLiteral("retried")}));
    QVERIFY(click<QToolButton>(first, QStringLiteral("Retry")));
    QTRY_COMPARE_WITH_TIMEOUT(first->getTranslation(), QStringLiteral("retried"), kBound);
    QCOMPARE(m_rig->server.requestCount(), 4);
}

void TestSessionX11::clipboardTextStopAndUnconfigured()
{
    // Nothing selected: the clipboard text goes out untrimmed, and the clipboard stays as it was.
    QVERIFY(ownClipboard({{"text/plain", "  spaced clipboard text \n"}}));
    const QMap<QString, QByteArray> before = clipboardContents();
    m_rig->server.setFallback(stream({QStringLiteral("half an answer")}, true));
    QPointer<ResultWindow> window = press(kTextHotkey);
    QVERIFY(window);
    QTRY_COMPARE_WITH_TIMEOUT(window->getTranslation(), QStringLiteral("half an answer"), kBound);
    QCOMPARE(m_rig->promptInput(), QStringLiteral("  spaced clipboard text \n"));
    QCOMPARE(m_rig->controller->inputSource(), SessionController::Clipboard);
    QCOMPARE(clipboardContents(), before);
    QVERIFY(click<QToolButton>(window, QStringLiteral("Stop")));
    QTRY_COMPARE_WITH_TIMEOUT(window->getTranslation(), QStringLiteral("half an answer\n\n(Stopped)"),
                              kBound);
    QTRY_COMPARE_WITH_TIMEOUT(m_rig->controller->state(), SessionController::Done, kBound);
    QCOMPARE(m_rig->controller->runningRequestCount(), 0);

    ConfigManager::instance()->setApiKey(QString());
    ResultWindow *unconfigured = press(kTextHotkey);
    QVERIFY(unconfigured);
    QTRY_VERIFY_WITH_TIMEOUT(window.isNull(), kBound);
    QTRY_COMPARE_WITH_TIMEOUT(unconfigured->getTranslation(),
                              QStringLiteral("AI not configured. Please set API key."), kBound);
    QCOMPARE(m_rig->server.requestCount(), 1);
}

QTEST_MAIN(TestSessionX11)
#include "test_session_x11.moc"
