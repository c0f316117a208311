// A region dragged by hand under Xvfb: real pointer input through xdotool, the real region selector and
// recogniser, a paragraph on a light window and the rectangle reaching well past it onto a dark desktop.

#include "X11TestHelpers.h"
#include "capture/CaptureService.h"
#include "platform/linux/TesseractOcrProvider.h"

#include <QApplication>
#include <QLabel>
#include <QProcess>
#include <QSignalSpy>
#include <QTest>

#include <X11/Xlib.h>

namespace {

// No "--sync": xdotool then waits up to 15 s when the pointer is already in place.
bool xdotool(const QStringList &arguments)
{
    return QProcess::execute(QStringLiteral("xdotool"), arguments) == 0;
}

// The desktop itself, not a window standing in for it: the root window's own background.
bool paintRootWindow(unsigned long pixel)
{
    Display *display = XOpenDisplay(nullptr);
    if (!display)
        return false;
    const Window root = DefaultRootWindow(display);
    XSetWindowBackground(display, root, pixel);
    XClearWindow(display, root);
    XSync(display, False);
    XCloseDisplay(display);
    return true;
}

} // namespace

class TestOcrX11 : public QObject
{
    Q_OBJECT

private slots:
    void readsParagraphDraggedOntoDarkDesktop();
};

void TestOcrX11::readsParagraphDraggedOntoDarkDesktop()
{
    TesseractOcrProvider provider;
    if (provider.languages() != QLatin1String("chi_sim+eng"))
        QSKIP("needs the Simplified Chinese and English data (tesseract-ocr-chi-sim, tesseract-ocr-eng)");
    QVERIFY(paintRootWindow(0x202225));

    const QStringList lines = {QStringLiteral("Quiet rivers carry bright stones"),
                               QStringLiteral("along the valley floor"),
                               QStringLiteral("每周例会的会议记录")};
    QLabel page(lines.join(QStringLiteral("<br>")));
    page.setWindowFlags(Qt::FramelessWindowHint | Qt::BypassWindowManagerHint);
    page.setStyleSheet(
        QStringLiteral("background: #f5f5f7; color: #1d1d1f; padding: 10px; font-size: 15px;"));
    page.move(300, 240);
    page.show();
    QVERIFY(QTest::qWaitForWindowExposed(&page));
    const QRect shown = page.frameGeometry();

    CaptureService capture;
    QSignalSpy done(&capture, &CaptureService::captureDone);
    capture.startCapture();
    QVERIFY(QTest::qWaitFor(X11TestHelpers::captureSelectorShown, 10000));
    // Generously past the window on the left, right and below, as a quick hand drags.
    const QPoint from = shown.topLeft() + QPoint(-45, 3);
    const QPoint to = shown.bottomRight() + QPoint(70, 50);
    const auto at = [](QPoint p) {
        return QStringList{QStringLiteral("mousemove"), QString::number(p.x()), QString::number(p.y())};
    };
    QVERIFY(xdotool(at(from) + QStringList{QStringLiteral("mousedown"), QStringLiteral("1")} +
                    at((from + to) / 2) + at(to) +
                    QStringList{QStringLiteral("mouseup"), QStringLiteral("1")}));
    QVERIFY(done.wait(10000));
    const QImage region = done.first().first().value<QImage>();
    QVERIFY(!region.isNull());
    QCOMPARE(provider.recognize(region), lines.join(QLatin1Char('\n')));
}

QTEST_MAIN(TestOcrX11)
#include "test_ocr_x11.moc"
