// The session controller offscreen, with the test's recogniser and "other application" answering the copy
// keystroke: the races and outcomes the X11 tests cannot stage.

#include "SessionRig.h"

#include "platform/CopyShortcut.h"
#include "platform/Permissions.h"

#include <QClipboard>
#include <QGuiApplication>
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
    void lateCopyIsUndone();
    void secondPressTakesOverWaitingFallback();
    void hotkeyDuringPauseCancelsRequest();
    void recognitionOutcomes_data();
    void recognitionOutcomes();

private:
    ResultWindow *pressAndWait(int hotkey);
    void setCopy(std::function<bool()> sender) { CopyShortcut::setSenderForTesting(std::move(sender)); }

    std::unique_ptr<SessionRig> m_rig;
    FakeOcrProvider *m_ocr = nullptr;
};

void TestSessionController::init()
{
    Permissions::setProbesForTesting([] { return true; }, [] { return true; });
    QGuiApplication::clipboard()->clear();
    m_ocr = new FakeOcrProvider;
    m_rig = std::make_unique<SessionRig>(std::unique_ptr<IOcrProvider>(m_ocr), false);
    QVERIFY(m_rig->listening);
}

void TestSessionController::cleanup()
{
    m_rig.reset();
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    setCopy({});
    Permissions::setProbesForTesting({}, {});
}

ResultWindow *TestSessionController::pressAndWait(int hotkey)
{
    QPointer<ResultWindow> old = m_rig->controller->currentWindow();
    m_rig->controller->onHotkeyTriggered(hotkey);
    return m_rig->waitForNewWindow(old, kBound);
}

void TestSessionController::lateCopyIsUndone()
{
    setClipboard({{"text/plain", "original"}, {"text/html", "<i>original</i>"}});
    const Formats before = clipboardFormats();
    // The other application answers the keystroke only after the wait is over.
    setCopy([] {
        QTimer::singleShot(400,
                           [] { QGuiApplication::clipboard()->setText(QStringLiteral("late selection")); });
        return true;
    });
    QSignalSpy changes(&m_rig->clipboard, &ClipboardService::clipboardChanged);
    ResultWindow *window = pressAndWait(HotkeyManager::ClipboardTextHotkey);
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
    int copies = 0;
    setCopy([&copies] {
        if (++copies > 1)
            QGuiApplication::clipboard()->setText(QStringLiteral("the selection"));
        return true;
    });
    m_rig->controller->onHotkeyTriggered(HotkeyManager::ClipboardTextHotkey);
    QPointer<ResultWindow> first = m_rig->controller->currentWindow();
    QVERIFY(m_rig->controller->isCopyFallbackActive());

    ResultWindow *second = pressAndWait(HotkeyManager::ClipboardTextHotkey);
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

void TestSessionController::hotkeyDuringPauseCancelsRequest()
{
    m_ocr->answer = QStringLiteral("never sent");
    m_rig->controller->onHotkeyTriggered(HotkeyManager::CaptureHotkey);
    emit m_rig->capture.captureDone(QImage(40, 20, QImage::Format_RGB32));
    QTRY_COMPARE_WITH_TIMEOUT(m_rig->controller->state(), SessionController::WaitingAction, kBound);

    // Within the pause another session starts: the recognised text is never sent.
    setCopy([] {
        QGuiApplication::clipboard()->setText(QStringLiteral("instead"));
        return true;
    });
    QSignalSpy requests(&m_rig->server, &LoopbackHttpServer::requestReceived);
    pressAndWait(HotkeyManager::ClipboardTextHotkey);
    QVERIFY(requests.wait(kBound));
    QVERIFY(!requests.wait(1500));
    QCOMPARE(m_rig->promptInput(), QStringLiteral("instead"));
}

void TestSessionController::recognitionOutcomes_data()
{
    QTest::addColumn<QString>("answer");
    QTest::addColumn<bool>("available");
    QTest::addColumn<QString>("expectedSource");
    QTest::addColumn<QString>("expectedResult"); // non-empty: the session failed
    QTest::newRow("no text") << QStringLiteral(" \n ") << true << QStringLiteral("No text recognized")
                             << QString();
    QTest::newRow("recogniser unavailable") << QString() << false << QStringLiteral("Recognizing text...")
                                            << QStringLiteral("OCR failed: OCR not available on this system");
}

void TestSessionController::recognitionOutcomes()
{
    QFETCH(QString, answer);
    QFETCH(bool, available);
    QFETCH(QString, expectedSource);
    QFETCH(QString, expectedResult);
    m_ocr->answer = answer;
    m_ocr->available = available;
    m_rig->controller->onHotkeyTriggered(HotkeyManager::CaptureHotkey);
    emit m_rig->capture.captureDone(QImage(40, 20, QImage::Format_RGB32));
    QTRY_COMPARE_WITH_TIMEOUT(
        m_rig->controller->state(),
        expectedResult.isEmpty() ? SessionController::WaitingAction : SessionController::Failed, kBound);
    QCOMPARE(m_rig->controller->currentWindow()->getSourceText(), expectedSource);
    QCOMPARE(m_rig->controller->currentWindow()->getTranslation(), expectedResult);
    QCOMPARE(m_rig->server.requestCount(), 0);
}

QTEST_MAIN(TestSessionController)
#include "test_sessioncontroller.moc"
