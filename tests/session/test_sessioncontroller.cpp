// The session controller against the real program services on the offscreen platform: the real clipboard
// service (in-process clipboard), real result windows, real streaming workers talking to a loopback provider,
// and a recogniser and "other application" played by the test.

#include "LoopbackChatProvider.h"

#include "ai/ActionService.h"
#include "capture/CaptureOverlay.h"
#include "capture/CaptureService.h"
#include "config/ConfigManager.h"
#include "ocr/IOcrProvider.h"
#include "platform/ClipboardService.h"
#include "platform/CopyShortcut.h"
#include "platform/HotkeyManager.h"
#include "platform/PermissionGuideDialog.h"
#include "platform/Permissions.h"
#include "session/SessionController.h"
#include "ui/overlay/OverlayWindow.h"

#include <QApplication>
#include <QClipboard>
#include <QElapsedTimer>
#include <QLabel>
#include <QMimeData>
#include <QPointer>
#include <QSemaphore>
#include <QSignalSpy>
#include <QTest>
#include <QTextBrowser>
#include <QTextEdit>
#include <QThreadPool>
#include <QTimer>

#include <memory>

namespace {

using Formats = QList<QPair<QString, QByteArray>>;

constexpr int kBound = 10000;

// Recognition played by the test: a fixed answer, optionally held back until the test lets it go.
class FakeOcrProvider final : public IOcrProvider
{
public:
    QString recognize(QImage) override
    {
        if (holdBack)
            gate.acquire();
        return answer;
    }
    bool isAvailable() override { return available; }

    QString answer;
    bool available = true;
    bool holdBack = false;
    QSemaphore gate;
};

void setClipboard(const Formats &formats)
{
    auto *data = new QMimeData;
    for (const auto &[format, bytes] : formats)
        data->setData(format, bytes);
    QGuiApplication::clipboard()->setMimeData(data);
}

Formats clipboardFormats()
{
    Formats formats;
    if (const QMimeData *data = QGuiApplication::clipboard()->mimeData()) {
        for (const QString &format : data->formats())
            formats.append({format, data->data(format)});
    }
    return formats;
}

QTextEdit *sourceEdit(OverlayWindow *window)
{
    for (QTextEdit *edit : window->findChildren<QTextEdit *>()) {
        if (!qobject_cast<QTextBrowser *>(edit))
            return edit;
    }
    return nullptr;
}

int visibleOverlayCount()
{
    int count = 0;
    for (QWidget *widget : QApplication::topLevelWidgets()) {
        if (qobject_cast<OverlayWindow *>(widget) && widget->isVisible())
            ++count;
    }
    return count;
}

QString promptInput(const QString &prompt)
{
    const QString marker = QStringLiteral("\n\nInput:\n");
    const qsizetype at = prompt.lastIndexOf(marker);
    return at < 0 ? QString() : prompt.mid(at + marker.size());
}

} // namespace

class TestSessionController : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup();

    void windowIdsAndPinnedRegistry();
    void copyFallback_data();
    void copyFallback();
    void emptyWindowSendsTypedText();
    void copyShortcutFailure();
    void lateCopyIsUndone();
    void secondPressTakesOverWaitingFallback();
    void permissionGate_data();
    void permissionGate();
    void streamEndings_data();
    void streamEndings();
    void unconfiguredProviderShowsMessage();
    void hotkeyDuringStreaming();
    void translateRefusedWhileStreaming();
    void captureRecognitionAndPause();
    void hotkeyDuringPauseCancelsRequest();
    void recognitionOutcomes_data();
    void recognitionOutcomes();
    void clipboardImageSessionWithoutImage();

private:
    // Presses the clipboard-text hotkey with this much selected in the "other application" (empty: nothing).
    void pressClipboardText(const QString &selection);
    OverlayWindow *waitForVisibleWindow();

    std::unique_ptr<LoopbackChatProvider> m_provider;
    std::unique_ptr<ClipboardService> m_clipboard;
    std::unique_ptr<CaptureService> m_capture;
    std::unique_ptr<FakeOcrProvider> m_ocr;
    std::unique_ptr<ActionService> m_actions;
    std::unique_ptr<SessionController> m_controller;
    QString m_selection;
    int m_copies = 0;
    QList<int> m_guides;
};

void TestSessionController::init()
{
    m_provider = std::make_unique<LoopbackChatProvider>();
    QVERIFY(m_provider->listen());
    m_provider->setChunks({QStringLiteral("Hel"), QStringLiteral("lo")});

    ConfigManager *config = ConfigManager::instance();
    config->resetToDefaults();
    config->setApiUrl(m_provider->apiUrl());
    config->setApiKey(QStringLiteral("test-key"));
    config->setModel(QStringLiteral("test-model"));

    Permissions::setProbesForTesting([] { return true; }, [] { return true; });
    m_selection.clear();
    m_copies = 0;
    CopyShortcut::setSenderForTesting([this] {
        ++m_copies;
        if (!m_selection.isNull())
            QGuiApplication::clipboard()->setText(m_selection);
        return true;
    });
    m_guides.clear();
    PermissionGuideDialog::resetStateForTesting();
    PermissionGuideDialog::setRunnerForTesting([this](PermissionGuideDialog *guide) {
        m_guides.append(guide->permissionType());
        return int(QDialog::Rejected);
    });

    QGuiApplication::clipboard()->clear();
    m_clipboard = std::make_unique<ClipboardService>();
    m_capture = std::make_unique<CaptureService>();
    m_ocr = std::make_unique<FakeOcrProvider>();
    m_actions = std::make_unique<ActionService>(nullptr);
    m_actions->setTargetLanguage(QStringLiteral("German"));

    m_controller = std::make_unique<SessionController>();
    m_controller->setCaptureService(m_capture.get());
    m_controller->setClipboardService(m_clipboard.get());
    m_controller->setSelectedTextProvider(nullptr);
    m_controller->setHotkeyManager(nullptr);
    m_controller->setOcrProvider(m_ocr.get());
    m_controller->setActionService(m_actions.get());
}

void TestSessionController::cleanup()
{
    // A recognition held back by a failed test must not outlive its provider.
    m_ocr->holdBack = false;
    m_ocr->gate.release(100);
    m_controller.reset();
    QThreadPool::globalInstance()->waitForDone();
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    m_actions.reset();
    m_ocr.reset();
    m_capture.reset();
    m_clipboard.reset();
    m_provider.reset();
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    CopyShortcut::setSenderForTesting({});
    Permissions::setProbesForTesting({}, {});
    PermissionGuideDialog::setRunnerForTesting({});
}

void TestSessionController::pressClipboardText(const QString &selection)
{
    m_selection = selection;
    m_controller->onHotkeyTriggered(HotkeyManager::ClipboardTextHotkey);
}

OverlayWindow *TestSessionController::waitForVisibleWindow()
{
    auto visible = [this] {
        OverlayWindow *window = m_controller->currentWindow();
        return window && window->isVisible();
    };
    return QTest::qWaitFor(visible, kBound) ? m_controller->currentWindow() : nullptr;
}

void TestSessionController::windowIdsAndPinnedRegistry()
{
    m_controller->onHotkeyTriggered(HotkeyManager::ClipboardHotkey);
    QPointer<OverlayWindow> first = m_controller->currentWindow();
    QVERIFY(first);
    QCOMPARE(first->windowId, QStringLiteral("window_1"));

    // Unpinned current windows are discarded by the next press; ids keep counting.
    m_controller->onHotkeyTriggered(HotkeyManager::ClipboardHotkey);
    QCOMPARE(m_controller->currentWindow()->windowId, QStringLiteral("window_2"));
    QTRY_VERIFY(first.isNull());

    // With pinning by default every new window is listed at once and survives the next press.
    ConfigManager::instance()->setPinOverlayByDefault(true);
    m_controller->onHotkeyTriggered(HotkeyManager::ClipboardHotkey);
    QPointer<OverlayWindow> pinned = m_controller->currentWindow();
    QCOMPARE(pinned->windowId, QStringLiteral("window_3"));
    QCOMPARE(m_controller->pinnedWindows(), QList<OverlayWindow *>{pinned.data()});
    m_controller->onHotkeyTriggered(HotkeyManager::ClipboardHotkey);
    QCOMPARE(m_controller->currentWindow()->windowId, QStringLiteral("window_4"));
    QVERIFY(pinned);
    QCOMPARE(m_controller->pinnedWindows().size(), 2);

    // Unpinning when there is no current window makes that window current again.
    QPointer<OverlayWindow> fourth = m_controller->currentWindow();
    fourth->setPinned(false);
    QCOMPARE(m_controller->pinnedWindows(), QList<OverlayWindow *>{pinned.data()});
    fourth->hide();
    QTRY_VERIFY(fourth.isNull());
    QVERIFY(!m_controller->currentWindow());
    pinned->setPinned(false);
    QCOMPARE(m_controller->currentWindow(), pinned.data());
    QVERIFY(m_controller->pinnedWindows().isEmpty());
}

void TestSessionController::copyFallback_data()
{
    QTest::addColumn<Formats>("clipboard");
    QTest::addColumn<QString>("selection");
    QTest::addColumn<QString>("expectedInput"); // empty: no request, an empty window to type into
    QTest::addColumn<int>("expectedSource");

    const Formats rich{{QStringLiteral("text/plain"), QByteArray("clipboard words")},
                       {QStringLiteral("text/html"), QByteArray("<b>clipboard</b> words")},
                       {QStringLiteral("application/x-vontrel-test"), QByteArray("\x00\x01\xff", 3)}};
    QTest::newRow("selection is trimmed and sent")
        << rich << QStringLiteral("  picked words\n") << QStringLiteral("picked words")
        << int(SessionController::SelectedText);
    QTest::newRow("selection equal to clipboard text")
        << Formats{{QStringLiteral("text/plain"), QByteArray(" same text ")}} << QStringLiteral("same text")
        << QStringLiteral(" same text ") << int(SessionController::Clipboard);
    QTest::newRow("nothing selected: clipboard text untrimmed")
        << Formats{{QStringLiteral("text/plain"), QByteArray("  clip\n")}} << QString()
        << QStringLiteral("  clip\n") << int(SessionController::Clipboard);
    QTest::newRow("nothing selected, empty clipboard") << Formats{} << QString() << QString() << -1;
    QTest::newRow("nothing selected, image only")
        << Formats{{QStringLiteral("image/png"), QByteArray("\x89PNG\r\n\x1a\n", 8)}} << QString()
        << QString() << -1;
}

void TestSessionController::copyFallback()
{
    QFETCH(Formats, clipboard);
    QFETCH(QString, selection);
    QFETCH(QString, expectedInput);
    QFETCH(int, expectedSource);

    setClipboard(clipboard);
    const Formats before = clipboardFormats();
    QSignalSpy requests(m_provider.get(), &LoopbackChatProvider::requestReceived);

    pressClipboardText(selection);
    QCOMPARE(m_copies, 1);
    OverlayWindow *window = waitForVisibleWindow();
    QVERIFY(window);
    QVERIFY(!m_controller->isCopyFallbackActive());
    QCOMPARE(clipboardFormats(), before);

    if (expectedInput.isEmpty()) {
        QCOMPARE(window->getSourceText(), QString());
        QVERIFY(!sourceEdit(window)->isReadOnly());
        QCOMPARE(m_controller->state(), SessionController::WaitingAction);
        QVERIFY(!requests.wait(300));
        return;
    }
    QCOMPARE(window->getSourceText(), expectedInput);
    QCOMPARE(int(m_controller->inputSource()), expectedSource);
    QVERIFY(requests.wait(kBound));
    QCOMPARE(promptInput(m_provider->prompts().constFirst()), expectedInput);
    QVERIFY(m_provider->prompts().constFirst().contains(QStringLiteral("German")));
    QTRY_COMPARE_WITH_TIMEOUT(window->getTranslation(), QStringLiteral("Hello"), kBound);
    QTRY_COMPARE_WITH_TIMEOUT(m_controller->state(), SessionController::Done, kBound);
    QCOMPARE(clipboardFormats(), before);
}

void TestSessionController::emptyWindowSendsTypedText()
{
    pressClipboardText(QString());
    OverlayWindow *window = waitForVisibleWindow();
    QVERIFY(window);
    QTextEdit *edit = sourceEdit(window);
    QVERIFY(edit);
    edit->setFocus();
    QTest::keyClicks(edit, QStringLiteral("typed here"));
    QTest::keyClick(edit, Qt::Key_Return);
    QSignalSpy requests(m_provider.get(), &LoopbackChatProvider::requestReceived);
    QVERIFY(requests.wait(kBound));
    QCOMPARE(promptInput(m_provider->prompts().constFirst()), QStringLiteral("typed here"));
    QTRY_COMPARE_WITH_TIMEOUT(window->getTranslation(), QStringLiteral("Hello"), kBound);
}

void TestSessionController::copyShortcutFailure()
{
    setClipboard({{QStringLiteral("text/plain"), QByteArray("kept")}});
    const Formats before = clipboardFormats();
    CopyShortcut::setSenderForTesting([] {
        QGuiApplication::clipboard()->setText(QStringLiteral("half-written"));
        return false;
    });
    m_controller->onHotkeyTriggered(HotkeyManager::ClipboardTextHotkey);

    OverlayWindow *window = waitForVisibleWindow();

    QVERIFY(window);
    QCOMPARE(window->mode(), OverlayWindow::MessageMode);
    const QLabel *message = nullptr;
    for (const QLabel *label : window->findChildren<QLabel *>()) {
        if (label->isVisible() && label->text().startsWith(QLatin1String("Failed to simulate copy")))
            message = label;
    }
    QVERIFY(message);
    QCOMPARE(message->text(), QStringLiteral("Failed to simulate copy to read selected text. Please copy "
                                             "manually or type directly."));
    QCOMPARE(m_controller->state(), SessionController::Idle);
    QCOMPARE(clipboardFormats(), before);
}

void TestSessionController::lateCopyIsUndone()
{
    setClipboard({{QStringLiteral("text/plain"), QByteArray("original")},
                  {QStringLiteral("text/html"), QByteArray("<i>original</i>")}});
    const Formats before = clipboardFormats();
    // The other application answers the keystroke only after the wait is over.
    CopyShortcut::setSenderForTesting([] {
        QTimer::singleShot(400,
                           [] { QGuiApplication::clipboard()->setText(QStringLiteral("late selection")); });
        return true;
    });
    QSignalSpy changes(m_clipboard.get(), &ClipboardService::clipboardChanged);
    m_controller->onHotkeyTriggered(HotkeyManager::ClipboardTextHotkey);

    OverlayWindow *window = waitForVisibleWindow();

    QVERIFY(window);
    QCOMPARE(window->getSourceText(), QStringLiteral("original"));
    QCOMPARE(m_controller->inputSource(), SessionController::Clipboard);

    // The late copy lands and is undone.
    QTRY_VERIFY_WITH_TIMEOUT(m_provider->requestCount() == 1 && changes.size() >= 2, kBound);
    QTRY_COMPARE_WITH_TIMEOUT(clipboardFormats(), before, kBound);
}

void TestSessionController::secondPressTakesOverWaitingFallback()
{
    setClipboard({{QStringLiteral("text/plain"), QByteArray("user clipboard")},
                  {QStringLiteral("application/x-vontrel-test"), QByteArray("payload")}});
    const Formats before = clipboardFormats();

    // First press: the other application has not answered when the second press arrives.
    QList<std::function<void()>> answers;
    CopyShortcut::setSenderForTesting([this, &answers] {
        ++m_copies;
        if (m_copies == 1) {
            answers.append([] { QGuiApplication::clipboard()->setText(QStringLiteral("the selection")); });
        } else {
            QGuiApplication::clipboard()->setText(QStringLiteral("the selection"));
        }
        return true;
    });
    m_controller->onHotkeyTriggered(HotkeyManager::ClipboardTextHotkey);
    QPointer<OverlayWindow> first = m_controller->currentWindow();
    QVERIFY(m_controller->isCopyFallbackActive());
    QVERIFY(first && !first->isVisible());

    m_controller->onHotkeyTriggered(HotkeyManager::ClipboardTextHotkey);
    QCOMPARE(m_copies, 2);
    OverlayWindow *second = waitForVisibleWindow();
    QVERIFY(second);
    QVERIFY(second != first);
    QTRY_VERIFY(first.isNull());
    QCOMPARE(second->getSourceText(), QStringLiteral("the selection"));
    QCOMPARE(m_controller->inputSource(), SessionController::SelectedText);
    QCOMPARE(clipboardFormats(), before);

    // The first keystroke's copy arrives only now: it must not stay on the clipboard.
    for (const auto &answer : std::as_const(answers))
        answer();
    QTRY_COMPARE_WITH_TIMEOUT(clipboardFormats(), before, kBound);
    QTRY_COMPARE_WITH_TIMEOUT(second->getTranslation(), QStringLiteral("Hello"), kBound);
    QCOMPARE(m_provider->requestCount(), 1);
    QCOMPARE(visibleOverlayCount(), 1);
}

void TestSessionController::permissionGate_data()
{
    QTest::addColumn<int>("hotkey");
    QTest::addColumn<bool>("accessibility");
    QTest::addColumn<bool>("screenRecording");
    QTest::addColumn<int>("expectedGuide"); // -1: none, the session starts

    QTest::newRow("capture without screen recording")
        << int(HotkeyManager::CaptureHotkey) << true << false << int(PermissionGuideDialog::ScreenRecording);
    QTest::newRow("clipboard text without accessibility")
        << int(HotkeyManager::ClipboardTextHotkey) << false << true
        << int(PermissionGuideDialog::Accessibility);
    QTest::newRow("clipboard text needs no screen recording")
        << int(HotkeyManager::ClipboardTextHotkey) << true << false << -1;
}

void TestSessionController::permissionGate()
{
    QFETCH(int, hotkey);
    QFETCH(bool, accessibility);
    QFETCH(bool, screenRecording);
    QFETCH(int, expectedGuide);

    Permissions::setProbesForTesting([accessibility] { return accessibility; },
                                     [screenRecording] { return screenRecording; });
    QSignalSpy states(m_controller.get(), &SessionController::stateChanged);
    m_controller->onHotkeyTriggered(hotkey);

    if (expectedGuide < 0) {
        QVERIFY(m_guides.isEmpty());
        QVERIFY(m_controller->currentWindow());
        return;
    }
    QCOMPARE(m_guides, QList<int>{expectedGuide});
    QVERIFY(!m_controller->currentWindow());
    QCOMPARE(m_controller->state(), SessionController::Idle);
    QVERIFY(states.isEmpty());
    QCOMPARE(m_copies, 0);
}

void TestSessionController::streamEndings_data()
{
    QTest::addColumn<QStringList>("chunks");
    QTest::addColumn<QString>("errorMessage");
    QTest::addColumn<bool>("stop");
    QTest::addColumn<QString>("expectedResult");
    QTest::addColumn<int>("expectedState");

    QTest::newRow("finished") << QStringList{QStringLiteral("Hal"), QStringLiteral("lo Welt")} << QString()
                              << false << QStringLiteral("Hallo Welt") << int(SessionController::Done);
    QTest::newRow("provider error") << QStringList() << QStringLiteral("quota exceeded") << false
                                    << QStringLiteral("AI failed: API error: quota exceeded")
                                    << int(SessionController::Failed);
    QTest::newRow("stopped with text")
        << QStringList{QStringLiteral("partial")} << QString() << true
        << QStringLiteral("partial\n\n(Stopped)") << int(SessionController::Done);
    QTest::newRow("stopped before any text")
        << QStringList() << QString() << true << QStringLiteral("(Stopped)") << int(SessionController::Done);
}

void TestSessionController::streamEndings()
{
    QFETCH(QStringList, chunks);
    QFETCH(QString, errorMessage);
    QFETCH(bool, stop);
    QFETCH(QString, expectedResult);
    QFETCH(int, expectedState);

    m_provider->setChunks(chunks);
    m_provider->setErrorMessage(errorMessage);
    m_provider->setHold(stop);
    pressClipboardText(QStringLiteral("some text"));
    OverlayWindow *window = waitForVisibleWindow();
    QVERIFY(window);
    QTRY_COMPARE_WITH_TIMEOUT(m_provider->requestCount(), 1, kBound);

    if (stop) {
        QCOMPARE(m_controller->state(), SessionController::ProcessingAI);
        if (!chunks.isEmpty())
            QTRY_COMPARE_WITH_TIMEOUT(window->getTranslation(), chunks.join(QString()), kBound);
        emit window->stopRequested();
        // The request is really ended, not just ignored.
        QTRY_COMPARE_WITH_TIMEOUT(m_provider->openStreamCount(), 0, kBound);
    }
    QTRY_COMPARE_WITH_TIMEOUT(window->getTranslation(), expectedResult, kBound);
    QTRY_COMPARE_WITH_TIMEOUT(int(m_controller->state()), expectedState, kBound);
    QCOMPARE(m_controller->runningRequestCount(), 0);
}

void TestSessionController::unconfiguredProviderShowsMessage()
{
    ConfigManager::instance()->setApiKey(QString());
    pressClipboardText(QStringLiteral("some text"));
    OverlayWindow *window = waitForVisibleWindow();
    QVERIFY(window);
    QTRY_COMPARE_WITH_TIMEOUT(window->getTranslation(),
                              QStringLiteral("AI not configured. Please set API key."), kBound);
    QCOMPARE(m_controller->state(), SessionController::WaitingAction);
    QCOMPARE(m_provider->requestCount(), 0);
}

void TestSessionController::hotkeyDuringStreaming()
{
    m_provider->setHold(true);
    m_provider->setChunks({QStringLiteral("first answer")});
    pressClipboardText(QStringLiteral("first text"));
    QPointer<OverlayWindow> pinned = waitForVisibleWindow();
    QVERIFY(pinned);
    pinned->setPinned(true);
    QTRY_COMPARE_WITH_TIMEOUT(pinned->getTranslation(), QStringLiteral("first answer"), kBound);

    pressClipboardText(QStringLiteral("second text"));
    QPointer<OverlayWindow> second = waitForVisibleWindow();
    QVERIFY(second);
    QVERIFY(second != pinned);
    QTRY_COMPARE_WITH_TIMEOUT(m_provider->requestCount(), 2, kBound);
    QTRY_COMPARE_WITH_TIMEOUT(m_provider->openStreamCount(), 1, kBound); // the pinned window's was cancelled

    // A third press during the second stream cancels it, discards the unpinned window and opens a new one.
    pressClipboardText(QStringLiteral("third text"));
    QTRY_VERIFY(second.isNull());
    QPointer<OverlayWindow> third = waitForVisibleWindow();
    QVERIFY(third);
    QVERIFY(third != pinned);
    QTRY_COMPARE_WITH_TIMEOUT(m_provider->requestCount(), 3, kBound);
    QTRY_COMPARE_WITH_TIMEOUT(m_provider->openStreamCount(), 1, kBound);
    QVERIFY(pinned && pinned->isVisible());
    QCOMPARE(pinned->getTranslation(), QStringLiteral("first answer"));

    // Retry in the surviving pinned window streams again there, with the last text sent.
    m_provider->releaseHeld();
    QTRY_COMPARE_WITH_TIMEOUT(m_controller->state(), SessionController::Done, kBound);
    m_provider->setHold(false);
    m_provider->setChunks({QStringLiteral("retried")});
    emit pinned->retryRequested();
    QTRY_COMPARE_WITH_TIMEOUT(pinned->getTranslation(), QStringLiteral("retried"), kBound);
    QCOMPARE(promptInput(m_provider->prompts().constLast()), QStringLiteral("third text"));
    QTRY_COMPARE_WITH_TIMEOUT(m_controller->state(), SessionController::Done, kBound);
    QVERIFY(third);
    QCOMPARE(third->getTranslation(), QStringLiteral("first answer"));

    // Closing the pinned window of the earlier session with no request running returns to Idle.
    pinned->hide();
    QTRY_VERIFY(pinned.isNull());
    QCOMPARE(m_controller->state(), SessionController::Idle);
}

void TestSessionController::translateRefusedWhileStreaming()
{
    m_provider->setHold(true);
    pressClipboardText(QStringLiteral("some text"));
    OverlayWindow *window = waitForVisibleWindow();
    QVERIFY(window);
    QTRY_COMPARE_WITH_TIMEOUT(m_provider->requestCount(), 1, kBound);
    emit window->translateRequested(QStringLiteral("other text"));
    QCOMPARE(m_controller->runningRequestCount(), 1);
    m_provider->releaseHeld();
    QTRY_COMPARE_WITH_TIMEOUT(m_controller->state(), SessionController::Done, kBound);

    // Once done, the edited source may be translated again in the same window.
    emit window->translateRequested(QStringLiteral("other text"));
    QTRY_COMPARE_WITH_TIMEOUT(m_provider->requestCount(), 2, kBound);
    QCOMPARE(promptInput(m_provider->prompts().constLast()), QStringLiteral("other text"));
}

void TestSessionController::captureRecognitionAndPause()
{
    m_ocr->answer = QStringLiteral("Recognised line\nsecond line");
    m_ocr->holdBack = true;
    m_controller->onHotkeyTriggered(HotkeyManager::CaptureHotkey);
    QCOMPARE(m_controller->state(), SessionController::Capturing);
    QVERIFY(m_capture->isCapturing());
    OverlayWindow *window = m_controller->currentWindow();
    QVERIFY(window && !window->isVisible());

    CaptureOverlay *selector = nullptr;
    QTRY_VERIFY((selector = [] {
        for (QWidget *widget : QApplication::topLevelWidgets()) {
            if (auto *overlay = qobject_cast<CaptureOverlay *>(widget); overlay && overlay->isVisible())
                return overlay;
        }
        return static_cast<CaptureOverlay *>(nullptr);
    }()));
    QTest::mousePress(selector, Qt::LeftButton, {}, QPoint(20, 20));
    QTest::mouseMove(selector, QPoint(120, 70));
    QTest::mouseRelease(selector, Qt::LeftButton, {}, QPoint(120, 70));

    QTRY_COMPARE_WITH_TIMEOUT(m_controller->state(), SessionController::OCRing, kBound);
    QVERIFY(window->isVisible());
    QCOMPARE(window->mode(), OverlayWindow::CaptureMode);
    QCOMPARE(window->getSourceText(), QStringLiteral("Recognizing text..."));

    QSignalSpy requests(m_provider.get(), &LoopbackChatProvider::requestReceived);
    m_ocr->gate.release();
    QTRY_COMPARE_WITH_TIMEOUT(window->getSourceText(), m_ocr->answer, kBound);
    QElapsedTimer sinceText;
    sinceText.start();
    QCOMPARE(m_controller->state(), SessionController::WaitingAction);
    QCOMPARE(m_provider->requestCount(), 0);

    QVERIFY(requests.wait(kBound));
    QVERIFY2(sinceText.elapsed() >= 900, qPrintable(QString::number(sinceText.elapsed())));
    QCOMPARE(promptInput(m_provider->prompts().constFirst()), m_ocr->answer);
    QTRY_COMPARE_WITH_TIMEOUT(window->getTranslation(), QStringLiteral("Hello"), kBound);
    QCOMPARE(m_controller->inputSource(), SessionController::ScreenCapture);
}

void TestSessionController::hotkeyDuringPauseCancelsRequest()
{
    m_ocr->answer = QStringLiteral("never sent");
    m_controller->onHotkeyTriggered(HotkeyManager::CaptureHotkey);
    emit m_capture->captureDone(QImage(40, 20, QImage::Format_RGB32));
    QTRY_COMPARE_WITH_TIMEOUT(m_controller->state(), SessionController::WaitingAction, kBound);

    // Within the pause the user starts another session: the recognised text is never sent.
    pressClipboardText(QStringLiteral("instead"));
    QSignalSpy requests(m_provider.get(), &LoopbackChatProvider::requestReceived);
    QVERIFY(requests.wait(kBound));
    QVERIFY(!requests.wait(1500));
    QCOMPARE(m_provider->prompts().size(), 1);
    QCOMPARE(promptInput(m_provider->prompts().constFirst()), QStringLiteral("instead"));
}

void TestSessionController::recognitionOutcomes_data()
{
    QTest::addColumn<QString>("answer");
    QTest::addColumn<bool>("available");
    QTest::addColumn<bool>("withProvider");
    QTest::addColumn<QString>("expectedSource");
    QTest::addColumn<QString>("expectedResult");
    QTest::addColumn<int>("expectedState");

    QTest::newRow("no text") << QStringLiteral(" \n ") << true << true << QStringLiteral("No text recognized")
                             << QString() << int(SessionController::WaitingAction);
    QTest::newRow("recogniser unavailable")
        << QString() << false << true << QStringLiteral("Recognizing text...")
        << QStringLiteral("OCR failed: OCR not available on this system") << int(SessionController::Failed);
    QTest::newRow("no provider") << QString() << true << false << QString() << QString()
                                 << int(SessionController::Idle);
}

void TestSessionController::recognitionOutcomes()
{
    QFETCH(QString, answer);
    QFETCH(bool, available);
    QFETCH(bool, withProvider);
    QFETCH(QString, expectedSource);
    QFETCH(QString, expectedResult);
    QFETCH(int, expectedState);

    m_ocr->answer = answer;
    m_ocr->available = available;
    if (!withProvider)
        m_controller->setOcrProvider(nullptr);
    QSignalSpy errors(m_controller.get(), &SessionController::error);
    m_controller->onHotkeyTriggered(HotkeyManager::CaptureHotkey);
    emit m_capture->captureDone(QImage(40, 20, QImage::Format_RGB32));

    if (!withProvider) {
        QCOMPARE(errors.size(), 1);
        QCOMPARE(errors.constFirst().constFirst().toString(), QStringLiteral("OCR provider not available"));
        QCOMPARE(m_controller->state(), SessionController::Idle);
        return;
    }
    QTRY_COMPARE_WITH_TIMEOUT(int(m_controller->state()), expectedState, kBound);
    OverlayWindow *window = m_controller->currentWindow();
    QCOMPARE(window->getSourceText(), expectedSource);
    QCOMPARE(window->getTranslation(), expectedResult);
    QVERIFY(errors.isEmpty());
}

void TestSessionController::clipboardImageSessionWithoutImage()
{
    QGuiApplication::clipboard()->setText(QStringLiteral("only text"));
    m_controller->onHotkeyTriggered(HotkeyManager::ClipboardHotkey);
    OverlayWindow *window = waitForVisibleWindow();
    QVERIFY(window);
    QCOMPARE(window->mode(), OverlayWindow::MessageMode);
    bool shown = false;
    for (const QLabel *label : window->findChildren<QLabel *>())
        shown = shown || (label->isVisible() && label->text() == QStringLiteral("No image in clipboard"));
    QVERIFY(shown);
    QCOMPARE(m_controller->state(), SessionController::Idle);
}

QTEST_MAIN(TestSessionController)
#include "test_sessioncontroller.moc"
