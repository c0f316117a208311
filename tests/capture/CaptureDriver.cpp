#include "CaptureDriver.h"

#include "capture/CaptureOverlay.h"

#include <QApplication>
#include <QPaintEvent>
#include <QPainter>
#include <QProcess>
#include <QScreen>
#include <QTest>

PatternWindow::PatternWindow(const QColor &plain)
    : m_plain(plain)
{
    setWindowFlags(Qt::FramelessWindowHint | Qt::BypassWindowManagerHint);
    setGeometry(QGuiApplication::primaryScreen()->geometry());
}

void PatternWindow::setPlainColour(const QColor &plain)
{
    m_plain = plain;
    update();
}

QRgb PatternWindow::patternAt(int x, int y)
{
    return qRgb(x & 0xff, y & 0xff, ((x >> 8) << 4) | (y >> 8));
}

QImage PatternWindow::patternImage(const QRect &devicePixels)
{
    QImage image(devicePixels.size(), QImage::Format_RGB32);
    for (int y = 0; y < image.height(); ++y) {
        auto *row = reinterpret_cast<QRgb *>(image.scanLine(y));
        for (int x = 0; x < image.width(); ++x)
            row[x] = patternAt(devicePixels.x() + x, devicePixels.y() + y);
    }
    return image;
}

void PatternWindow::paintEvent(QPaintEvent *)
{
    QPainter painter(this);
    if (m_plain.isValid()) {
        painter.fillRect(rect(), m_plain);
        return;
    }
    // Drawn as an image of the window's device pixels, so every screen pixel gets exactly its pattern colour.
    const qreal ratio = devicePixelRatioF();
    QImage image = patternImage(QRect(QPoint(0, 0), size() * ratio));
    image.setDevicePixelRatio(ratio);
    painter.drawImage(QPoint(0, 0), image);
}

namespace XInput {
namespace {

bool xdotool(const QStringList &arguments)
{
    // The X server applies one client's requests in order, so a whole gesture goes out in one call. No
    // "--sync": xdotool 3.20160805 then waits up to 15 s for motion when the pointer is already in place.
    // Callers wait for the effect they expect, not for xdotool.
    return QProcess::execute(QStringLiteral("xdotool"), arguments) == 0;
}

QStringList moveArguments(QPoint to)
{
    return {QStringLiteral("mousemove"), QString::number(to.x()), QString::number(to.y())};
}

} // namespace

bool moveTo(QPoint to)
{
    return xdotool(moveArguments(to));
}

bool press(QPoint at, int button)
{
    return xdotool(moveArguments(at) + QStringList{QStringLiteral("mousedown"), QString::number(button)});
}

bool release(int button)
{
    return xdotool({QStringLiteral("mouseup"), QString::number(button)});
}

bool drag(QPoint from, QPoint to, int button)
{
    // Through a point half-way, as a hand would, so the overlay sees motion while the button is down.
    const QPoint middle = (from + to) / 2;
    return xdotool(moveArguments(from) + QStringList{QStringLiteral("mousedown"), QString::number(button)} +
                   moveArguments(middle) + moveArguments(to) +
                   QStringList{QStringLiteral("mouseup"), QString::number(button)});
}

bool click(QPoint at, int button)
{
    return xdotool(moveArguments(at) + QStringList{QStringLiteral("click"), QString::number(button)});
}

bool key(const QString &name)
{
    return xdotool({QStringLiteral("key"), name});
}

} // namespace XInput

namespace {

CaptureOverlay *findOverlay()
{
    for (QWidget *widget : QApplication::topLevelWidgets()) {
        if (auto *overlay = qobject_cast<CaptureOverlay *>(widget); overlay && overlay->isVisible())
            return overlay;
    }
    return nullptr;
}

} // namespace

CaptureOverlay *waitForCaptureOverlay()
{
    CaptureOverlay *overlay = nullptr;
    if (!QTest::qWaitFor([&overlay] { return (overlay = findOverlay()) != nullptr; }, 10000))
        return nullptr;
    if (!QTest::qWaitForWindowExposed(overlay, 10000) || !QTest::qWaitForWindowActive(overlay, 10000))
        return nullptr;
    return overlay;
}

int captureOverlayCount()
{
    int count = 0;
    for (QWidget *widget : QApplication::topLevelWidgets())
        count += qobject_cast<CaptureOverlay *>(widget) ? 1 : 0;
    return count;
}
