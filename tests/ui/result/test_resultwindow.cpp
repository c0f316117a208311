// ResultWindow on the offscreen platform: corner buttons, streaming, copying, keyboard and sizing.
#include "ai/InputLimit.h"
#include "ui/result/ResultLayout.h"
#include "ui/result/ResultWindow.h"

#include <QApplication>
#include <QClipboard>
#include <QLabel>
#include <QLocale>
#include <QScrollBar>
#include <QSignalSpy>
#include <QTest>
#include <QTextBrowser>
#include <QTextEdit>
#include <QToolButton>
#include <QToolTip>

#include <memory>

using Mode = ResultWindow::Mode;

class ResultWindowTest final : public QObject
{
    Q_OBJECT
    std::unique_ptr<ResultWindow> w;

    template<typename T = QWidget>
    T *part(const char *name)
    {
        return w->findChild<T *>(QLatin1String(name));
    }
    QTextEdit *source() { return part<QTextEdit>("sourceEdit"); }
    QTextBrowser *view() { return part<QTextBrowser>("translationView"); }
    static QImage filled(const QSize &size)
    {
        QImage image(size, QImage::Format_RGB32);
        image.fill(Qt::darkCyan);
        return image;
    }
    bool open(Mode mode)
    {
        w = std::make_unique<ResultWindow>();
        w->setMode(mode);
        w->show();
        return QTest::qWaitForWindowExposed(w.get());
    }
    // As the session controller drives it: P / p start and end processing, A appends, E reports an error.
    void enterState(const QString &steps)
    {
        w->setSourceText(QStringLiteral("source text"));
        w->showTranslation(true);
        for (QChar step : steps) {
            if (step.toLower() == QLatin1Char('p'))
                w->setProcessing(step == QLatin1Char('P'));
            else if (step == QLatin1Char('A'))
                w->appendTranslation(QStringLiteral("done"));
            else
                w->setError(QStringLiteral("Request failed"));
        }
    }

private slots:
    void cleanup() { w.reset(); }

    // Exactly one of copy (0), stop (1) and retry (2) shows, in the result area's top-right corner.
    void cornerButtonFollowsState_data()
    {
        QTest::addColumn<QString>("state");
        QTest::addColumn<int>("button");
        QTest::newRow("empty") << "" << 0;
        QTest::newRow("streaming") << "PA" << 1;
        QTest::newRow("text") << "PAp" << 0;
        QTest::newRow("error") << "PE" << 2;
        QTest::newRow("retry after error") << "EP" << 1;
    }
    void cornerButtonFollowsState()
    {
        QFETCH(QString, state);
        QFETCH(int, button);
        QVERIFY(open(ResultWindow::TextMode));
        enterState(state);
        const QList<QWidget *> corner{part("copyButton"), part("stopButton"), part("retryButton")};
        for (QWidget *b : corner)
            QCOMPARE(b->isVisible(), b == corner[button]);
        QCOMPARE(corner[button]->isEnabled(), !state.isEmpty()); // nothing to copy yet
    }

    // Result rows name the steps to a state, source rows the source text; "-": the clipboard is untouched.
    void copy_data()
    {
        QTest::addColumn<QString>("input");
        QTest::addColumn<bool>("copySource");
        QTest::addColumn<QString>("clipboard");
        QTest::newRow("result") << "PAp" << false << "done";
        QTest::newRow("source untrimmed") << " padded \n" << true << " padded \n";
        QTest::newRow("source blank") << " \n\t " << true << "-";
    }
    void copy()
    {
        QFETCH(QString, input);
        QFETCH(bool, copySource);
        QFETCH(QString, clipboard);
        QVERIFY(open(ResultWindow::CaptureMode));
        copySource ? w->setSourceText(input) : enterState(input);
        QGuiApplication::clipboard()->setText(QStringLiteral("-"));
        part<QToolButton>(copySource ? "copySourceButton" : "copyButton")->click();
        QCOMPARE(QGuiApplication::clipboard()->text(), clipboard);
        if (clipboard != QLatin1String("-"))
            QTRY_COMPARE(QToolTip::text(), QStringLiteral("Copied"));
        QToolTip::hideText();
    }

    void contentIsInertWhileHidden()
    {
        QVERIFY(open(ResultWindow::TextMode));
        QSignalSpy closed(w.get(), &ResultWindow::closed);
        enterState(QStringLiteral("PA"));
        w->hide();
        w->hide();
        QCOMPARE(closed.count(), 1);
        w->appendTranslation(QStringLiteral(" late"));
        w->setError(QStringLiteral("late error"));
        QCOMPARE(w->getTranslation(), QStringLiteral("done"));
        // Shown again (a retry), it takes content again and reports its next hiding again.
        w->show();
        w->setError(QStringLiteral("failed"));
        QCOMPARE(w->getTranslation(), QStringLiteral("done\n\nfailed"));
        w->close();
        QCOMPARE(closed.count(), 2);
    }

    void enterKey_data()
    {
        QTest::addColumn<QString>("source");
        QTest::addColumn<bool>("shift");
        QTest::newRow("enter sends") << " text " << false;
        QTest::newRow("shift+enter breaks") << "text" << true;
        QTest::newRow("blank source") << "  " << false;
    }
    void enterKey()
    {
        QFETCH(QString, source);
        QFETCH(bool, shift);
        QVERIFY(open(ResultWindow::TextMode));
        w->setSourceText(source);
        w->setSourceEditable(true);
        this->source()->moveCursor(QTextCursor::End);
        QSignalSpy requested(w.get(), &ResultWindow::translateRequested);
        const Qt::KeyboardModifiers modifier = shift ? Qt::ShiftModifier : Qt::NoModifier;
        QTest::keyClick(this->source(), Qt::Key_Return, modifier);
        QTest::keyClick(this->source(), Qt::Key_Enter, Qt::KeypadModifier | modifier);
        const bool sends = !shift && !source.trimmed().isEmpty();
        QCOMPARE(requested.count(), sends ? 2 : 0);
        QCOMPARE(w->getSourceText(), sends ? source : source + QStringLiteral("\n\n"));
    }

    void resultStartsAt160GrowsTo400ThenScrolls()
    {
        QVERIFY(open(ResultWindow::TextMode));
        enterState(QStringLiteral("P"));
        w->setSourceText(QString());
        const int oneLine = source()->height();
        QVERIFY2(oneLine < 2 * source()->fontMetrics().height() + 30, qPrintable(QString::number(oneLine)));
        int previous = 160;
        for (int i = 0; i < 60; ++i) {
            w->appendTranslation(QStringLiteral("streamed line %1\n").arg(i));
            QVERIFY2(view()->height() >= previous, "the result area is below 160 or shrank while growing");
            previous = view()->height();
        }
        QCOMPARE(view()->height(), 400);
        QCOMPARE(source()->height(), oneLine);
        // The view follows the stream: the end of the text is in sight.
        QTRY_VERIFY(view()->verticalScrollBar()->value() > 0);
        QVERIFY(view()->viewport()->rect().contains(view()->cursorRect()));
    }

    // The pure plan: rows are wishes (source wanted/least, result wanted/least), waiting, room -> heights.
    void heightPlan_data()
    {
        QTest::addColumn<QList<int>>("wishes");
        QTest::addColumn<bool>("waiting");
        QTest::addColumn<int>("room");
        QTest::addColumn<QList<int>>("heights");
        QTest::newRow("not shown yet: no budget")
            << QList<int>{160, 40, 400, 40} << false << -1 << QList<int>{160, 400};
        QTest::newRow("waiting keeps room for the result")
            << QList<int>{300, 40, 50, 40} << true << 1000 << QList<int>{280, 160};
        QTest::newRow("too tall: in proportion, room used up")
            << QList<int>{160, 40, 400, 40} << false << 280 << QList<int>{80, 200};
        QTest::newRow("never below one line")
            << QList<int>{160, 60, 400, 60} << false << 50 << QList<int>{60, 85};
    }
    void heightPlan()
    {
        QFETCH(QList<int>, wishes);
        QFETCH(bool, waiting);
        QFETCH(int, room);
        QFETCH(QList<int>, heights);
        const ResultLayout::HeightPlan plan =
            ResultLayout::heightPlan({true, true, wishes[0], wishes[1], wishes[2], wishes[3], waiting, room});
        QCOMPARE((QList<int>{plan.source, plan.result}), heights);
    }

    void grownWindowStaysOnScreen()
    {
        const QRect available(0, 30, 1600, 970);
        QCOMPARE(ResultLayout::keptOn(available, QRect(500, 300, 400, 500)), QPoint(500, 300));
        QCOMPARE(ResultLayout::keptOn(available, QRect(500, 700, 400, 500)), QPoint(500, 500));
        QCOMPARE(ResultLayout::keptOn(available, QRect(1400, 300, 400, 1200)), QPoint(1200, 30));
    }

    // What the session's calls look like: the state shows as placeholders and lines, never as source text.
    // A text longer than one request (shown by the session or pasted by the user) is cut to it, and the
    // window says how much was left out; a text that fits takes the note away again.
    void longTextIsCutWithANote_data()
    {
        QTest::addColumn<bool>("pasted");
        QTest::newRow("shown by the session") << false;
        QTest::newRow("pasted into typed text") << true;
    }

    void longTextIsCutWithANote()
    {
        QFETCH(bool, pasted);
        QVERIFY(open(Mode::TextMode));
        const QString line = QStringLiteral("Eine Zeile Text mit Umlauten äöü.\n");
        const QString huge = line.repeated(200000 / line.size());
        const QLabel *note = part<QLabel>("inputCutNote");
        QVERIFY(note && note->isHidden());
        if (pasted) {
            w->showSource(QStringLiteral("typed "), true);
            source()->moveCursor(QTextCursor::End);
            QApplication::clipboard()->setText(huge);
            source()->paste();
        } else {
            w->showSource(huge, true);
        }
        const QString shown = w->getSourceText();
        QVERIFY(shown.size() <= kVontrelMaxInputChars && shown.size() > kVontrelMaxInputChars - line.size());
        QVERIFY(shown.endsWith(line) && (pasted ? QStringLiteral("typed ") + huge : huge).startsWith(shown));
        const qsizetype leftOut = huge.size() - shown.size() + (pasted ? 6 : 0);
        QVERIFY(note->isVisible());
        QVERIFY2(note->text().contains(QLocale().toString(qlonglong(leftOut))), qPrintable(note->text()));

        w->showSource(QStringLiteral("short"), true);
        QVERIFY(note->isHidden());
    }

    void sessionCallsShowTheirState()
    {
        w = std::make_unique<ResultWindow>();
        IResultView &session = *w;
        session.showRecognising(filled(QSize(400, 100)));
        session.present();
        QVERIFY(QTest::qWaitForWindowExposed(w.get()));
        QCOMPARE(source()->placeholderText(), QStringLiteral("Recognizing text..."));
        QVERIFY(w->getSourceText().isEmpty() && !part("copySourceButton")->isEnabled());
        session.showSource(QString(), false);
        QCOMPARE(source()->placeholderText(), QStringLiteral("No text recognized"));

        session.showSource(QStringLiteral("recognised"), false);
        session.beginResult();
        QCOMPARE(w->getTranslation(), QStringLiteral("Translating..."));
        session.appendResult(QStringLiteral("Hello"));
        // The user clicks into the text: the stream goes on at the end, without the placeholder's look.
        view()->moveCursor(QTextCursor::Start);
        session.appendResult(QStringLiteral(", world"));
        QTextCursor end(view()->document());
        end.movePosition(QTextCursor::End);
        QVERIFY(!end.charFormat().fontItalic());
        // A run that fails midway keeps what it streamed; the reason follows as text, not markup.
        session.showError(QStringLiteral("<b>bad</b> gateway"));
        QCOMPARE(w->getTranslation(), QStringLiteral("Hello, world\n\n<b>bad</b> gateway"));
        QVERIFY(part("retryButton")->isVisible());
    }
};

QTEST_MAIN(ResultWindowTest)
#include "test_resultwindow.moc"
