// OverlayWindow on the offscreen platform: modes, corner buttons, streaming, copying, keyboard, sizing,
// preview scaling, pinning and dragging.
#include "ui/overlay/OverlayWindow.h"

#include <QAbstractTextDocumentLayout>
#include <QApplication>
#include <QClipboard>
#include <QLabel>
#include <QMouseEvent>
#include <QPushButton>
#include <QScrollBar>
#include <QSignalSpy>
#include <QTest>
#include <QTextBrowser>
#include <QTextCursor>
#include <QTextEdit>
#include <QToolButton>
#include <QToolTip>

#include <memory>

namespace {

struct Parts
{
    QTextEdit *source = nullptr;
    QTextBrowser *view = nullptr;
    QLabel *preview = nullptr;
    QLabel *message = nullptr;
    QToolButton *copy = nullptr;
    QToolButton *copySource = nullptr;
    QToolButton *stop = nullptr;
    QToolButton *retry = nullptr;
    QPushButton *pin = nullptr;
};

Parts partsOf(OverlayWindow &w)
{
    Parts p;
    p.source = w.findChild<QTextEdit *>(QStringLiteral("sourceEdit"));
    p.view = w.findChild<QTextBrowser *>(QStringLiteral("translationView"));
    p.preview = w.findChild<QLabel *>(QStringLiteral("previewLabel"));
    p.message = w.findChild<QLabel *>(QStringLiteral("messageLabel"));
    p.copy = w.findChild<QToolButton *>(QStringLiteral("copyButton"));
    p.copySource = w.findChild<QToolButton *>(QStringLiteral("copySourceButton"));
    p.stop = w.findChild<QToolButton *>(QStringLiteral("stopButton"));
    p.retry = w.findChild<QToolButton *>(QStringLiteral("retryButton"));
    p.pin = w.findChild<QPushButton *>(QStringLiteral("pinButton"));
    return p;
}

std::unique_ptr<OverlayWindow> shownOverlay(OverlayWindow::Mode mode)
{
    auto w = std::make_unique<OverlayWindow>();
    w->setMode(mode);
    w->show();
    if (!QTest::qWaitForWindowExposed(w.get()))
        return nullptr;
    return w;
}

QString lines(int count, const QString &word = QStringLiteral("line"))
{
    QStringList out;
    for (int i = 0; i < count; ++i)
        out << QStringLiteral("%1 %2").arg(word).arg(i);
    return out.join(QLatin1Char('\n'));
}

// Drives the window the way the session controller does for each state of a run.
void enterState(OverlayWindow &w, const QString &state)
{
    w.setSourceText(QStringLiteral("source text"));
    w.showTranslation(true);
    if (state == QLatin1String("empty")) {
        w.clearTranslation();
    } else if (state == QLatin1String("blank")) {
        w.setTranslation(QStringLiteral("   \n  "));
    } else if (state == QLatin1String("streaming")) {
        w.setProcessing(true);
    } else if (state == QLatin1String("streaming with text")) {
        w.setProcessing(true);
        w.appendTranslation(QStringLiteral("partial"));
    } else if (state == QLatin1String("text")) {
        w.setProcessing(true);
        w.appendTranslation(QStringLiteral("done"));
        w.setProcessing(false);
    } else if (state == QLatin1String("error")) {
        w.setProcessing(true);
        w.setError(QStringLiteral("Request failed: timeout"));
    } else if (state == QLatin1String("retry after error")) {
        w.setError(QStringLiteral("Request failed"));
        w.setProcessing(true);
    }
}

// Mouse events as the window system delivers them: to the widget under the pointer, with the global
// position of the pointer on the screen (which does not move with the window being dragged).
void sendMouse(QWidget *target, QEvent::Type type, const QPoint &windowPos, QWidget *window,
               const QPoint &origin, Qt::MouseButtons buttons)
{
    const QPointF local = target == window ? QPointF(windowPos) : QPointF(target->mapFrom(window, windowPos));
    const QPointF global = origin + windowPos;
    QMouseEvent event(type, local, local, global, Qt::LeftButton, buttons, Qt::NoModifier);
    QApplication::sendEvent(target, &event);
}

} // namespace

class OverlayWindowTest final : public QObject
{
    Q_OBJECT

private slots:
    void modeTransitions_data();
    void modeTransitions();
    void cornerButtonFollowsState_data();
    void cornerButtonFollowsState();
    void streamingReplacesPlaceholderThenAppendsAtEnd();
    void copyResult_data();
    void copyResult();
    void copySource_data();
    void copySource();
    void contentIsInertWhileHidden();
    void enterKey_data();
    void enterKey();
    void emptySourceIsOneLineAndEmptyResultAtLeast160();
    void resultGrowsTo400ThenScrolls();
    void recognisingHoldsSourceAtOneLine();
    void longTextsShareTheHeightInProportion();
    void neverTallerThanMaximum();
    void previewHeight_data();
    void previewHeight();
    void previewUsesDevicePixelsOfHighDpiImage();
    void pinStateChangesOnce();
    void pinStyleFollowsAppearance();
    void dragOnlyFromBackground_data();
    void dragOnlyFromBackground();
};

void OverlayWindowTest::modeTransitions_data()
{
    QTest::addColumn<int>("from");
    QTest::addColumn<int>("to");
    QTest::addColumn<bool>("previewShown");
    QTest::addColumn<bool>("sourceShown");
    QTest::addColumn<bool>("resultShown");
    QTest::addColumn<bool>("messageShown");
    QTest::addColumn<bool>("sourceReadOnly");
    QTest::addColumn<bool>("imageKept");

    QTest::newRow("text -> capture") << int(OverlayWindow::TextMode) << int(OverlayWindow::CaptureMode)
                                     << true << true << true << false << true << true;
    QTest::newRow("capture -> text") << int(OverlayWindow::CaptureMode) << int(OverlayWindow::TextMode)
                                     << false << true << true << false << false << false;
    QTest::newRow("capture -> message") << int(OverlayWindow::CaptureMode) << int(OverlayWindow::MessageMode)
                                        << false << false << false << true << false << false;
    QTest::newRow("message -> text") << int(OverlayWindow::MessageMode) << int(OverlayWindow::TextMode)
                                     << false << true << false << false << false << false;
}

void OverlayWindowTest::modeTransitions()
{
    QFETCH(int, from);
    QFETCH(int, to);
    QFETCH(bool, previewShown);
    QFETCH(bool, sourceShown);
    QFETCH(bool, resultShown);
    QFETCH(bool, messageShown);
    QFETCH(bool, sourceReadOnly);
    QFETCH(bool, imageKept);

    auto w = shownOverlay(OverlayWindow::Mode(from));
    QVERIFY(w);
    const Parts p = partsOf(*w);
    QImage image(400, 200, QImage::Format_RGB32);
    image.fill(Qt::darkCyan);
    w->setPreviewImage(image);
    w->setSourceText(QStringLiteral("source"));
    w->setTranslation(QStringLiteral("result"));
    w->setMessageText(QStringLiteral("message"));
    if (from == OverlayWindow::MessageMode)
        w->showTranslation(false);

    w->setMode(OverlayWindow::Mode(to));
    // The stored image survives only in capture mode; a mode switch back must not bring an old image back.
    w->setMode(OverlayWindow::Mode(to));

    QCOMPARE(p.preview->isVisible(), previewShown);
    QCOMPARE(p.source->isVisible(), sourceShown);
    QCOMPARE(p.view->isVisible(), resultShown);
    QCOMPARE(p.message->isVisible(), messageShown);
    QCOMPARE(p.source->isReadOnly(), sourceReadOnly);
    if (to == OverlayWindow::MessageMode)
        QVERIFY(w->getTranslation().isEmpty());
    if (!imageKept) {
        w->setMode(OverlayWindow::CaptureMode);
        QTRY_VERIFY(p.preview->pixmap().isNull());
    } else {
        QTRY_VERIFY(!p.preview->pixmap().isNull());
    }
}

void OverlayWindowTest::cornerButtonFollowsState_data()
{
    QTest::addColumn<int>("mode");
    QTest::addColumn<QString>("state");
    QTest::addColumn<QString>("shown");
    QTest::addColumn<bool>("enabled");

    for (int mode : {int(OverlayWindow::TextMode), int(OverlayWindow::CaptureMode)}) {
        const char *m = mode == OverlayWindow::TextMode ? "text mode" : "capture mode";
        QTest::addRow("%s, empty", m) << mode << "empty"
                                      << "copy" << false;
        QTest::addRow("%s, blank", m) << mode << "blank"
                                      << "copy" << false;
        QTest::addRow("%s, streaming", m) << mode << "streaming"
                                          << "stop" << true;
        QTest::addRow("%s, streaming with text", m) << mode << "streaming with text"
                                                    << "stop" << true;
        QTest::addRow("%s, text", m) << mode << "text"
                                     << "copy" << true;
        QTest::addRow("%s, error", m) << mode << "error"
                                      << "retry" << true;
        QTest::addRow("%s, retry after error", m) << mode << "retry after error"
                                                  << "stop" << true;
    }
}

void OverlayWindowTest::cornerButtonFollowsState()
{
    QFETCH(int, mode);
    QFETCH(QString, state);
    QFETCH(QString, shown);
    QFETCH(bool, enabled);

    auto w = shownOverlay(OverlayWindow::Mode(mode));
    QVERIFY(w);
    const Parts p = partsOf(*w);
    enterState(*w, state);

    const QList<QToolButton *> corner{p.copy, p.stop, p.retry};
    QToolButton *expected = shown == QLatin1String("copy")   ? p.copy
                            : shown == QLatin1String("stop") ? p.stop
                                                             : p.retry;
    for (QToolButton *button : corner)
        QCOMPARE(button->isVisible(), button == expected);
    QCOMPARE(expected->isEnabled(), enabled);
    // The button sits inside the result area's visible top-right corner, above the text.
    const QRect viewport = p.view->viewport()->geometry();
    QVERIFY2(viewport.contains(expected->geometry()), "corner button outside the result viewport");
    QVERIFY(expected->geometry().right() > viewport.center().x());
    QVERIFY(p.copySource->isVisible());
    QVERIFY(p.copySource->isEnabled());

    // The whole rule is about the result area being shown; hidden, none of its buttons shows.
    w->showTranslation(false);
    for (QToolButton *button : corner)
        QVERIFY(!button->isVisible());
}

void OverlayWindowTest::streamingReplacesPlaceholderThenAppendsAtEnd()
{
    auto w = shownOverlay(OverlayWindow::TextMode);
    QVERIFY(w);
    const Parts p = partsOf(*w);
    w->setSourceText(QStringLiteral("Hallo Welt"));
    w->showTranslation(true);
    w->setProcessing(true);
    QCOMPARE(w->getTranslation(), QStringLiteral("Translating..."));

    w->appendTranslation(QStringLiteral("Hello"));
    QCOMPARE(w->getTranslation(), QStringLiteral("Hello"));

    // The user clicks into the text: the stream still continues at the end.
    QTextCursor start = p.view->textCursor();
    start.movePosition(QTextCursor::Start);
    p.view->setTextCursor(start);
    w->appendTranslation(QStringLiteral(", world"));
    w->appendTranslation(QStringLiteral("\nsecond line"));
    QCOMPARE(w->getTranslation(), QStringLiteral("Hello, world\nsecond line"));

    // The streamed text must not inherit the grey italic look of the placeholder line.
    QTextCursor last(p.view->document());
    last.movePosition(QTextCursor::End);
    QVERIFY(!last.charFormat().fontItalic());
    QVERIFY(last.charFormat().foreground().color() != QColor(QStringLiteral("#888888")));

    // A chunk that happens to read like the placeholder is content once the stream has text.
    w->setProcessing(false);
    w->setProcessing(true);
    w->appendTranslation(QStringLiteral("Translating..."));
    QCOMPARE(w->getTranslation(), QStringLiteral("Translating..."));
    w->appendTranslation(QStringLiteral(" done"));
    QCOMPARE(w->getTranslation(), QStringLiteral("Translating... done"));
}

void OverlayWindowTest::copyResult_data()
{
    QTest::addColumn<QString>("state");
    QTest::addColumn<QString>("clipboard");
    QTest::addColumn<int>("emitted");

    QTest::newRow("text") << "text"
                          << "done" << 1;
    QTest::newRow("error") << "error"
                           << "untouched" << 0;
    QTest::newRow("empty") << "empty"
                           << "untouched" << 0;
}

void OverlayWindowTest::copyResult()
{
    QFETCH(QString, state);
    QFETCH(QString, clipboard);
    QFETCH(int, emitted);

    auto w = shownOverlay(OverlayWindow::TextMode);
    QVERIFY(w);
    enterState(*w, state);
    QGuiApplication::clipboard()->setText(QStringLiteral("untouched"));
    QSignalSpy copied(w.get(), &OverlayWindow::copyRequested);

    QVERIFY(QMetaObject::invokeMethod(w.get(), "onCopyClicked"));

    QCOMPARE(QGuiApplication::clipboard()->text(), clipboard);
    QCOMPARE(copied.count(), emitted);
    if (emitted)
        QTRY_COMPARE(QToolTip::text(), QStringLiteral("Copied"));
    QToolTip::hideText();
}

void OverlayWindowTest::copySource_data()
{
    QTest::addColumn<int>("mode");
    QTest::addColumn<QString>("source");
    QTest::addColumn<bool>("copied");

    QTest::newRow("blanks kept") << int(OverlayWindow::TextMode) << "  padded text \n" << true;
    QTest::newRow("capture text") << int(OverlayWindow::CaptureMode) << "line one\nline two" << true;
    QTest::newRow("recognizing") << int(OverlayWindow::CaptureMode) << "Recognizing text..." << false;
    QTest::newRow("nothing recognized") << int(OverlayWindow::CaptureMode) << "No text recognized" << false;
    QTest::newRow("white space") << int(OverlayWindow::TextMode) << " \n\t " << false;
}

void OverlayWindowTest::copySource()
{
    QFETCH(int, mode);
    QFETCH(QString, source);
    QFETCH(bool, copied);

    auto w = shownOverlay(OverlayWindow::Mode(mode));
    QVERIFY(w);
    const Parts p = partsOf(*w);
    w->setSourceText(source);
    QGuiApplication::clipboard()->setText(QStringLiteral("untouched"));

    QCOMPARE(p.copySource->isEnabled(), copied);
    QVERIFY(QMetaObject::invokeMethod(w.get(), "onCopySourceClicked"));
    QCOMPARE(QGuiApplication::clipboard()->text(), copied ? source : QStringLiteral("untouched"));
    QToolTip::hideText();
}

void OverlayWindowTest::contentIsInertWhileHidden()
{
    auto w = shownOverlay(OverlayWindow::TextMode);
    QVERIFY(w);
    const Parts p = partsOf(*w);
    QSignalSpy closed(w.get(), &OverlayWindow::closed);
    w->setSourceText(QStringLiteral("source"));
    w->showTranslation(true);
    w->setProcessing(true);
    w->appendTranslation(QStringLiteral("partial"));

    QTest::keyClick(w.get(), Qt::Key_Escape);
    QVERIFY(!w->isVisible());
    QCOMPARE(closed.count(), 1);
    w->hide();
    QCOMPARE(closed.count(), 1);

    // Late chunks and state changes of a closed window are dropped.
    w->appendTranslation(QStringLiteral(" late"));
    w->setTranslation(QStringLiteral("replaced"));
    w->setError(QStringLiteral("late error"));
    w->setProcessing(false);
    w->setSourceText(QStringLiteral("other"));
    QCOMPARE(w->getTranslation(), QStringLiteral("partial"));
    QCOMPARE(w->getSourceText(), QStringLiteral("source"));

    // Shown again (a retry), the window takes content again and reports its next hiding again.
    w->show();
    QVERIFY(QTest::qWaitForWindowExposed(w.get()));
    QVERIFY(p.stop->isVisible());
    w->setError(QStringLiteral("failed"));
    QCOMPARE(w->getTranslation(), QStringLiteral("failed"));
    QVERIFY(p.retry->isVisible());
    w->close();
    QCOMPARE(closed.count(), 2);
}

void OverlayWindowTest::enterKey_data()
{
    QTest::addColumn<int>("mode");
    QTest::addColumn<QString>("source");
    QTest::addColumn<bool>("shift");
    QTest::addColumn<bool>("processing");
    QTest::addColumn<bool>("sends");

    QTest::newRow("enter sends") << int(OverlayWindow::TextMode) << " text " << false << false << true;
    QTest::newRow("shift+enter breaks the line")
        << int(OverlayWindow::TextMode) << "text" << true << false << false;
    QTest::newRow("blank source") << int(OverlayWindow::TextMode) << "  " << false << false << false;
    QTest::newRow("while streaming") << int(OverlayWindow::TextMode) << "text" << false << true << false;
    QTest::newRow("capture mode") << int(OverlayWindow::CaptureMode) << "text" << false << false << false;
}

void OverlayWindowTest::enterKey()
{
    QFETCH(int, mode);
    QFETCH(QString, source);
    QFETCH(bool, shift);
    QFETCH(bool, processing);
    QFETCH(bool, sends);

    auto w = shownOverlay(OverlayWindow::Mode(mode));
    QVERIFY(w);
    const Parts p = partsOf(*w);
    w->setSourceText(source);
    w->setSourceEditable(true);
    if (processing)
        w->setProcessing(true);
    p.source->moveCursor(QTextCursor::End);
    QSignalSpy requested(w.get(), &OverlayWindow::translateRequested);

    QTest::keyClick(p.source, Qt::Key_Return, shift ? Qt::ShiftModifier : Qt::NoModifier);
    QTest::keyClick(p.source, Qt::Key_Enter,
                    Qt::KeypadModifier | (shift ? Qt::ShiftModifier : Qt::NoModifier));

    QCOMPARE(requested.count(), sends ? 2 : 0);
    if (sends) {
        QCOMPARE(requested.at(0).at(0).toString(), source);
        QCOMPARE(w->getSourceText(), source);
    } else if (!p.source->isReadOnly()) {
        QCOMPARE(w->getSourceText(), source + QStringLiteral("\n\n"));
    } else {
        QCOMPARE(w->getSourceText(), source);
    }
}

void OverlayWindowTest::emptySourceIsOneLineAndEmptyResultAtLeast160()
{
    auto w = shownOverlay(OverlayWindow::TextMode);
    QVERIFY(w);
    const Parts p = partsOf(*w);
    w->showTranslation(true);
    w->setSourceText(QString());

    const int line = p.source->fontMetrics().height();
    QVERIFY2(p.source->height() < 2 * line + 30, qPrintable(QString::number(p.source->height())));
    QVERIFY(p.source->viewport()->height() >= line);
    QVERIFY(p.view->height() >= 160);

    w->setProcessing(true);
    w->appendTranslation(QStringLiteral("short"));
    QVERIFY(p.view->height() >= 160);
}

void OverlayWindowTest::resultGrowsTo400ThenScrolls()
{
    auto w = shownOverlay(OverlayWindow::TextMode);
    QVERIFY(w);
    const Parts p = partsOf(*w);
    w->setSourceText(QStringLiteral("short source"));
    w->showTranslation(true);
    w->setProcessing(true);

    int previous = 0;
    for (int i = 0; i < 60; ++i) {
        w->appendTranslation(QStringLiteral("streamed line %1\n").arg(i));
        QVERIFY2(p.view->height() >= previous, "the result area shrank while the text grew");
        previous = p.view->height();
        QVERIFY(w->height() <= w->maximumHeight());
    }
    w->setProcessing(false);
    QCOMPARE(p.view->height(), 400);
    QTRY_VERIFY(p.view->verticalScrollBar()->maximum() > 0);
    // The view follows the stream: the end of the text is in sight.
    QVERIFY(p.view->verticalScrollBar()->value() > 0);
    QVERIFY(p.view->viewport()->rect().contains(p.view->cursorRect()));
    // The window grew with the text and holds every area at its fixed height.
    QVERIFY(w->height() >= p.view->height() + p.source->height());
}

void OverlayWindowTest::recognisingHoldsSourceAtOneLine()
{
    auto w = shownOverlay(OverlayWindow::CaptureMode);
    QVERIFY(w);
    const Parts p = partsOf(*w);
    w->showTranslation(false);
    w->setSourceText(QStringLiteral("Recognizing text..."));
    const int oneLine = p.source->height();
    w->setSourceText(lines(3));
    QVERIFY(p.source->height() > oneLine);
    w->setSourceText(QStringLiteral("Recognizing text..."));
    QCOMPARE(p.source->height(), oneLine);
    QVERIFY(oneLine < 2 * p.source->fontMetrics().height() + 30);
}

void OverlayWindowTest::longTextsShareTheHeightInProportion()
{
    auto w = shownOverlay(OverlayWindow::CaptureMode);
    QVERIFY(w);
    const Parts p = partsOf(*w);
    QImage image(1200, 600, QImage::Format_RGB32);
    image.fill(Qt::darkGray);
    w->setPreviewImage(image);
    w->showTranslation(true);
    w->setSourceText(lines(40, QStringLiteral("source")));
    w->setTranslation(lines(80, QStringLiteral("result")));

    const int source = p.source->height();
    const int result = p.view->height();
    // With the preview, 160 + 400 for the texts do not fit under the window's maximum height.
    QVERIFY2(source + result < 160 + 400, qPrintable(QStringLiteral("%1 + %2").arg(source).arg(result)));
    QVERIFY(w->height() <= w->maximumHeight());
    QVERIFY(w->sizeHint().height() <= w->maximumHeight());
    // Both give way in proportion to their wishes (160 : 400); neither collapses to one line.
    const double ratio = double(source) / result;
    QVERIFY2(qAbs(ratio - 0.4) < 0.02, qPrintable(QString::number(ratio)));
    QVERIFY(source > 3 * p.source->fontMetrics().height());
    // The space is used, not wasted: the result area ends at the bottom margin.
    QVERIFY(w->height() - p.view->geometry().bottom() <= 16 + 2);
}

void OverlayWindowTest::neverTallerThanMaximum()
{
    OverlayWindow w;
    w.setMode(OverlayWindow::CaptureMode);
    QImage image(300, 600, QImage::Format_RGB32);
    image.fill(Qt::gray);
    w.setPreviewImage(image);
    w.setSourceText(lines(100));
    w.showTranslation(true);
    w.setTranslation(lines(200));
    w.show();
    QVERIFY(QTest::qWaitForWindowExposed(&w));
    QVERIFY(w.height() <= w.maximumHeight());
    QVERIFY(w.maximumHeight() <= 800);
    const Parts p = partsOf(w);
    // Everything still fits: the result area ends above the bottom margin.
    QVERIFY(p.view->geometry().bottom() < w.height());
    QVERIFY(p.source->height() > 0 && p.view->height() > 0);
}

void OverlayWindowTest::previewHeight_data()
{
    QTest::addColumn<QSize>("imageSize");
    QTest::addColumn<int>("expected"); // 0: the exact height for the preview's width

    QTest::newRow("2:1 landscape is clamped") << QSize(1200, 600) << 160;
    QTest::newRow("portrait is clamped") << QSize(200, 800) << 160;
    QTest::newRow("thin strip is raised") << QSize(900, 10) << 48;
    QTest::newRow("wide line in between") << QSize(1000, 100) << 0;
}

void OverlayWindowTest::previewHeight()
{
    QFETCH(QSize, imageSize);
    QFETCH(int, expected);

    auto w = shownOverlay(OverlayWindow::CaptureMode);
    QVERIFY(w);
    const Parts p = partsOf(*w);
    QImage image(imageSize, QImage::Format_RGB32);
    image.fill(Qt::darkGreen);
    w->setPreviewImage(image);

    if (expected == 0) {
        const int width = p.preview->contentsRect().width();
        expected =
            int(std::ceil(width * double(imageSize.height()) / imageSize.width())) + 2 * p.preview->margin();
        QVERIFY(expected > 48 && expected < 160);
    }
    QCOMPARE(p.preview->height(), expected);
    // The scaled image fits the preview without being cut.
    QTRY_VERIFY(!p.preview->pixmap().isNull());
    const QSizeF shown = p.preview->pixmap().deviceIndependentSize();
    QVERIFY(shown.width() <= p.preview->contentsRect().width());
    QVERIFY(shown.height() <= p.preview->contentsRect().height());
}

void OverlayWindowTest::previewUsesDevicePixelsOfHighDpiImage()
{
    auto w = shownOverlay(OverlayWindow::CaptureMode);
    QVERIFY(w);
    const Parts p = partsOf(*w);
    // A capture from a 2x screen: 1600 x 200 device pixels showing 800 x 100 points.
    QImage image(1600, 200, QImage::Format_RGB32);
    image.fill(Qt::darkBlue);
    image.setDevicePixelRatio(2.0);
    w->setPreviewImage(image);

    QTRY_VERIFY(!p.preview->pixmap().isNull());
    const QPixmap shown = p.preview->pixmap();
    QCOMPARE(shown.devicePixelRatio(), 2.0);
    QVERIFY(shown.deviceIndependentSize().width() <= p.preview->contentsRect().width());
    // Sharp on the 2x screen: more device pixels than the preview is wide in points.
    QVERIFY(shown.width() > p.preview->contentsRect().width());
}

void OverlayWindowTest::pinStateChangesOnce()
{
    OverlayWindow w;
    QSignalSpy pinned(&w, &OverlayWindow::pinStateChanged);
    w.setPinned(true);
    w.setPinned(true);
    QCOMPARE(pinned.count(), 1);
    QCOMPARE(pinned.at(0).at(0).toBool(), true);
    QVERIFY(w.isPinned());

    partsOf(w).pin->click();
    QCOMPARE(pinned.count(), 2);
    QCOMPARE(pinned.at(1).at(0).toBool(), false);
    QVERIFY(!w.isPinned());
}

void OverlayWindowTest::pinStyleFollowsAppearance()
{
    const QPalette original = QApplication::palette();
    OverlayWindow w;
    const Parts p = partsOf(w);
    QCOMPARE(p.pin->toolTip(), QStringLiteral("Pin window"));
    w.setPinned(true);
    QCOMPARE(p.pin->toolTip(), QStringLiteral("Unpin window"));
    QVERIFY(p.pin->styleSheet().contains(QStringLiteral("#007aff")));

    // The pin colours are chosen at each change from the appearance of that moment.
    QPalette dark = original;
    dark.setColor(QPalette::Window, QColor(QStringLiteral("#202020")));
    QApplication::setPalette(dark);
    w.setPinned(false);
    w.setPinned(true);
    QVERIFY(p.pin->styleSheet().contains(QStringLiteral("#0066cc")));
    QApplication::setPalette(original);
}

void OverlayWindowTest::dragOnlyFromBackground_data()
{
    QTest::addColumn<QString>("where");
    QTest::addColumn<bool>("moves");

    QTest::newRow("left margin") << "margin" << true;
    QTest::newRow("gap between title and source") << "gap" << true;
    QTest::newRow("title text") << "title" << false;
    QTest::newRow("source text area") << "source" << false;
    QTest::newRow("result text area") << "result" << false;
}

void OverlayWindowTest::dragOnlyFromBackground()
{
    QFETCH(QString, where);
    QFETCH(bool, moves);

    auto w = shownOverlay(OverlayWindow::TextMode);
    QVERIFY(w);
    const Parts p = partsOf(*w);
    w->setSourceText(QStringLiteral("source"));
    w->showTranslation(true);
    w->move(100, 50);
    QTRY_COMPARE(w->pos(), QPoint(100, 50));

    QPoint at;
    if (where == QLatin1String("margin")) {
        at = QPoint(8, w->height() / 2);
    } else if (where == QLatin1String("gap")) {
        at = QPoint(w->width() / 2, p.source->geometry().top() - 6);
    } else if (where == QLatin1String("title")) {
        QLabel *title = nullptr;
        const QList<QLabel *> labels = w->findChildren<QLabel *>();
        for (QLabel *label : labels) {
            if (label->text() == QLatin1String("Vontrel"))
                title = label;
        }
        QVERIFY(title);
        at = title->geometry().center();
    } else if (where == QLatin1String("source")) {
        at = p.source->geometry().center();
    } else {
        at = p.view->geometry().center();
    }
    QWidget *target = w->childAt(at);
    if (!target)
        target = w.get();

    const QPoint origin = w->mapToGlobal(QPoint(0, 0));
    sendMouse(target, QEvent::MouseButtonPress, at, w.get(), origin, Qt::LeftButton);
    sendMouse(target, QEvent::MouseMove, at + QPoint(15, 10), w.get(), origin, Qt::LeftButton);
    sendMouse(target, QEvent::MouseMove, at + QPoint(30, 20), w.get(), origin, Qt::LeftButton);
    sendMouse(target, QEvent::MouseButtonRelease, at + QPoint(30, 20), w.get(), origin, Qt::NoButton);

    QCOMPARE(w->pos(), moves ? QPoint(130, 70) : QPoint(100, 50));
}

QTEST_MAIN(OverlayWindowTest)
#include "test_overlaywindow.moc"
