// Sessions end to end on Xvfb: real hotkeys pressed by xdotool, the copy answered by another X client, the
// clipboard read by xclip, the real region selector and recogniser; a loopback provider streams the answer.

#include "SessionRig.h"
#include "TestEnv.h"
#include "X11TestHelpers.h"
#include "ai/InputLimit.h"

#include "capture/CaptureOverlay.h"
#include "ui/result/ResultWindow.h"
#include "ui/result/SourceText.h"

#include <QBuffer>
#include <QClipboard>
#include <QElapsedTimer>
#include <QLabel>
#include <QPointer>
#include <QPushButton>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QToolButton>

#include <X11/Xlib.h>

using namespace X11TestHelpers;

namespace {

constexpr int kBound = 20000;
const QString kTextHotkey = QStringLiteral("super+shift+2");

// The desktop itself, not a window standing in for it: the root window's own background.
bool paintRootWindow(unsigned long pixel)
{
    Display *display = XOpenDisplay(nullptr);
    if (!display)
        return false;
    XSetWindowBackground(display, DefaultRootWindow(display), pixel);
    XClearWindow(display, DefaultRootWindow(display));
    XCloseDisplay(display); // flushes
    return true;
}

template<typename T>
T *visibleButton(QWidget *window, const QString &toolTip)
{
    for (T *child : window->findChildren<T *>()) {
        if (child->isVisible() && child->toolTip() == toolTip)
            return child;
    }
    return nullptr;
}

template<typename T>
bool shows(QWidget *window, const QString &toolTip)
{
    return visibleButton<T>(window, toolTip) != nullptr;
}

bool clickAt(const QWidget *widget)
{
    const QPoint centre = widget->mapToGlobal(widget->rect().center());
    return xdotool({"mousemove", QString::number(centre.x()), QString::number(centre.y()), "click", "1"});
}

// Clicks the visible button with this tool tip as the user would.
template<typename T>
bool click(QWidget *window, const QString &toolTip)
{
    const T *button = visibleButton<T>(window, toolTip);
    return button && clickAt(button);
}

} // namespace

class TestSessionX11 : public QObject
{
    Q_OBJECT

private slots:
    void init()
    {
        QCOMPARE(QGuiApplication::platformName(), QStringLiteral("xcb"));
        m_rig =
            std::make_unique<SessionRig>(Platform::create()->createOcrProvider(QStringLiteral("chi_sim+eng")),
                                         true, [] { return new ResultWindow; });
        QVERIFY(m_rig->listening);
        QVERIFY2(m_rig->hotkeys->registerHotkeys(), qPrintable(m_rig->hotkeys->lastError()));
    }

    void cleanup()
    {
        m_textWindow.reset();
        m_clipboardOwner.reset();
        m_rig.reset();
        QGuiApplication::clipboard()->clear(); // the clipboard this process took over by restoring
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    }

    // The selection is read, and the clipboard (text, markup, an image, bytes of its own) stays as it was.
    void selectionInAnotherClient_data()
    {
        QTest::addColumn<QStringList>("window"); // the helper's arguments; the last is the selected text
        QTest::newRow("text field") << QStringList{"text-window", "Guten Morgen, liebe Welt"};
        QTest::newRow("terminal, without keystroke")
            << QStringList{"terminal-window", "URxvt", "\n  Guten Abend \t\n"};
    }

    void selectionInAnotherClient()
    {
        QFETCH(QStringList, window);
        QImage image(7, 5, QImage::Format_ARGB32);
        image.fill(QColor(10, 200, 30, 128));
        QByteArray png;
        QBuffer buffer(&png);
        QVERIFY(buffer.open(QIODevice::WriteOnly) && image.save(&buffer, "PNG"));
        QVERIFY(ownClipboard({{"text/plain", "what the user copied before"},
                              {"text/html", "<b>what the user</b> copied before"},
                              {"image/png", png},
                              {"application/x-vontrel-test", QByteArray("\x00\x01\x02\xff", 4)}}));
        const QMap<QString, QByteArray> before = clipboardContents();
        QVERIFY(before.contains(QStringLiteral("application/x-vontrel-test")));
        m_textWindow = std::make_unique<HelperProcess>();
        QVERIFY(m_textWindow->start(window));
        const QByteArray interrupted = window.first() == "terminal-window" ? "interrupted\n" : "";
        // The terminal does hear a Ctrl+C, so its silence below means that none was sent.
        QVERIFY(interrupted.isEmpty() || m_rig->platform->sendCopyKeystroke());
        QTRY_COMPARE_WITH_TIMEOUT(m_textWindow->output(), interrupted, kBound);

        ResultWindow *result = press(kTextHotkey);
        QVERIFY(result);
        QTRY_COMPARE_WITH_TIMEOUT(result->getTranslation(), QStringLiteral("Hello"), kBound);
        QCOMPARE(m_rig->promptInput(), window.last().trimmed());
        QCOMPARE(m_rig->controller->inputSource(), SessionController::SelectedText);
        QCOMPARE(m_textWindow->output(), interrupted);
        QCOMPARE(clipboardContents(before.keys()), before); // restored, Qt offers more image formats
    }

    void emptyClipboardOpensWindowToType()
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

    void captureRecognisesRegion()
    {
        if (!m_rig->ocr->isAvailable())
            QSKIP("needs the Simplified Chinese and English data (tesseract-ocr-chi-sim, tesseract-ocr-eng)");
        // A paragraph on a light window, dragged by a quick hand well past it onto a dark desktop: what
        // surrounds the text is not read, and no line goes missing.
        QVERIFY(paintRootWindow(0x202225));
        const QStringList lines = {QStringLiteral("Quiet rivers carry bright stones"),
                                   QStringLiteral("along the valley floor"),
                                   QStringLiteral("每周例会的会议记录")};
        QLabel page(lines.join(QStringLiteral("<br>")));
        page.setWindowFlags(Qt::FramelessWindowHint | Qt::BypassWindowManagerHint);
        page.setStyleSheet(
            QStringLiteral("background: #f5f5f7; color: #1d1d1f; padding: 10px; font-size: 15px;"));
        page.move(300, 240);
        page.show();
        QVERIFY(QTest::qWaitForWindowExposed(&page));
        const QRect shown = page.frameGeometry();

        // Timed from inside the controller's own state change, before it schedules the request, so load on
        // the machine can only lengthen what is measured.
        QElapsedTimer sinceText;
        connect(m_rig->controller.get(), &SessionController::stateChanged, this,
                [&sinceText](SessionController::SessionState state) {
                    if (state == SessionController::WaitingAction)
                        sinceText.start();
                });
        QSignalSpy requests(&m_rig->server, &LoopbackHttpServer::requestReceived);
        QVERIFY(xdotool({"key", "super+shift+1"}));
        QVERIFY(QTest::qWaitFor(captureSelectorShown, kBound));
        QVERIFY(drag(shown.topLeft() + QPoint(-45, 3), shown.bottomRight() + QPoint(70, 50)));

        // The request starts only after the pause (a precise timer of a second).
        QTRY_COMPARE_WITH_TIMEOUT(requests.size(), 1, kBound);
        QVERIFY(sinceText.isValid());
        QVERIFY2(sinceText.elapsed() >= 990, qPrintable(QString::number(sinceText.elapsed())));
        ResultWindow *window = current();
        QCOMPARE(window->getSourceText(), lines.join(QLatin1Char('\n')));
        QCOMPARE(m_rig->promptInput(), window->getSourceText());
        QTRY_COMPARE_WITH_TIMEOUT(window->getTranslation(), QStringLiteral("Hello"), kBound);
    }

    void clipboardTextStopAndUnconfigured()
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

    // Pinned windows keep their own runs against a provider that fails on one text and streams slowly on
    // another: a press during a stream discards an unpinned window and stops a pinned one visibly, Retry
    // sends a stopped window's text again, Enter sends what the user corrected after a failure, and closing
    // a window leaves another's request running.
    void pinnedWindowsKeepTheirOwnRuns()
    {
        m_rig->answerByText();
        QPointer<ResultWindow> first = pressWith("fail: first text");
        QVERIFY(first);
        QTRY_COMPARE_WITH_TIMEOUT(first->getTranslation(),
                                  QStringLiteral("AI failed: API error: model overloaded"), kBound);
        QVERIFY(click<QPushButton>(first, QStringLiteral("Pin window")));
        QTRY_VERIFY_WITH_TIMEOUT(first->isPinned(), kBound);
        first->move(10, 10);

        QPointer<ResultWindow> second = pressWith("slow: second text");
        QVERIFY(second && second != first);
        QTRY_COMPARE_WITH_TIMEOUT(second->getTranslation(), QStringLiteral("partial slow: second text"),
                                  kBound);
        QPointer<ResultWindow> third = pressWith("slow: third text");
        QVERIFY(third && third != first);
        QTRY_VERIFY_WITH_TIMEOUT(second.isNull(), kBound);
        QTRY_COMPARE_WITH_TIMEOUT(third->getTranslation(), QStringLiteral("partial slow: third text"),
                                  kBound);
        QVERIFY(click<QPushButton>(third, QStringLiteral("Pin window")));
        QTRY_VERIFY_WITH_TIMEOUT(third->isPinned(), kBound);
        third->move(800, 10);

        ResultWindow *fourth = pressWith("fourth text");
        QVERIFY(fourth && third && first);
        QTRY_COMPARE_WITH_TIMEOUT(third->getTranslation(),
                                  QStringLiteral("partial slow: third text\n\n(Stopped)"), kBound);
        QVERIFY(!shows<QToolButton>(third, QStringLiteral("Stop")));
        QTRY_COMPARE_WITH_TIMEOUT(fourth->getTranslation(), QStringLiteral("answer to fourth text"), kBound);
        QTRY_COMPARE_WITH_TIMEOUT(m_rig->controller->runningRequestCount(), 0, kBound); // the held one too
        QVERIFY(first->isVisible());

        QVERIFY(click<QToolButton>(third, QStringLiteral("Retry")));
        QTRY_COMPARE_WITH_TIMEOUT(third->getTranslation(), QStringLiteral("partial slow: third text"),
                                  kBound);
        QCOMPARE(m_rig->promptInput(-1), QStringLiteral("slow: third text"));

        QVERIFY(clickAt(first->findChild<SourceText *>()));
        QTRY_VERIFY_WITH_TIMEOUT(first->isActiveWindow(), kBound);
        QVERIFY(xdotool({"key", "ctrl+a", "type", "corrected first text"}));
        QTRY_COMPARE_WITH_TIMEOUT(first->getSourceText(), QStringLiteral("corrected first text"), kBound);
        QVERIFY(xdotool({"key", "Return"}));
        QTRY_COMPARE_WITH_TIMEOUT(first->getTranslation(), QStringLiteral("answer to corrected first text"),
                                  kBound);
        QVERIFY(shows<QToolButton>(third, QStringLiteral("Stop")));

        QVERIFY(click<QPushButton>(first, QStringLiteral("Close")));
        QTRY_VERIFY_WITH_TIMEOUT(first.isNull(), kBound);
        QVERIFY(shows<QToolButton>(third, QStringLiteral("Stop")));
        m_rig->server.releaseHeld();
        QTRY_VERIFY_WITH_TIMEOUT(!shows<QToolButton>(third, QStringLiteral("Stop")), kBound);
        QCOMPARE(third->getTranslation(), QStringLiteral("partial slow: third text"));
        QCOMPARE(m_rig->server.requestCount(), 6);
    }

    // A clipboard far beyond one request: the request carries what fits, the window shows it with a note of
    // what was left out, and the clipboard stays as it was.
    void hugeClipboardIsCut()
    {
        const QByteArray line = "A long clipboard line of plain text.\n";
        const QByteArray huge = line.repeated(50 * 1024 * 1024 / line.size());
        QVERIFY(ownClipboard({{"text/plain", huge}}));
        QElapsedTimer clock;
        clock.start();
        QPointer<ResultWindow> window = press(kTextHotkey);
        QVERIFY(window);
        QTRY_COMPARE_WITH_TIMEOUT(window->getTranslation(), QStringLiteral("Hello"), 120000);
        qInfo() << "huge clipboard: answered after" << clock.elapsed() << "ms";
        const QString sent = m_rig->promptInput();
        QVERIFY(sent.size() <= kVontrelMaxInputChars && QString::fromLatin1(huge).startsWith(sent));
        QCOMPARE(window->getSourceText(), sent);
        QVERIFY(window->findChild<QLabel *>(QStringLiteral("inputCutNote"))->isVisible());
    }

private:
    bool ownClipboard(const QList<QPair<QString, QByteArray>> &formats)
    {
        QStringList arguments{QStringLiteral("own-clipboard")};
        for (const auto &[format, bytes] : formats) {
            arguments << format << m_files.filePath(QString::number(arguments.size()));
            if (!TestEnv::writeFile(arguments.last(), bytes))
                return false;
        }
        m_clipboardOwner = std::make_unique<HelperProcess>();
        return m_clipboardOwner->start(arguments);
    }

    ResultWindow *pressWith(const QByteArray &clipboardText)
    {
        return ownClipboard({{"text/plain", clipboardText}}) ? press(kTextHotkey) : nullptr;
    }

    ResultWindow *current() const { return dynamic_cast<ResultWindow *>(m_rig->controller->currentWindow()); }

    ResultWindow *press(const QString &keys)
    {
        QPointer<ResultWindow> old = current();
        return xdotool({"key", keys}) ? m_rig->waitForNewWindow<ResultWindow>(old, kBound) : nullptr;
    }

    QTemporaryDir m_files;
    std::unique_ptr<SessionRig> m_rig;
    std::unique_ptr<HelperProcess> m_clipboardOwner;
    std::unique_ptr<HelperProcess> m_textWindow;
};

QTEST_MAIN(TestSessionX11)
#include "test_session_x11.moc"
