// The session controller on the offscreen platform with the real clipboard service, result windows and
// streaming workers; the recogniser and the "other application" answering the copy keystroke are the test's.

#include "SessionRig.h"

#include "platform/CopyShortcut.h"
#include "platform/PermissionGuideDialog.h"
#include "platform/Permissions.h"

#include <QClipboard>
#include <QGuiApplication>
#include <QLabel>
#include <QMimeData>
#include <QPointer>
#include <QSignalSpy>
#include <QTimer>

using Formats = QList<QPair<QString, QByteArray>>;

namespace {

constexpr int kBound = 10000;

class FakeOcrProvider final : public IOcrProvider
{
public:
    QString recognize(QImage) override { return answer; }
    bool isAvailable() override { return available; }
    QString answer;
    bool available = true;
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
    void messageWindows_data();
    void messageWindows();
    void lateCopyIsUndone();
    void secondPressTakesOverWaitingFallback();
    void permissionGate_data();
    void permissionGate();
    void stopAndTranslateInWindow();
    void hotkeyDuringPauseCancelsRequest();
    void recognitionOutcomes_data();
    void recognitionOutcomes();

private:
    OverlayWindow *pressAndWait(int hotkey, const QString &selection = QString());

    std::unique_ptr<SessionRig> m_rig;
    FakeOcrProvider *m_ocr = nullptr;
    QString m_selection; // what the other application copies; null: nothing selected
    int m_copies = 0;
    QList<int> m_guides;
};

void TestSessionController::init()
{
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
    m_ocr = new FakeOcrProvider;
    m_rig = std::make_unique<SessionRig>(std::unique_ptr<IOcrProvider>(m_ocr), false);
    QVERIFY(m_rig->listening);
}

void TestSessionController::cleanup()
{
    m_rig.reset();
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    CopyShortcut::setSenderForTesting({});
    Permissions::setProbesForTesting({}, {});
    PermissionGuideDialog::setRunnerForTesting({});
}

// Presses a hotkey (with this selected in the other application) and waits for the current window to show.
OverlayWindow *TestSessionController::pressAndWait(int hotkey, const QString &selection)
{
    m_selection = selection;
    QPointer<OverlayWindow> old = m_rig->controller->currentWindow();
    m_rig->controller->onHotkeyTriggered(hotkey);
    return m_rig->waitForNewWindow(old, kBound);
}

void TestSessionController::windowIdsAndPinnedRegistry()
{
    QPointer<OverlayWindow> first = pressAndWait(HotkeyManager::ClipboardHotkey);
    QCOMPARE(first->windowId, QStringLiteral("window_1"));
    QCOMPARE(pressAndWait(HotkeyManager::ClipboardHotkey)->windowId, QStringLiteral("window_2"));
    QTRY_VERIFY(first.isNull()); // the unpinned window is discarded

    // Pinned by default: listed at once and kept by the next press.
    ConfigManager::instance()->setPinOverlayByDefault(true);
    QPointer<OverlayWindow> pinned = pressAndWait(HotkeyManager::ClipboardHotkey);
    QCOMPARE(pinned->windowId, QStringLiteral("window_3"));
    QPointer<OverlayWindow> fourth = pressAndWait(HotkeyManager::ClipboardHotkey);
    QCOMPARE(fourth->windowId, QStringLiteral("window_4"));
    QCOMPARE(m_rig->controller->pinnedWindows(), (QList<OverlayWindow *>{pinned, fourth}));

    // Unpinning while there is no current window makes that window current again.
    fourth->setPinned(false);
    fourth->hide();
    QTRY_VERIFY(fourth.isNull());
    QVERIFY(!m_rig->controller->currentWindow());
    pinned->setPinned(false);
    QCOMPARE(m_rig->controller->currentWindow(), pinned.data());
    QVERIFY(m_rig->controller->pinnedWindows().isEmpty());
}

void TestSessionController::copyFallback_data()
{
    QTest::addColumn<Formats>("clipboard");
    QTest::addColumn<QString>("selection");
    QTest::addColumn<QString>("expectedInput"); // empty: no request, an empty editable window
    QTest::addColumn<int>("expectedSource");

    QTest::newRow("selection trimmed, every format restored")
        << Formats{{"text/plain", "clipboard words"},
                   {"text/html", "<b>clipboard</b> words"},
                   {"application/x-vontrel-test", QByteArray("\x00\x01\xff", 3)}}
        << QStringLiteral("  picked words\n") << QStringLiteral("picked words")
        << int(SessionController::SelectedText);
    QTest::newRow("selection equal to clipboard text")
        << Formats{{"text/plain", " same text "}} << QStringLiteral("same text")
        << QStringLiteral(" same text ") << int(SessionController::Clipboard);
    QTest::newRow("nothing selected, image only")
        << Formats{{"image/png", QByteArray("\x89PNG\r\n\x1a\n", 8)}} << QString() << QString() << -1;
}

void TestSessionController::copyFallback()
{
    QFETCH(Formats, clipboard);
    QFETCH(QString, selection);
    QFETCH(QString, expectedInput);
    QFETCH(int, expectedSource);

    setClipboard(clipboard);
    const Formats before = clipboardFormats();
    QSignalSpy requests(&m_rig->server, &LoopbackHttpServer::requestReceived);
    OverlayWindow *window = pressAndWait(HotkeyManager::ClipboardTextHotkey, selection);
    QVERIFY(window);
    QCOMPARE(m_copies, 1);
    QCOMPARE(clipboardFormats(), before);
    QCOMPARE(window->getSourceText(), expectedInput);
    if (expectedInput.isEmpty()) {
        QCOMPARE(m_rig->controller->state(), SessionController::WaitingAction);
        QVERIFY(!requests.wait(300));
        return;
    }
    QCOMPARE(int(m_rig->controller->inputSource()), expectedSource);
    QVERIFY(requests.wait(kBound));
    QCOMPARE(m_rig->promptInput(), expectedInput);
    QTRY_COMPARE_WITH_TIMEOUT(window->getTranslation(), QStringLiteral("Hello"), kBound);
    QTRY_COMPARE_WITH_TIMEOUT(m_rig->controller->state(), SessionController::Done, kBound);
}

void TestSessionController::messageWindows_data()
{
    QTest::addColumn<int>("hotkey");
    QTest::addColumn<QString>("message");
    QTest::newRow("copy keystroke fails")
        << int(HotkeyManager::ClipboardTextHotkey)
        << QStringLiteral(
               "Failed to simulate copy to read selected text. Please copy manually or type directly.");
    QTest::newRow("no image in clipboard")
        << int(HotkeyManager::ClipboardHotkey) << QStringLiteral("No image in clipboard");
}

void TestSessionController::messageWindows()
{
    QFETCH(int, hotkey);
    QFETCH(QString, message);
    setClipboard({{"text/plain", "kept"}});
    const Formats before = clipboardFormats();
    CopyShortcut::setSenderForTesting([] {
        QGuiApplication::clipboard()->setText(QStringLiteral("half-written"));
        return false;
    });
    OverlayWindow *window = pressAndWait(hotkey);
    QVERIFY(window);
    QCOMPARE(window->mode(), OverlayWindow::MessageMode);
    bool shown = false;
    for (const QLabel *label : window->findChildren<QLabel *>())
        shown = shown || (label->isVisible() && label->text() == message);
    QVERIFY(shown);
    QCOMPARE(m_rig->controller->state(), SessionController::Idle);
    QCOMPARE(clipboardFormats(), before);
}

void TestSessionController::lateCopyIsUndone()
{
    setClipboard({{"text/plain", "original"}, {"text/html", "<i>original</i>"}});
    const Formats before = clipboardFormats();
    // The other application answers the keystroke only after the wait is over.
    CopyShortcut::setSenderForTesting([] {
        QTimer::singleShot(400,
                           [] { QGuiApplication::clipboard()->setText(QStringLiteral("late selection")); });
        return true;
    });
    QSignalSpy changes(&m_rig->clipboard, &ClipboardService::clipboardChanged);
    OverlayWindow *window = pressAndWait(HotkeyManager::ClipboardTextHotkey);
    QVERIFY(window);
    QCOMPARE(window->getSourceText(), QStringLiteral("original"));
    QTRY_VERIFY_WITH_TIMEOUT(changes.size() >= 2, kBound); // the late copy landed and was undone
    QTRY_COMPARE_WITH_TIMEOUT(clipboardFormats(), before, kBound);
}

void TestSessionController::secondPressTakesOverWaitingFallback()
{
    setClipboard({{"text/plain", "user clipboard"}, {"application/x-vontrel-test", "payload"}});
    const Formats before = clipboardFormats();
    // The other application answers the first keystroke only after the second press.
    CopyShortcut::setSenderForTesting([this] {
        if (++m_copies > 1)
            QGuiApplication::clipboard()->setText(QStringLiteral("the selection"));
        return true;
    });
    m_rig->controller->onHotkeyTriggered(HotkeyManager::ClipboardTextHotkey);
    QPointer<OverlayWindow> first = m_rig->controller->currentWindow();
    QVERIFY(m_rig->controller->isCopyFallbackActive());

    OverlayWindow *second = pressAndWait(HotkeyManager::ClipboardTextHotkey);
    QVERIFY(second && second != first);
    QTRY_VERIFY(first.isNull());
    QCOMPARE(second->getSourceText(), QStringLiteral("the selection"));
    QCOMPARE(clipboardFormats(), before);

    // The first keystroke's copy arriving now must not stay on the clipboard.
    QGuiApplication::clipboard()->setText(QStringLiteral("the selection"));
    QTRY_COMPARE_WITH_TIMEOUT(clipboardFormats(), before, kBound);
    QTRY_COMPARE_WITH_TIMEOUT(second->getTranslation(), QStringLiteral("Hello"), kBound);
    QCOMPARE(m_rig->server.requestCount(), 1);
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

    Permissions::setProbesForTesting([=] { return accessibility; }, [=] { return screenRecording; });
    QSignalSpy states(m_rig->controller.get(), &SessionController::stateChanged);
    m_rig->controller->onHotkeyTriggered(hotkey);
    QCOMPARE(m_guides, expectedGuide < 0 ? QList<int>() : QList<int>{expectedGuide});
    QCOMPARE(bool(m_rig->controller->currentWindow()), expectedGuide < 0);
    QCOMPARE(states.isEmpty(), expectedGuide >= 0);
}

void TestSessionController::stopAndTranslateInWindow()
{
    m_rig->server.setFallback(stream({}, true));
    OverlayWindow *window = pressAndWait(HotkeyManager::ClipboardTextHotkey, QStringLiteral("some text"));
    QVERIFY(window);
    QTRY_COMPARE_WITH_TIMEOUT(m_rig->server.requestCount(), 1, kBound);
    emit window->translateRequested(QStringLiteral("other text")); // refused while streaming
    QCOMPARE(m_rig->controller->runningRequestCount(), 1);

    emit window->stopRequested();
    QTRY_COMPARE_WITH_TIMEOUT(window->getTranslation(), QStringLiteral("(Stopped)"), kBound);
    QCOMPARE(m_rig->controller->state(), SessionController::Done);
    QCOMPARE(m_rig->controller->runningRequestCount(), 0);

    // Once stopped, the edited source is translated again in the same window.
    m_rig->server.setFallback(stream({QStringLiteral("Hello")}));
    emit window->translateRequested(QStringLiteral("other text"));
    QTRY_COMPARE_WITH_TIMEOUT(window->getTranslation(), QStringLiteral("Hello"), kBound);
    QCOMPARE(m_rig->server.requestCount(), 2);
    QCOMPARE(m_rig->promptInput(-1), QStringLiteral("other text"));
}

void TestSessionController::hotkeyDuringPauseCancelsRequest()
{
    m_ocr->answer = QStringLiteral("never sent");
    m_rig->controller->onHotkeyTriggered(HotkeyManager::CaptureHotkey);
    emit m_rig->capture.captureDone(QImage(40, 20, QImage::Format_RGB32));
    QTRY_COMPARE_WITH_TIMEOUT(m_rig->controller->state(), SessionController::WaitingAction, kBound);

    // Within the pause another session starts: the recognised text is never sent.
    QSignalSpy requests(&m_rig->server, &LoopbackHttpServer::requestReceived);
    pressAndWait(HotkeyManager::ClipboardTextHotkey, QStringLiteral("instead"));
    QVERIFY(requests.wait(kBound));
    QVERIFY(!requests.wait(1500));
    QCOMPARE(m_rig->server.requestCount(), 1);
    QCOMPARE(m_rig->promptInput(), QStringLiteral("instead"));
}

void TestSessionController::recognitionOutcomes_data()
{
    QTest::addColumn<QString>("answer");
    QTest::addColumn<bool>("available");
    QTest::addColumn<QString>("expectedSource");
    QTest::addColumn<QString>("expectedResult");
    QTest::addColumn<int>("expectedState");
    QTest::newRow("no text") << QStringLiteral(" \n ") << true << QStringLiteral("No text recognized")
                             << QString() << int(SessionController::WaitingAction);
    QTest::newRow("recogniser unavailable")
        << QString() << false << QStringLiteral("Recognizing text...")
        << QStringLiteral("OCR failed: OCR not available on this system") << int(SessionController::Failed);
}

void TestSessionController::recognitionOutcomes()
{
    QFETCH(QString, answer);
    QFETCH(bool, available);
    QFETCH(QString, expectedSource);
    QFETCH(QString, expectedResult);
    QFETCH(int, expectedState);
    m_ocr->answer = answer;
    m_ocr->available = available;
    m_rig->controller->onHotkeyTriggered(HotkeyManager::CaptureHotkey);
    emit m_rig->capture.captureDone(QImage(40, 20, QImage::Format_RGB32));
    QTRY_COMPARE_WITH_TIMEOUT(int(m_rig->controller->state()), expectedState, kBound);
    QCOMPARE(m_rig->controller->currentWindow()->getSourceText(), expectedSource);
    QCOMPARE(m_rig->controller->currentWindow()->getTranslation(), expectedResult);
    QCOMPARE(m_rig->server.requestCount(), 0);
}

QTEST_MAIN(TestSessionController)
#include "test_sessioncontroller.moc"
