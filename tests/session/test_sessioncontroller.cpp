// The session controller against views without widgets, with the test's recogniser and "other application"
// answering the copy keystroke: the races, outcomes and window rules the X11 tests cannot stage.

#include "SessionFakes.h"
#include "SessionRig.h"

#include <QPointer>
#include <QSignalSpy>

using namespace SessionFakes;

namespace {

constexpr int kBound = 10000;

} // namespace

class TestSessionController : public QObject, private SessionFixture
{
    Q_OBJECT

private slots:
    void init() { QVERIFY(startRig()); }
    void cleanup() { stopRig(); }

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
        captureWidth();
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
        captureWidth();
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
        copyAnswers(text);
        QPointer<FakeView> window = pressAndWait(HotkeyManager::ClipboardTextHotkey);
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
            copyAnswers(QStringLiteral("text of B"));
            FakeView *other = pressAndWait(HotkeyManager::ClipboardTextHotkey);
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
        QTest::addColumn<bool>(
            "stop"); // the first window's retried request is stopped, not the window closed
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
        copyAnswers(QStringLiteral("fail, then slow: text of A"));
        QPointer<FakeView> first = pressAndWait(HotkeyManager::ClipboardTextHotkey);
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
            QTRY_VERIFY(first.isNull());
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
            copyAnswers(text);
            pinned = pressAndWait(HotkeyManager::ClipboardTextHotkey);
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

        copyAnswers(QStringLiteral("text of B"));
        QSignalSpy requests(&m_rig->server, &LoopbackHttpServer::requestReceived);
        FakeView *next = pressAndWait(HotkeyManager::ClipboardTextHotkey);
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
            copyAnswers(QStringLiteral("slow text"));
            window = pressAndWait(HotkeyManager::ClipboardTextHotkey);
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
        FakeView *window = pressAndWait(HotkeyManager::ClipboardTextHotkey);
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
};

QTEST_MAIN(TestSessionController)
#include "test_sessioncontroller.moc"
