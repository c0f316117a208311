// Sessions end to end on a real X server (the test's own Xvfb): the real hotkey grabs pressed by xdotool, the
// real synthetic copy answered by another X client, the real clipboard shared with xclip, the real region
// selector dragged by xdotool, real text recognition, and a loopback provider that streams the answer.

#include "LoopbackChatProvider.h"
#include "X11TestHelpers.h"

#include "ai/ActionService.h"
#include "capture/CaptureOverlay.h"
#include "capture/CaptureService.h"
#include "config/ConfigManager.h"
#include "ocr/IOcrProvider.h"
#include "platform/ClipboardService.h"
#include "platform/HotkeyManager.h"
#include "platform/ISelectedTextProvider.h"
#include "session/SessionController.h"
#include "ui/overlay/OverlayWindow.h"

#include <QApplication>
#include <QClipboard>
#include <QElapsedTimer>
#include <QFont>
#include <QLabel>
#include <QPointer>
#include <QProcess>
#include <QPushButton>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>
#include <QThreadPool>
#include <QToolButton>

#include <memory>

using namespace X11TestHelpers;

namespace {

constexpr int kBound = 20000;

// Runs a tool while this process keeps serving its event loop: xclip reading a clipboard that this process
// owns needs an answer from us.
ToolResult runToolServing(const QString &program, const QStringList &arguments)
{
    QProcess process;
    process.start(program, arguments);
    if (!process.waitForStarted(kBound))
        return {};
    process.closeWriteChannel();
    if (!QTest::qWaitFor([&] { return process.state() == QProcess::NotRunning; }, kBound)) {
        process.kill();
        process.waitForFinished();
        return {};
    }
    return {process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1,
            process.readAllStandardOutput()};
}

bool pressKeys(const QString &keys)
{
    return runToolServing(QStringLiteral("xdotool"), {QStringLiteral("key"), keys}).exitCode == 0;
}

// Every target the clipboard owner offers with its bytes, as another X client reads them. The selection
// protocol's own targets say nothing about the contents and are left out.
QMap<QString, QByteArray> clipboardContents()
{
    static const QStringList meta{QStringLiteral("TARGETS"), QStringLiteral("TIMESTAMP"),
                                  QStringLiteral("MULTIPLE"), QStringLiteral("SAVE_TARGETS")};
    QMap<QString, QByteArray> contents;
    const ToolResult targets =
        runToolServing(QStringLiteral("xclip"),
                       {QStringLiteral("-o"), QStringLiteral("-selection"), QStringLiteral("clipboard"),
                        QStringLiteral("-t"), QStringLiteral("TARGETS")});
    for (const QString &target : QString::fromUtf8(targets.output).split(u'\n', Qt::SkipEmptyParts)) {
        if (meta.contains(target))
            continue;
        contents.insert(target, runToolServing(QStringLiteral("xclip"),
                                               {QStringLiteral("-o"), QStringLiteral("-selection"),
                                                QStringLiteral("clipboard"), QStringLiteral("-t"), target})
                                    .output);
    }
    return contents;
}

QString promptInput(const QString &prompt)
{
    const QString marker = QStringLiteral("\n\nInput:\n");
    const qsizetype at = prompt.lastIndexOf(marker);
    return at < 0 ? QString() : prompt.mid(at + marker.size());
}

template<typename T>
T *visibleChild(QWidget *window, const QString &toolTip)
{
    for (T *child : window->findChildren<T *>()) {
        if (child->isVisible() && child->toolTip() == toolTip)
            return child;
    }
    return nullptr;
}

bool clickAt(QWidget *widget)
{
    const QPoint centre = widget->mapToGlobal(widget->rect().center());
    return runToolServing(QStringLiteral("xdotool"),
                          {QStringLiteral("mousemove"), QString::number(centre.x()),
                           QString::number(centre.y()), QStringLiteral("click"), QStringLiteral("1")})
               .exitCode == 0;
}

} // namespace

class TestSessionX11 : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void cleanup();

    void selectionInAnotherClient();
    void clipboardTextWhenNothingSelected();
    void emptyClipboardOpensWindowToType();
    void captureRecognisesRegion();
    void hotkeyDuringStreamingAndPinnedRetry();
    void stopAndUnconfigured();

private:
    bool ownClipboard(const QList<QPair<QString, QByteArray>> &formats);
    OverlayWindow *waitForVisibleWindow();

    QTemporaryDir m_files;
    std::unique_ptr<LoopbackChatProvider> m_provider;
    std::unique_ptr<CaptureService> m_capture;
    std::unique_ptr<ClipboardService> m_clipboard;
    std::unique_ptr<HotkeyManager> m_hotkeys;
    std::unique_ptr<IOcrProvider> m_ocr;
    std::unique_ptr<ISelectedTextProvider> m_selectedText;
    std::unique_ptr<ActionService> m_actions;
    std::unique_ptr<SessionController> m_controller;
    std::unique_ptr<HelperProcess> m_clipboardOwner;
    std::unique_ptr<HelperProcess> m_textWindow;
};

void TestSessionX11::initTestCase()
{
    QVERIFY(QGuiApplication::platformName() == QLatin1String("xcb"));
    QVERIFY(m_files.isValid());
}

void TestSessionX11::init()
{
    m_provider = std::make_unique<LoopbackChatProvider>();
    QVERIFY(m_provider->listen());
    m_provider->setChunks({QStringLiteral("Hel"), QStringLiteral("lo")});
    ConfigManager *config = ConfigManager::instance();
    config->resetToDefaults();
    config->setApiUrl(m_provider->apiUrl());
    config->setApiKey(QStringLiteral("test-key"));
    config->setModel(QStringLiteral("test-model"));

    // The services in the order start-up creates them and hands them over.
    m_capture = std::make_unique<CaptureService>();
    m_clipboard = std::make_unique<ClipboardService>();
    m_hotkeys = std::make_unique<HotkeyManager>();
    m_ocr = vontrelCreateOcrProvider(QStringLiteral("eng"));
    m_selectedText = vontrelCreateSelectedTextProvider();
    m_actions = std::make_unique<ActionService>(nullptr);
    m_actions->setTargetLanguage(QStringLiteral("German"));
    m_controller = std::make_unique<SessionController>();
    m_controller->setCaptureService(m_capture.get());
    m_controller->setClipboardService(m_clipboard.get());
    m_controller->setSelectedTextProvider(m_selectedText.get());
    m_controller->setHotkeyManager(m_hotkeys.get());
    m_controller->setOcrProvider(m_ocr.get());
    m_controller->setActionService(m_actions.get());
    QVERIFY2(m_hotkeys->registerHotkeys(), qPrintable(m_hotkeys->lastError()));
}

void TestSessionX11::cleanup()
{
    m_textWindow.reset();
    m_clipboardOwner.reset();
    m_controller.reset();
    // The clipboard this process took over by restoring must not leak into the next test.
    QGuiApplication::clipboard()->clear();
    QThreadPool::globalInstance()->waitForDone();
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    m_actions.reset();
    m_selectedText.reset();
    m_ocr.reset();
    m_hotkeys.reset();
    m_clipboard.reset();
    m_capture.reset();
    m_provider.reset();
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
}

bool TestSessionX11::ownClipboard(const QList<QPair<QString, QByteArray>> &formats)
{
    QStringList arguments{QStringLiteral("own-clipboard")};
    int index = 0;
    for (const auto &[format, bytes] : formats) {
        const QString path = m_files.filePath(QStringLiteral("format%1").arg(index++));
        QFile file(path);
        if (!file.open(QIODevice::WriteOnly) || file.write(bytes) != bytes.size())
            return false;
        arguments << format << path;
    }
    m_clipboardOwner = std::make_unique<HelperProcess>();
    return m_clipboardOwner->start(arguments);
}

OverlayWindow *TestSessionX11::waitForVisibleWindow()
{
    auto visible = [this] {
        OverlayWindow *window = m_controller->currentWindow();
        return window && window->isVisible();
    };
    return QTest::qWaitFor(visible, kBound) ? m_controller->currentWindow() : nullptr;
}

void TestSessionX11::selectionInAnotherClient()
{
    QVERIFY(
        ownClipboard({{QStringLiteral("text/plain"), QByteArray("what the user copied before")},
                      {QStringLiteral("text/html"), QByteArray("<b>what the user</b> copied before")},
                      {QStringLiteral("application/x-vontrel-test"), QByteArray("\x00\x01\x02\xff", 4)}}));
    const QMap<QString, QByteArray> before = clipboardContents();
    QVERIFY(before.contains(QStringLiteral("text/html")));
    QVERIFY(before.contains(QStringLiteral("application/x-vontrel-test")));

    m_textWindow = std::make_unique<HelperProcess>();
    QVERIFY(m_textWindow->start({QStringLiteral("text-window"), QStringLiteral("Guten Morgen, liebe Welt")}));

    QSignalSpy requests(m_provider.get(), &LoopbackChatProvider::requestReceived);
    QVERIFY(pressKeys(QStringLiteral("super+shift+2")));
    QVERIFY(requests.wait(kBound));
    QCOMPARE(promptInput(m_provider->prompts().constFirst()), QStringLiteral("Guten Morgen, liebe Welt"));
    QCOMPARE(m_controller->inputSource(), SessionController::SelectedText);

    OverlayWindow *window = waitForVisibleWindow();
    QVERIFY(window);
    QCOMPARE(window->getSourceText(), QStringLiteral("Guten Morgen, liebe Welt"));
    QTRY_COMPARE_WITH_TIMEOUT(window->getTranslation(), QStringLiteral("Hello"), kBound);
    QTRY_COMPARE_WITH_TIMEOUT(m_controller->state(), SessionController::Done, kBound);

    QCOMPARE(clipboardContents(), before);
}

void TestSessionX11::clipboardTextWhenNothingSelected()
{
    QVERIFY(ownClipboard({{QStringLiteral("text/plain"), QByteArray("  spaced clipboard text \n")}}));
    const QMap<QString, QByteArray> before = clipboardContents();

    QSignalSpy requests(m_provider.get(), &LoopbackChatProvider::requestReceived);
    QVERIFY(pressKeys(QStringLiteral("super+shift+2")));
    QVERIFY(requests.wait(kBound));
    QCOMPARE(promptInput(m_provider->prompts().constFirst()), QStringLiteral("  spaced clipboard text \n"));
    QCOMPARE(m_controller->inputSource(), SessionController::Clipboard);
    OverlayWindow *window = waitForVisibleWindow();
    QVERIFY(window);
    QTRY_COMPARE_WITH_TIMEOUT(window->getTranslation(), QStringLiteral("Hello"), kBound);
    QCOMPARE(clipboardContents(), before);
}

void TestSessionX11::emptyClipboardOpensWindowToType()
{
    QVERIFY(clipboardContents().isEmpty());
    QVERIFY(pressKeys(QStringLiteral("super+shift+2")));
    OverlayWindow *window = waitForVisibleWindow();
    QVERIFY(window);
    QCOMPARE(window->getSourceText(), QString());
    QCOMPARE(m_controller->state(), SessionController::WaitingAction);
    QCOMPARE(m_provider->requestCount(), 0);

    QTRY_VERIFY_WITH_TIMEOUT(window->isActiveWindow(), kBound);
    QSignalSpy requests(m_provider.get(), &LoopbackChatProvider::requestReceived);
    QCOMPARE(
        runToolServing(QStringLiteral("xdotool"), {QStringLiteral("type"), QStringLiteral("typed by hand")})
            .exitCode,
        0);
    QTRY_COMPARE_WITH_TIMEOUT(window->getSourceText(), QStringLiteral("typed by hand"), kBound);
    QVERIFY(pressKeys(QStringLiteral("Return")));
    QVERIFY(requests.wait(kBound));
    QCOMPARE(promptInput(m_provider->prompts().constFirst()), QStringLiteral("typed by hand"));
    QTRY_COMPARE_WITH_TIMEOUT(window->getTranslation(), QStringLiteral("Hello"), kBound);
}

void TestSessionX11::captureRecognisesRegion()
{
    if (!m_ocr->isAvailable())
        QSKIP("No text recogniser with English data on this system");

    QLabel page(QStringLiteral("Quiet rivers carry bright stones"));
    page.setWindowFlags(Qt::FramelessWindowHint);
    QFont font = page.font();
    font.setPixelSize(44);
    page.setFont(font);
    page.setStyleSheet(QStringLiteral("background: white; color: black; padding: 20px;"));
    page.setGeometry(100, 100, 1000, 120);
    page.show();
    QVERIFY(QTest::qWaitForWindowExposed(&page));

    QVERIFY(pressKeys(QStringLiteral("super+shift+1")));
    QTRY_COMPARE_WITH_TIMEOUT(m_controller->state(), SessionController::Capturing, kBound);
    CaptureOverlay *selector = nullptr;
    auto findSelector = [&selector] {
        for (QWidget *widget : QApplication::topLevelWidgets()) {
            if (auto *overlay = qobject_cast<CaptureOverlay *>(widget); overlay && overlay->isVisible())
                selector = overlay;
        }
        return selector != nullptr;
    };
    QVERIFY(QTest::qWaitFor(findSelector, kBound));
    QVERIFY(QTest::qWaitForWindowExposed(selector));

    QCOMPARE(runToolServing(QStringLiteral("xdotool"),
                            {QStringLiteral("mousemove"), QStringLiteral("90"), QStringLiteral("90"),
                             QStringLiteral("mousedown"), QStringLiteral("1"), QStringLiteral("mousemove"),
                             QStringLiteral("600"), QStringLiteral("180"), QStringLiteral("mousemove"),
                             QStringLiteral("1110"), QStringLiteral("230"), QStringLiteral("mouseup"),
                             QStringLiteral("1")})
                 .exitCode,
             0);

    OverlayWindow *window = waitForVisibleWindow();
    QVERIFY(window);
    QCOMPARE(window->mode(), OverlayWindow::CaptureMode);
    QTRY_COMPARE_WITH_TIMEOUT(m_controller->state(), SessionController::WaitingAction, kBound);
    QElapsedTimer sinceText;
    sinceText.start();
    QCOMPARE(m_provider->requestCount(), 0);
    const QString recognised = window->getSourceText();
    QVERIFY2(recognised.contains(QStringLiteral("rivers carry bright")), qPrintable(recognised));

    QSignalSpy requests(m_provider.get(), &LoopbackChatProvider::requestReceived);
    QVERIFY(requests.wait(kBound));
    QVERIFY2(sinceText.elapsed() >= 900, qPrintable(QString::number(sinceText.elapsed())));
    QCOMPARE(promptInput(m_provider->prompts().constFirst()), recognised);
    QTRY_COMPARE_WITH_TIMEOUT(window->getTranslation(), QStringLiteral("Hello"), kBound);
}

void TestSessionX11::hotkeyDuringStreamingAndPinnedRetry()
{
    QVERIFY(ownClipboard({{QStringLiteral("text/plain"), QByteArray("first text")}}));

    // The first request fails: the window offers Retry; the user pins it.
    m_provider->setErrorMessage(QStringLiteral("model overloaded"));
    QVERIFY(pressKeys(QStringLiteral("super+shift+2")));
    QPointer<OverlayWindow> first = waitForVisibleWindow();
    QVERIFY(first);
    QTRY_COMPARE_WITH_TIMEOUT(first->getTranslation(),
                              QStringLiteral("AI failed: API error: model overloaded"), kBound);
    QTRY_COMPARE_WITH_TIMEOUT(m_controller->state(), SessionController::Failed, kBound);
    QPushButton *pin = visibleChild<QPushButton>(first, QStringLiteral("Pin window"));
    QVERIFY(pin);
    QVERIFY(clickAt(pin));
    QTRY_VERIFY_WITH_TIMEOUT(first->isPinned(), kBound);
    // Every window opens centred; the user keeps a pinned one aside so the next does not cover it.
    first->move(20, 650);

    // The second request streams and is held open.
    m_provider->setErrorMessage(QString());
    m_provider->setHold(true);
    m_provider->setChunks({QStringLiteral("partial")});
    QVERIFY(pressKeys(QStringLiteral("super+shift+2")));
    QTRY_COMPARE_WITH_TIMEOUT(m_provider->requestCount(), 2, kBound);
    QPointer<OverlayWindow> second = m_controller->currentWindow();
    QVERIFY(second && second != first);
    QTRY_COMPARE_WITH_TIMEOUT(second->getTranslation(), QStringLiteral("partial"), kBound);

    // A press during the stream ends it, discards its window and opens a new one; the pinned window stays.
    m_provider->setHold(false);
    m_provider->setChunks({QStringLiteral("third answer")});
    QVERIFY(pressKeys(QStringLiteral("super+shift+2")));
    QTRY_VERIFY_WITH_TIMEOUT(second.isNull(), kBound);
    QTRY_COMPARE_WITH_TIMEOUT(m_provider->openStreamCount(), 0, kBound);
    QTRY_COMPARE_WITH_TIMEOUT(m_provider->requestCount(), 3, kBound);
    OverlayWindow *third = waitForVisibleWindow();
    QVERIFY(third && third != first);
    QTRY_COMPARE_WITH_TIMEOUT(third->getTranslation(), QStringLiteral("third answer"), kBound);
    QVERIFY(first && first->isVisible());

    // Retry in the pinned window streams again there.
    m_provider->setChunks({QStringLiteral("retried")});
    QToolButton *retry = visibleChild<QToolButton>(first, QStringLiteral("Retry"));
    QVERIFY(retry);
    QVERIFY(clickAt(retry));
    QTRY_COMPARE_WITH_TIMEOUT(first->getTranslation(), QStringLiteral("retried"), kBound);
    QCOMPARE(m_provider->requestCount(), 4);
    QTRY_COMPARE_WITH_TIMEOUT(m_controller->state(), SessionController::Done, kBound);
}

void TestSessionX11::stopAndUnconfigured()
{
    QVERIFY(ownClipboard({{QStringLiteral("text/plain"), QByteArray("long text")}}));
    m_provider->setHold(true);
    m_provider->setChunks({QStringLiteral("half an answer")});
    QVERIFY(pressKeys(QStringLiteral("super+shift+2")));
    QPointer<OverlayWindow> window = waitForVisibleWindow();
    QVERIFY(window);
    QTRY_COMPARE_WITH_TIMEOUT(window->getTranslation(), QStringLiteral("half an answer"), kBound);
    QToolButton *stop = visibleChild<QToolButton>(window, QStringLiteral("Stop"));
    QVERIFY(stop);
    QVERIFY(clickAt(stop));
    QTRY_COMPARE_WITH_TIMEOUT(window->getTranslation(), QStringLiteral("half an answer\n\n(Stopped)"),
                              kBound);
    QTRY_COMPARE_WITH_TIMEOUT(m_controller->state(), SessionController::Done, kBound);
    QTRY_COMPARE_WITH_TIMEOUT(m_provider->openStreamCount(), 0, kBound);

    ConfigManager::instance()->setApiKey(QString());
    QVERIFY(pressKeys(QStringLiteral("super+shift+2")));
    QTRY_VERIFY_WITH_TIMEOUT(window.isNull(), kBound);
    OverlayWindow *unconfigured = waitForVisibleWindow();
    QVERIFY(unconfigured);
    QTRY_COMPARE_WITH_TIMEOUT(unconfigured->getTranslation(),
                              QStringLiteral("AI not configured. Please set API key."), kBound);
    QCOMPARE(m_provider->requestCount(), 1);
}

QTEST_MAIN(TestSessionX11)
#include "test_session_x11.moc"
