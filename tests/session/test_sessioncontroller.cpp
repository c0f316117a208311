// The session controller against views without widgets, with the test's recogniser and "other application"
// answering the copy keystroke: the races, outcomes and window rules the X11 tests cannot stage.

#include "SessionRig.h"

#include <QClipboard>
#include <QGuiApplication>
#include <QMimeData>
#include <QPointer>
#include <QSemaphore>
#include <QSignalSpy>

#include <functional>
#include <map>
#include <memory>

namespace {

constexpr int kBound = 10000;
using Formats = QList<QPair<QString, QByteArray>>;

// Answers by the image's width; the recognition of a held width waits until released.
class FakeOcrProvider final : public IOcrProvider
{
public:
    QString recognize(QImage image) override
    {
        if (const auto gate = gates.find(image.width()); gate != gates.end())
            gate->second->acquire();
        return answers.value(image.width(), answer);
    }
    bool isAvailable() override { return available; }
    // Before the recognition starts: the map is read from the pool thread.
    void hold(int width) { gates[width] = std::make_unique<QSemaphore>(); }
    void release(int width) { gates.at(width)->release(); }
    void releaseAll()
    {
        for (auto &gate : gates)
            gate.second->release(100);
    }

    QString answer;
    QHash<int, QString> answers;
    bool available = true;
    std::map<int, std::unique_ptr<QSemaphore>> gates;
};

// Records what the session asked the window to show; the user's side is called through its requests.
class FakeView final : public QObject, public IResultView
{
public:
    void setRequests(Requests value) override { requests = std::move(value); }
    void showRecognising(const QImage &) override { recognising = true; }
    void showSource(const QString &text, bool) override { source = text; }
    void beginResult() override
    {
        result.clear();
        error.clear();
        processing = true;
        stopped = false;
    }
    void appendResult(const QString &chunk) override { result += chunk; }
    void endResult(ResultEnd end) override
    {
        processing = false;
        stopped = end == ResultEnd::Stopped;
    }
    void showError(const QString &message) override
    {
        processing = false;
        error = message;
    }
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
    bool processing = false;
    bool stopped = false;
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
        m_ocr->releaseAll();
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

        FakeView *second = press();
        QVERIFY(second && second != first);
        QTRY_VERIFY_WITH_TIMEOUT(first.isNull(), kBound);
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
        captureWidth();
        QTRY_COMPARE_WITH_TIMEOUT(m_rig->controller->state(), SessionController::WaitingAction, kBound);

        // Within the pause another session starts: the recognised text is never sent.
        QSignalSpy requests(&m_rig->server, &LoopbackHttpServer::requestReceived);
        pressText(QStringLiteral("instead"));
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
        QSignalSpy requests(&m_rig->server, &LoopbackHttpServer::requestReceived);
        captureWidth();
        QTRY_COMPARE_WITH_TIMEOUT(
            m_rig->controller->state(),
            expectedError.isEmpty() ? SessionController::WaitingAction : SessionController::Failed, kBound);
        FakeView *window = current();
        QVERIFY(window->recognising && window->presented);
        QCOMPARE(window->source, QString());
        QCOMPARE(window->error, expectedError);
        QVERIFY(!requests.wait(1500)); // past the pause: still nothing to send
    }

    // A pinned window whose answer failed or was stopped sends its own text again, however other windows
    // went meanwhile (another answered, a capture was cancelled); Enter sends what the user corrected.
    void retryAndEnterSendTheWindowsOwnText_data()
    {
        QTest::addColumn<bool>("stopped");    // the first answer was stopped rather than failed
        QTest::addColumn<bool>("enter");      // Enter with a corrected text rather than Retry
        QTest::addColumn<QString>("between"); // what happened meanwhile
        QTest::newRow("retry after a failure, another window answered") << false << false << "another";
        QTest::newRow("enter right after a failure") << false << true << "nothing";
        QTest::newRow("enter after a failure, a capture cancelled") << false << true << "cancelled";
        QTest::newRow("retry after a stop, another window answered") << true << false << "another";
        QTest::newRow("enter after a stop, a capture cancelled") << true << true << "cancelled";
    }

    void retryAndEnterSendTheWindowsOwnText()
    {
        QFETCH(bool, stopped);
        QFETCH(bool, enter);
        QFETCH(QString, between);
        m_rig->answerByText();
        const QString text = stopped ? QStringLiteral("slow text of A") : QStringLiteral("fail text of A");
        QPointer<FakeView> window = pressText(text);
        QVERIFY(window);
        if (stopped) {
            QTRY_COMPARE_WITH_TIMEOUT(window->result, "partial " + text, kBound);
            window->requests.stop();
        }
        QTRY_VERIFY_WITH_TIMEOUT(!window->processing && (window->stopped || !window->error.isEmpty()),
                                 kBound);
        window->setPinned(true);

        if (between == QLatin1String("cancelled")) {
            m_rig->controller->onHotkeyTriggered(HotkeyManager::CaptureHotkey);
            emit m_rig->capture.captureCancelled();
        } else if (between == QLatin1String("another")) {
            FakeView *other = pressText(QStringLiteral("text of B"));
            QVERIFY(other && other != window);
            QTRY_COMPARE_WITH_TIMEOUT(other->result, QStringLiteral("answer to text of B"), kBound);
        }

        const int before = m_rig->server.requestCount();
        const QString sent = enter ? QStringLiteral("corrected text of A") : text;
        if (enter)
            window->requests.translate(sent);
        else
            window->requests.retry();
        QTRY_COMPARE_WITH_TIMEOUT(m_rig->server.requestCount(), before + 1, kBound);
        QCOMPARE(m_rig->promptInput(-1), sent);
        const QString answer = sent.contains(QLatin1String("slow")) ? "partial " + sent : "answer to " + sent;
        QTRY_COMPARE_WITH_TIMEOUT(window->result, answer, kBound);
        m_rig->server.releaseHeld();
        QTRY_VERIFY_WITH_TIMEOUT(!window->processing, kBound);
    }

    // Closing one window, or stopping its request, leaves another window's run where it was: recognising,
    // in the pause before its request, or streaming.
    void closeOrStopLeavesOtherRunsAlone_data()
    {
        QTest::addColumn<QString>("stage"); // of the other window's run
        // Whether the first window's retried request is stopped, rather than the window closed.
        QTest::addColumn<bool>("stop");
        QTest::newRow("close while recognising") << "recognising" << false;
        QTest::newRow("close during the pause") << "pause" << false;
        QTest::newRow("close while streaming") << "streaming" << false;
        QTest::newRow("stop while recognising") << "recognising" << true;
        QTest::newRow("stop during the pause") << "pause" << true;
    }

    void closeOrStopLeavesOtherRunsAlone()
    {
        QFETCH(QString, stage);
        QFETCH(bool, stop);
        m_rig->answerByText();
        QPointer<FakeView> first = pressText(QStringLiteral("fail, then slow: text of A"));
        QVERIFY(first);
        QTRY_VERIFY_WITH_TIMEOUT(!first->error.isEmpty(), kBound);
        first->setPinned(true);

        const QString recognised = QStringLiteral("slow text of B");
        m_ocr->answer = recognised;
        m_ocr->hold(40);
        captureWidth();
        FakeView *second = current();
        QVERIFY(second && second != first && second->recognising);
        if (stage != QLatin1String("recognising")) {
            m_ocr->release(40);
            QTRY_COMPARE_WITH_TIMEOUT(second->source, recognised, kBound);
        }
        if (stage == QLatin1String("streaming"))
            QTRY_COMPARE_WITH_TIMEOUT(second->result, "partial " + recognised, kBound);

        if (stop) {
            first->requests.retry();
            QTRY_VERIFY_WITH_TIMEOUT(first->result.startsWith(QLatin1String("partial")), kBound);
            first->requests.stop();
            QVERIFY(first->stopped && !first->processing);
        } else {
            first->close();
            QTRY_VERIFY_WITH_TIMEOUT(first.isNull(), kBound);
        }
        if (stage == QLatin1String("recognising"))
            m_ocr->release(40);

        QTRY_COMPARE_WITH_TIMEOUT(second->result, "partial " + recognised, kBound);
        QCOMPARE(m_rig->promptInput(-1), recognised);
        m_rig->server.releaseHeld();
        QTRY_COMPARE_WITH_TIMEOUT(m_rig->controller->state(), SessionController::Done, kBound);
        QVERIFY(!second->processing && !second->stopped);
    }

    // A new session ends the run of a pinned window it leaves open, and the window is told: it shows that it
    // was stopped, never a request running for good, sends nothing by itself, and takes Enter again.
    void newSessionStopsPinnedWindowsVisibly_data()
    {
        QTest::addColumn<QString>("stage"); // of the pinned window's run when the next session starts
        QTest::newRow("streaming") << "streaming";
        QTest::newRow("pause before the request") << "pause";
        QTest::newRow("recognising") << "recognising";
    }

    void newSessionStopsPinnedWindowsVisibly()
    {
        QFETCH(QString, stage);
        m_rig->answerByText();
        ConfigManager::instance()->setPinOverlayByDefault(true);
        const QString text = QStringLiteral("slow text of A");
        QPointer<FakeView> pinned;
        if (stage == QLatin1String("streaming")) {
            pinned = pressText(text);
            QVERIFY(pinned && pinned->pinned);
            QTRY_COMPARE_WITH_TIMEOUT(pinned->result, "partial " + text, kBound);
        } else {
            m_ocr->answer = text;
            m_ocr->hold(40);
            captureWidth();
            pinned = current();
            QVERIFY(pinned && pinned->pinned && pinned->presented);
            if (stage == QLatin1String("pause")) {
                m_ocr->release(40);
                QTRY_COMPARE_WITH_TIMEOUT(pinned->source, text, kBound);
            }
        }

        QSignalSpy requests(&m_rig->server, &LoopbackHttpServer::requestReceived);
        FakeView *next = pressText(QStringLiteral("text of B"));
        QVERIFY(next && next != pinned && pinned);
        if (stage == QLatin1String("recognising"))
            m_ocr->release(40);
        QTRY_VERIFY_WITH_TIMEOUT(pinned->stopped && !pinned->processing, kBound);
        QCOMPARE(pinned->source, text);
        QTRY_COMPARE_WITH_TIMEOUT(next->result, QStringLiteral("answer to text of B"), kBound);
        QVERIFY(!requests.wait(1500)); // past the pause: the stopped window sent nothing
        const int before = m_rig->server.requestCount();
        QCOMPARE(m_rig->promptInput(-1), QStringLiteral("text of B"));

        pinned->requests.translate(QStringLiteral("text of A, sent again"));
        QTRY_COMPARE_WITH_TIMEOUT(pinned->result, QStringLiteral("answer to text of A, sent again"), kBound);
        QCOMPARE(m_rig->server.requestCount(), before + 1);
    }

    // An answer that arrives after its run was replaced is dropped, whichever arrives first: a capture the
    // selector gives up late, the recognition of an earlier capture before or after the next one's.
    void lateAnswersAreDropped_data()
    {
        QTest::addColumn<QString>("late");
        QTest::newRow("capture cancelled during the next session") << "capture";
        QTest::newRow("earlier recognition queued first") << "recognition first";
        QTest::newRow("earlier recognition last") << "recognition last";
    }

    void lateAnswersAreDropped()
    {
        QFETCH(QString, late);
        m_rig->answerByText();
        FakeView *window = nullptr;
        QString expected;
        if (late == QLatin1String("capture")) {
            m_rig->controller->onHotkeyTriggered(HotkeyManager::CaptureHotkey);
            window = pressText(QStringLiteral("slow text"));
            QVERIFY(window);
            QTRY_COMPARE_WITH_TIMEOUT(window->result, QStringLiteral("partial slow text"), kBound);
            emit m_rig->capture.captureCancelled();
            QCoreApplication::processEvents();
            expected = QStringLiteral("slow text");
        } else {
            m_ocr->answers = {{40, QStringLiteral("text of the first capture")},
                              {60, QStringLiteral("text of the second capture")}};
            m_ocr->hold(40);
            m_ocr->hold(60);
            captureWidth();
            m_rig->controller->onHotkeyTriggered(HotkeyManager::CaptureHotkey);
            if (late == QLatin1String("recognition first")) {
                // Its result is queued before the next capture is done, and only then delivered.
                m_ocr->release(40);
                QThreadPool::globalInstance()->waitForDone();
            }
            emit m_rig->capture.captureDone(QImage(60, 20, QImage::Format_RGB32));
            window = current();
            m_ocr->release(60);
            QTRY_COMPARE_WITH_TIMEOUT(window->source, QStringLiteral("text of the second capture"), kBound);
            if (late == QLatin1String("recognition last")) {
                m_ocr->release(40);
                QThreadPool::globalInstance()->waitForDone();
                QCoreApplication::processEvents();
            }
            expected = QStringLiteral("text of the second capture");
        }
        QVERIFY(window == current());
        m_rig->server.releaseHeld();
        QTRY_VERIFY_WITH_TIMEOUT(window->result.endsWith(expected) && !window->processing, kBound);
        QCOMPARE(window->source, expected);
        QCOMPARE(m_rig->server.requestCount(), 1);
        QCOMPARE(m_rig->promptInput(), expected);
        QTRY_COMPARE_WITH_TIMEOUT(m_rig->controller->state(), SessionController::Done, kBound);
    }

    // Once the read is over the clipboard is the user's again: a copy they make at once stays, and where no
    // keystroke could be sent the clipboard is not even rewritten.
    void clipboardIsTheUsersAfterRead_data()
    {
        QTest::addColumn<bool>("sent");
        QTest::newRow("the user copies right after the read") << true;
        QTest::newRow("no keystroke sent") << false;
    }

    void clipboardIsTheUsersAfterRead()
    {
        QFETCH(bool, sent);
        setClipboard({{"text/plain", "copied before"}});
        if (sent)
            copyAnswers(QStringLiteral("the selection"));
        else
            setCopy([] { return false; });
        QSignalSpy changes(QGuiApplication::clipboard(), &QClipboard::dataChanged);
        FakeView *window = press();
        QVERIFY(window);
        if (!sent) {
            QCOMPARE(changes.size(), 0);
            return;
        }
        QTRY_COMPARE_WITH_TIMEOUT(window->result, QStringLiteral("Hello"), kBound);
        setClipboard({{"text/plain", "the user's next copy"}});
        QCoreApplication::processEvents();
        QCOMPARE(QGuiApplication::clipboard()->text(), QStringLiteral("the user's next copy"));
    }

    void windowShownBeforeReadWhereClipboardNeedsFocus_data()
    {
        QTest::addColumn<bool>("needsFocus");
        QTest::addColumn<int>("presses");
        QTest::newRow("readable unfocused") << false << 1;
        QTest::newRow("needs focus") << true << 1;
        QTest::newRow("needs focus, pressed again while waiting") << true << 2;
    }

    // Where only a focused window receives the clipboard, the empty window shows first and the read follows;
    // a run replaced while it waits never reads.
    void windowShownBeforeReadWhereClipboardNeedsFocus()
    {
        QFETCH(bool, needsFocus);
        QFETCH(int, presses);
        m_rig->fake()->needsFocus = needsFocus;
        QList<bool> shownAtRead;
        setCopy([this, &shownAtRead] {
            shownAtRead << (current() && current()->presented);
            QGuiApplication::clipboard()->setText(QStringLiteral("the selection"));
            return true;
        });
        for (int press = 0; press < presses; ++press)
            m_rig->controller->onHotkeyTriggered(HotkeyManager::ClipboardTextHotkey);
        QPointer<FakeView> window = current();
        QVERIFY(window);
        QTRY_COMPARE_WITH_TIMEOUT(window->result, QStringLiteral("Hello"), kBound);
        QCOMPARE(shownAtRead, QList<bool>{needsFocus});
        QCOMPARE(window->source, QStringLiteral("the selection"));
        QCOMPARE(m_rig->server.requestCount(), 1);
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

    // Closing the window ends its run at once; the next run goes to the provider as it is set by then.
    void closeEndsTheRunAndNextRunTakesNewProvider()
    {
        m_rig->server.setFallback(stream({QStringLiteral("partial")}, true)); // held open
        QPointer<FakeView> window = pressText(QStringLiteral("some text"));
        QVERIFY(window);
        QTRY_COMPARE_WITH_TIMEOUT(window->result, QStringLiteral("partial"), kBound);
        window->close();
        QTRY_VERIFY_WITH_TIMEOUT(window.isNull(), kBound);
        QCOMPARE(m_rig->controller->runningRequestCount(), 0);
        QCOMPARE(m_rig->controller->state(), SessionController::Idle);

        LoopbackHttpServer other;
        QVERIFY(other.listen());
        other.setFallback(stream({QStringLiteral("from the new provider")}));
        ConfigManager::instance()->setApiUrl(other.baseUrl("/v1"));
        window = press();
        QVERIFY(window);
        QTRY_COMPARE_WITH_TIMEOUT(window->result, QStringLiteral("from the new provider"), kBound);
        QCOMPARE(m_rig->server.requestCount(), 1);
    }

private:
    FakeView *current() const { return dynamic_cast<FakeView *>(m_rig->controller->currentWindow()); }
    // The text hotkey, and the window it shows.
    FakeView *press()
    {
        QPointer<FakeView> old = current();
        m_rig->controller->onHotkeyTriggered(HotkeyManager::ClipboardTextHotkey);
        return m_rig->waitForNewWindow<FakeView>(old, kBound);
    }
    // The same, with the other application answering the copy keystroke with this selection.
    FakeView *pressText(const QString &selection)
    {
        copyAnswers(selection);
        return press();
    }
    // A capture hotkey whose region selection yields an image of this width.
    void captureWidth(int width = 40)
    {
        m_rig->controller->onHotkeyTriggered(HotkeyManager::CaptureHotkey);
        emit m_rig->capture.captureDone(QImage(width, 20, QImage::Format_RGB32));
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
