// OverlayWindow on the offscreen platform: modes, corner buttons, streaming, copying, keyboard, sizing,
// preview scaling, pinning and dragging.
#include "ui/overlay/OverlayWindow.h"

#include <QApplication>
#include <QClipboard>
#include <QLabel>
#include <QMouseEvent>
#include <QPushButton>
#include <QScrollBar>
#include <QSignalSpy>
#include <QTest>
#include <QTextBrowser>
#include <QTextEdit>
#include <QToolTip>

#include <cmath>
#include <memory>

namespace {

using Mode = OverlayWindow::Mode;

template<typename T = QWidget>
T *part(QWidget &w, const char *name)
{
    return w.findChild<T *>(QLatin1String(name));
}
QTextEdit *source(QWidget &w)
{
    return part<QTextEdit>(w, "sourceEdit");
}
QTextBrowser *view(QWidget &w)
{
    return part<QTextBrowser>(w, "translationView");
}
QLabel *preview(QWidget &w)
{
    return part<QLabel>(w, "previewLabel");
}

QImage filled(const QSize &size, qreal dpr = 1)
{
    QImage image(size, QImage::Format_RGB32);
    image.fill(Qt::darkCyan);
    image.setDevicePixelRatio(dpr);
    return image;
}

QString lines(int count)
{
    QStringList out;
    for (int i = 0; i < count; ++i)
        out << QStringLiteral("line %1").arg(i);
    return out.join(QLatin1Char('\n'));
}

// Drives the window as the session controller does: P / p start and end processing, A appends a chunk, E
// reports an error.
void enterState(OverlayWindow &w, const QString &steps)
{
    w.setSourceText(QStringLiteral("source text"));
    w.showTranslation(true);
    for (QChar step : steps) {
        if (step == QLatin1Char('P') || step == QLatin1Char('p'))
            w.setProcessing(step == QLatin1Char('P'));
        else if (step == QLatin1Char('A'))
            w.appendTranslation(QStringLiteral("done"));
        else
            w.setError(QStringLiteral("Request failed"));
    }
}

} // namespace

class OverlayWindowTest final : public QObject
{
    Q_OBJECT
    std::unique_ptr<OverlayWindow> w;

    bool open(Mode mode, const QImage &image = QImage())
    {
        w = std::make_unique<OverlayWindow>();
        w->setMode(mode);
        if (!image.isNull())
            w->setPreviewImage(image);
        w->show();
        return QTest::qWaitForWindowExposed(w.get());
    }

private slots:
    void cleanup() { w.reset(); }

    void modeTransitions_data()
    {
        QTest::addColumn<int>("from");
        QTest::addColumn<int>("to");
        QTest::addColumn<QList<bool>>("shown"); // preview, source, result, message
        QTest::newRow("text -> capture") << 1 << 0 << QList<bool>{true, true, true, false};
        QTest::newRow("capture -> text") << 0 << 1 << QList<bool>{false, true, true, false};
        QTest::newRow("capture -> message") << 0 << 2 << QList<bool>{false, false, false, true};
        QTest::newRow("message -> text") << 2 << 1 << QList<bool>{false, true, false, false};
    }
    void modeTransitions()
    {
        QFETCH(int, from);
        QFETCH(int, to);
        QFETCH(QList<bool>, shown);
        QVERIFY(open(Mode(from), filled(QSize(400, 200))));
        w->setSourceText(QStringLiteral("source"));
        w->setTranslation(QStringLiteral("result"));
        w->setMessageText(QStringLiteral("message"));
        if (from == OverlayWindow::MessageMode)
            w->showTranslation(false);

        w->setMode(Mode(to));
        const QList<bool> actual{preview(*w)->isVisible(), source(*w)->isVisible(), view(*w)->isVisible(),
                                 part(*w, "messageLabel")->isVisible()};
        QCOMPARE(actual, shown);
        QCOMPARE(source(*w)->isReadOnly(), to == OverlayWindow::CaptureMode);
        if (to == OverlayWindow::MessageMode)
            QVERIFY(w->getTranslation().isEmpty());
        // The image survives only in capture mode: switching back must not bring an old image back.
        w->setMode(OverlayWindow::CaptureMode);
        QTRY_COMPARE(preview(*w)->pixmap().isNull(), to != OverlayWindow::CaptureMode);
    }

    // Exactly one of copy (0), stop (1) and retry (2) shows, in the result area's top-right corner.
    void cornerButtonFollowsState_data()
    {
        QTest::addColumn<int>("mode");
        QTest::addColumn<QString>("state");
        QTest::addColumn<int>("button");
        QTest::addColumn<bool>("enabled");
        for (int mode : {0, 1}) {
            const char *m = mode ? "text" : "capture";
            QTest::addRow("%s, empty", m) << mode << "" << 0 << false;
            QTest::addRow("%s, streaming", m) << mode << "P" << 1 << true;
            QTest::addRow("%s, streaming with text", m) << mode << "PA" << 1 << true;
            QTest::addRow("%s, text", m) << mode << "PAp" << 0 << true;
            QTest::addRow("%s, error", m) << mode << "PE" << 2 << true;
            QTest::addRow("%s, retry after error", m) << mode << "EP" << 1 << true;
        }
    }
    void cornerButtonFollowsState()
    {
        QFETCH(int, mode);
        QFETCH(QString, state);
        QFETCH(int, button);
        QFETCH(bool, enabled);
        QVERIFY(open(Mode(mode)));
        enterState(*w, state);

        const QList<QWidget *> corner{part(*w, "copyButton"), part(*w, "stopButton"),
                                      part(*w, "retryButton")};
        for (QWidget *b : corner)
            QCOMPARE(b->isVisible(), b == corner[button]);
        QCOMPARE(corner[button]->isEnabled(), enabled);
        const QRect area = view(*w)->viewport()->geometry();
        QVERIFY(area.contains(corner[button]->geometry()));
        QVERIFY(corner[button]->geometry().left() > area.center().x());
        w->showTranslation(false);
        QVERIFY(!corner[button]->isVisible());
    }

    void streamingReplacesPlaceholderThenAppendsAtEnd()
    {
        QVERIFY(open(OverlayWindow::TextMode));
        enterState(*w, QStringLiteral("P"));
        QCOMPARE(w->getTranslation(), QStringLiteral("Translating..."));
        w->appendTranslation(QStringLiteral("Hello"));
        QCOMPARE(w->getTranslation(), QStringLiteral("Hello"));

        // The user clicks into the text: the stream goes on at the end, without the placeholder's look.
        view(*w)->moveCursor(QTextCursor::Start);
        w->appendTranslation(QStringLiteral(", world\nsecond line"));
        QCOMPARE(w->getTranslation(), QStringLiteral("Hello, world\nsecond line"));
        QTextCursor end(view(*w)->document());
        end.movePosition(QTextCursor::End);
        QVERIFY(!end.charFormat().fontItalic());

        // A first chunk that reads like the placeholder is content, and the next one appends to it.
        w->setProcessing(false);
        w->setProcessing(true);
        w->appendTranslation(QStringLiteral("Translating..."));
        w->appendTranslation(QStringLiteral(" done"));
        QCOMPARE(w->getTranslation(), QStringLiteral("Translating... done"));
    }

    // Result rows name the steps to a state, source rows the source text; "-" means the clipboard stays
    // untouched.
    void copy_data()
    {
        QTest::addColumn<QString>("input");
        QTest::addColumn<bool>("copySource");
        QTest::addColumn<QString>("clipboard");
        QTest::newRow("result") << "PAp" << false << "done";
        QTest::newRow("result after error") << "PE" << false << "-";
        QTest::newRow("empty result") << "" << false << "-";
        QTest::newRow("source untrimmed") << " padded \n" << true << " padded \n";
        QTest::newRow("source recognizing") << "Recognizing text..." << true << "-";
        QTest::newRow("source blank") << " \n\t " << true << "-";
    }
    void copy()
    {
        QFETCH(QString, input);
        QFETCH(bool, copySource);
        QFETCH(QString, clipboard);
        QVERIFY(open(OverlayWindow::CaptureMode));
        copySource ? w->setSourceText(input) : enterState(*w, input);
        QGuiApplication::clipboard()->setText(QStringLiteral("-"));
        QSignalSpy copied(w.get(), &OverlayWindow::copyRequested);

        QVERIFY(QMetaObject::invokeMethod(w.get(), copySource ? "onCopySourceClicked" : "onCopyClicked"));
        QCOMPARE(QGuiApplication::clipboard()->text(), clipboard);
        if (!copySource)
            QCOMPARE(copied.count(), clipboard == QLatin1String("-") ? 0 : 1);
        if (clipboard != QLatin1String("-"))
            QTRY_COMPARE(QToolTip::text(), QStringLiteral("Copied"));
        QToolTip::hideText();
    }

    void contentIsInertWhileHidden()
    {
        QVERIFY(open(OverlayWindow::TextMode));
        QSignalSpy closed(w.get(), &OverlayWindow::closed);
        enterState(*w, QStringLiteral("PA"));
        QTest::keyClick(w.get(), Qt::Key_Escape);
        QVERIFY(!w->isVisible());
        w->hide();
        QCOMPARE(closed.count(), 1);

        w->appendTranslation(QStringLiteral(" late"));
        w->setError(QStringLiteral("late error"));
        QCOMPARE(w->getTranslation(), QStringLiteral("done"));

        // Shown again (a retry), the window takes content again and reports its next hiding again.
        w->show();
        w->setError(QStringLiteral("failed"));
        QCOMPARE(w->getTranslation(), QStringLiteral("failed"));
        w->close();
        QCOMPARE(closed.count(), 2);
    }

    void enterKey_data()
    {
        QTest::addColumn<int>("mode");
        QTest::addColumn<QString>("source");
        QTest::addColumn<bool>("shift");
        QTest::addColumn<bool>("processing");
        QTest::addColumn<bool>("sends");
        QTest::newRow("enter sends") << 1 << " text " << false << false << true;
        QTest::newRow("shift+enter breaks") << 1 << "text" << true << false << false;
        QTest::newRow("blank source") << 1 << "  " << false << false << false;
        QTest::newRow("while streaming") << 1 << "text" << false << true << false;
        QTest::newRow("capture mode") << 0 << "text" << false << false << false;
    }
    void enterKey()
    {
        QFETCH(int, mode);
        QFETCH(QString, source);
        QFETCH(bool, shift);
        QFETCH(bool, processing);
        QFETCH(bool, sends);
        QVERIFY(open(Mode(mode)));
        QTextEdit *edit = ::source(*w);
        w->setSourceText(source);
        w->setSourceEditable(true);
        w->setProcessing(processing);
        edit->moveCursor(QTextCursor::End);
        QSignalSpy requested(w.get(), &OverlayWindow::translateRequested);

        const Qt::KeyboardModifiers modifier = shift ? Qt::ShiftModifier : Qt::NoModifier;
        QTest::keyClick(edit, Qt::Key_Return, modifier);
        QTest::keyClick(edit, Qt::Key_Enter, Qt::KeypadModifier | modifier);
        QCOMPARE(requested.count(), sends ? 2 : 0);
        if (sends)
            QCOMPARE(requested.at(0).at(0).toString(), source);
        QCOMPARE(w->getSourceText(),
                 !sends && !edit->isReadOnly() ? source + QStringLiteral("\n\n") : source);
    }

    void resultStartsAt160GrowsTo400ThenScrolls()
    {
        QVERIFY(open(OverlayWindow::TextMode));
        enterState(*w, QStringLiteral("P"));
        w->setSourceText(QString());
        const int oneLine = source(*w)->height();
        QVERIFY2(oneLine < 2 * source(*w)->fontMetrics().height() + 30, qPrintable(QString::number(oneLine)));
        int previous = 160;
        for (int i = 0; i < 60; ++i) {
            w->appendTranslation(QStringLiteral("streamed line %1\n").arg(i));
            QVERIFY2(view(*w)->height() >= previous, "the result area is below 160 or shrank while growing");
            previous = view(*w)->height();
        }
        QCOMPARE(view(*w)->height(), 400);
        QCOMPARE(source(*w)->height(), oneLine);
        // The view follows the stream: the end of the text is in sight.
        QTRY_VERIFY(view(*w)->verticalScrollBar()->value() > 0);
        QVERIFY(view(*w)->viewport()->rect().contains(view(*w)->cursorRect()));
    }

    void longTextsShareTheHeightInProportion()
    {
        QVERIFY(open(OverlayWindow::CaptureMode, filled(QSize(1200, 600))));
        w->showTranslation(true);
        w->setSourceText(lines(40));
        w->setTranslation(lines(80));
        // 160 + 400 do not fit beside the preview; both give way in proportion to their wishes (160 : 400)
        // and the space is used up to the bottom margin.
        const int s = source(*w)->height();
        const int r = view(*w)->height();
        QVERIFY2(qAbs(double(s) / r - 0.4) < 0.02 && s + r < 560,
                 qPrintable(QStringLiteral("%1:%2").arg(s).arg(r)));
        QVERIFY(w->height() <= w->maximumHeight());
        QVERIFY(w->height() - view(*w)->geometry().bottom() <= 16 + 2);

        // With far more content than fits, the window still stays within its maximum.
        w->setSourceText(lines(100));
        w->setTranslation(lines(200));
        QVERIFY(w->height() <= w->maximumHeight() && w->maximumHeight() <= 800);
        QVERIFY(view(*w)->geometry().bottom() < w->height());
    }

    void previewHeight_data()
    {
        QTest::addColumn<QSize>("size");
        QTest::addColumn<qreal>("dpr");
        QTest::addColumn<int>("expected"); // 0: the exact height for the preview's width
        QTest::newRow("2:1 landscape is clamped") << QSize(1200, 600) << 1.0 << 160;
        QTest::newRow("portrait is clamped") << QSize(200, 800) << 1.0 << 160;
        QTest::newRow("thin strip is raised") << QSize(900, 10) << 1.0 << 48;
        QTest::newRow("wide line in between") << QSize(1000, 100) << 1.0 << 0;
        QTest::newRow("2x capture stays sharp") << QSize(1600, 200) << 2.0 << 0;
    }
    void previewHeight()
    {
        QFETCH(QSize, size);
        QFETCH(qreal, dpr);
        QFETCH(int, expected);
        QVERIFY(open(OverlayWindow::CaptureMode, filled(size, dpr)));
        QLabel *label = preview(*w);
        const QRect room = label->contentsRect();
        if (expected == 0)
            expected =
                int(std::ceil(room.width() * double(size.height()) / size.width())) + 2 * label->margin();
        QCOMPARE(label->height(), expected);

        QTRY_VERIFY(!label->pixmap().isNull());
        const QPixmap pixmap = label->pixmap();
        QCOMPARE(pixmap.devicePixelRatio(), dpr);
        const QSizeF fit = pixmap.deviceIndependentSize();
        QVERIFY(fit.width() <= room.width() && fit.height() <= room.height());
        QCOMPARE(pixmap.width() > room.width(), dpr > 1);
    }

    void pinning()
    {
        w = std::make_unique<OverlayWindow>();
        auto *pin = part<QPushButton>(*w, "pinButton");
        QSignalSpy pinned(w.get(), &OverlayWindow::pinStateChanged);
        w->setPinned(true);
        w->setPinned(true);
        QCOMPARE(pinned.count(), 1);
        QVERIFY(pin->styleSheet().contains(QStringLiteral("#007aff")));
        pin->click();
        QCOMPARE(pinned.count(), 2);
        QVERIFY(!pinned.at(1).at(0).toBool());

        // The pin colours are chosen at each change from the appearance of that moment.
        const QPalette original = QApplication::palette();
        QPalette dark = original;
        dark.setColor(QPalette::Window, QColor(0x20, 0x20, 0x20));
        QApplication::setPalette(dark);
        w->setPinned(true);
        QVERIFY(pin->styleSheet().contains(QStringLiteral("#0066cc")));
        QApplication::setPalette(original);
    }

    void dragOnlyFromBackground_data()
    {
        QTest::addColumn<QString>("where");
        QTest::addColumn<bool>("moves");
        QTest::newRow("left margin") << "margin" << true;
        QTest::newRow("source text area") << "source" << false;
        QTest::newRow("result text area") << "result" << false;
    }
    void dragOnlyFromBackground()
    {
        QFETCH(QString, where);
        QFETCH(bool, moves);
        QVERIFY(open(OverlayWindow::TextMode));
        enterState(*w, QStringLiteral("PAp"));
        w->move(100, 50);
        QTRY_COMPARE(w->pos(), QPoint(100, 50));

        const QPoint at = where == QLatin1String("margin")   ? QPoint(8, w->height() / 2)
                          : where == QLatin1String("source") ? source(*w)->geometry().center()
                                                             : view(*w)->geometry().center();
        // As the window system delivers them: to the widget under the pointer, with a global position that
        // does not move with the window being dragged.
        QWidget *target = w->childAt(at) ? w->childAt(at) : w.get();
        const QPoint origin = w->mapToGlobal(QPoint(0, 0));
        auto send = [&](QEvent::Type type, const QPoint &offset, Qt::MouseButtons buttons) {
            const QPointF local = target->mapFrom(w.get(), at + offset);
            QMouseEvent event(type, local, local, origin + at + offset, Qt::LeftButton, buttons,
                              Qt::NoModifier);
            QApplication::sendEvent(target, &event);
        };
        send(QEvent::MouseButtonPress, QPoint(), Qt::LeftButton);
        send(QEvent::MouseMove, QPoint(15, 10), Qt::LeftButton);
        send(QEvent::MouseMove, QPoint(30, 20), Qt::LeftButton);
        send(QEvent::MouseButtonRelease, QPoint(30, 20), Qt::NoButton);
        QCOMPARE(w->pos(), moves ? QPoint(130, 70) : QPoint(100, 50));
    }
};

QTEST_MAIN(OverlayWindowTest)
#include "test_overlaywindow.moc"
