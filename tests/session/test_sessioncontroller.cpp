// The session controller against views without widgets, with the test's recogniser and "other application"
// answering the copy keystroke: the races, outcomes and window rules the X11 tests cannot stage.

#include "SessionRig.h"

#include <QClipboard>
#include <QGuiApplication>
#include <QMimeData>
#include <QPointer>
#include <QSignalSpy>

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

// Records what the session asked the window to show; the user's side is called through its requests.
class FakeView final : public QObject, public IResultView
{
public:
    void setRequests(Requests value) override { requests = std::move(value); }
    void showRecognising(const QImage &) override { recognising = true; }
    void showSource(const QString &text, bool) override { source = text; }
    void beginResult() override { result.clear(); }
    void appendResult(const QString &chunk) override { result += chunk; }
    void endResult(ResultEnd) override {}
    void showError(const QString &message) override { error = message; }
    void showMessage(Message) override {}
    void present() override { presented = true; }
    void setPinned(bool value) override
    {
        if (value == pinned)
            return;
        pinned = value;
        if (const auto request = requests.pinChanged)
            request(value);
    }
    bool isPinned() const override { return pinned; }
    bool isVisible() const { return presented; }
    void discard() override
    {
        requests = {};
        deleteLater();
    }
    // The user hides the window.
    void close()
    {
        if (const auto request = requests.closed)
            request();
    }

    Requests requests;
    bool recognising = false;
    bool presented = false;
    bool pinned = false;
    QString source;
    QString result;
    QString error;
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
    void init()
    {
        QGuiApplication::clipboard()->clear();
        m_ocr = new FakeOcrProvider;
        m_rig = std::make_unique<SessionRig>(std::unique_ptr<IOcrProvider>(m_ocr), false,
                                             [] { return new FakeView; });
        QVERIFY(m_rig->listening);
    }

    void cleanup()
    {
        m_rig.reset();
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    }

    void secondPressTakesOverWaitingFallback()
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
        QPointer<FakeView> first = current();
        QVERIFY(m_rig->controller->isCopyFallbackActive());

        FakeView *second = pressAndWait(HotkeyManager::ClipboardTextHotkey);
        QVERIFY(second && second != first);
        QTRY_VERIFY(first.isNull());
        QCOMPARE(second->source, QStringLiteral("the selection"));
        QCOMPARE(clipboardFormats(), before);

        // The first keystroke's copy arriving now must not stay on the clipboard.
        QGuiApplication::clipboard()->setText(QStringLiteral("the selection"));
        QTRY_COMPARE_WITH_TIMEOUT(clipboardFormats(), before, kBound);
        QTRY_COMPARE_WITH_TIMEOUT(second->result, QStringLiteral("Hello"), kBound);
        QCOMPARE(m_rig->server.requestCount(), 1);
    }

    void hotkeyDuringPauseCancelsRequest()
    {
        m_ocr->answer = QStringLiteral("never sent");
        m_rig->controller->onHotkeyTriggered(HotkeyManager::CaptureHotkey);
        emit m_rig->capture.captureDone(QImage(40, 20, QImage::Format_RGB32));
        QTRY_COMPARE_WITH_TIMEOUT(m_rig->controller->state(), SessionController::WaitingAction, kBound);

        // Within the pause another session starts: the recognised text is never sent.
        copyAnswers(QStringLiteral("instead"));
        QSignalSpy requests(&m_rig->server, &LoopbackHttpServer::requestReceived);
        pressAndWait(HotkeyManager::ClipboardTextHotkey);
        QVERIFY(requests.wait(kBound));
        QVERIFY(!requests.wait(1500));
        QCOMPARE(m_rig->promptInput(), QStringLiteral("instead"));
    }

    void recognitionOutcomes_data()
    {
        QTest::addColumn<QString>("answer");
        QTest::addColumn<QString>("expectedError"); // non-empty: the recogniser is not available
        QTest::newRow("no text") << QStringLiteral(" \n ") << QString();
        QTest::newRow("recogniser unavailable")
            << QString() << "OCR failed: OCR not available on this system";
    }

    void recognitionOutcomes()
    {
        QFETCH(QString, answer);
        QFETCH(QString, expectedError);
        m_ocr->answer = answer;
        m_ocr->available = expectedError.isEmpty();
        m_rig->controller->onHotkeyTriggered(HotkeyManager::CaptureHotkey);
        emit m_rig->capture.captureDone(QImage(40, 20, QImage::Format_RGB32));
        QTRY_COMPARE_WITH_TIMEOUT(
            m_rig->controller->state(),
            expectedError.isEmpty() ? SessionController::WaitingAction : SessionController::Failed, kBound);
        FakeView *window = current();
        QVERIFY(window->recognising && window->presented);
        QCOMPARE(window->source, QString());
        QCOMPARE(window->error, expectedError);
        QTest::qWait(1200); // past the pause: still nothing to send
        QCOMPARE(m_rig->server.requestCount(), 0);
    }

    // Pinned by default, a window stays when later presses come, until the user closes it. (Pinning by hand,
    // retry in a pinned window and the stop button are in the X11 session test.)
    void pinnedByDefaultOutlivesLaterPresses()
    {
        ConfigManager::instance()->setPinOverlayByDefault(true);
        copyAnswers(QStringLiteral("text"));
        QPointer<FakeView> pinned = pressAndWait(HotkeyManager::ClipboardTextHotkey);
        QVERIFY(pinned && pinned->pinned);
        QVERIFY(pressAndWait(HotkeyManager::ClipboardTextHotkey) && pinned);
        pinned->close();
        QTRY_VERIFY(pinned.isNull());
    }

    void closeEndsTheRun()
    {
        copyAnswers(QStringLiteral("some text"));
        m_rig->server.setFallback(stream({QStringLiteral("partial")}, true)); // held open
        QPointer<FakeView> window = pressAndWait(HotkeyManager::ClipboardTextHotkey);
        QVERIFY(window);
        QTRY_COMPARE_WITH_TIMEOUT(window->result, QStringLiteral("partial"), kBound);
        window->close();
        QTRY_VERIFY(window.isNull());
        QCOMPARE(m_rig->controller->runningRequestCount(), 0);
        QCOMPARE(m_rig->controller->state(), SessionController::Idle);
    }

    void missingPermissionOpensNoWindow()
    {
        m_rig->fake()->granted[0] = m_rig->fake()->granted[1] = false;
        QSignalSpy missing(m_rig->controller.get(), &SessionController::permissionMissing);
        m_rig->controller->onHotkeyTriggered(HotkeyManager::ClipboardTextHotkey);
        m_rig->controller->onHotkeyTriggered(HotkeyManager::CaptureHotkey);
        QCOMPARE(missing.size(), 2);
        QCOMPARE(missing.at(0).at(0).value<SessionController::Permission>(),
                 SessionController::Accessibility);
        QCOMPARE(missing.at(1).at(0).value<SessionController::Permission>(),
                 SessionController::ScreenRecording);
        QVERIFY(!m_rig->controller->currentWindow());
        QCOMPARE(m_rig->controller->state(), SessionController::Idle);
    }

    void providerChangeReachesNextRun()
    {
        copyAnswers(QStringLiteral("text"));
        FakeView *window = pressAndWait(HotkeyManager::ClipboardTextHotkey);
        QTRY_COMPARE_WITH_TIMEOUT(window->result, QStringLiteral("Hello"), kBound);

        LoopbackHttpServer other;
        QVERIFY(other.listen());
        other.setFallback(stream({QStringLiteral("from the new provider")}));
        ConfigManager::instance()->setApiUrl(other.baseUrl("/v1"));
        window = pressAndWait(HotkeyManager::ClipboardTextHotkey);
        QTRY_COMPARE_WITH_TIMEOUT(window->result, QStringLiteral("from the new provider"), kBound);
        QCOMPARE(m_rig->server.requestCount(), 1);
    }

private:
    FakeView *current() const { return dynamic_cast<FakeView *>(m_rig->controller->currentWindow()); }

    FakeView *pressAndWait(int hotkey)
    {
        QPointer<FakeView> old = current();
        m_rig->controller->onHotkeyTriggered(hotkey);
        return m_rig->waitForNewWindow<FakeView>(old, kBound);
    }
    void setCopy(std::function<bool()> sender) { m_rig->fake()->copy = std::move(sender); }
    void copyAnswers(const QString &selection)
    {
        setCopy([selection] {
            QGuiApplication::clipboard()->setText(selection);
            return true;
        });
    }

    std::unique_ptr<SessionRig> m_rig;
    FakeOcrProvider *m_ocr = nullptr;
};

QTEST_MAIN(TestSessionController)
#include "test_sessioncontroller.moc"
