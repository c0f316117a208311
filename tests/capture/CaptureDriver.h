#pragma once

#include <QColor>
#include <QImage>
#include <QPoint>
#include <QRect>
#include <QWidget>

class CaptureOverlay;

// A window that covers the screen with a pattern in which every device pixel has its own colour, so that a
// captured image tells exactly which screen pixels it holds. With a plain colour set it is a flat backdrop.
class PatternWindow final : public QWidget
{
public:
    explicit PatternWindow(const QColor &plain = QColor());
    // Switches between the pattern (an invalid colour) and a plain colour.
    void setPlainColour(const QColor &plain);
    // The colour of the screen pixel at device coordinates (x, y) while the pattern is shown.
    static QRgb patternAt(int x, int y);
    // The pattern over a rectangle of device pixels.
    static QImage patternImage(const QRect &devicePixels);

protected:
    void paintEvent(QPaintEvent *event) override;

private:
    QColor m_plain;
};

// Real pointer and keyboard input through the X server (XTEST, as a user's devices would send it), in screen
// device pixels.
namespace XInput {
bool drag(QPoint from, QPoint to, int button = 1);
bool press(QPoint at, int button = 1);
bool moveTo(QPoint to);
bool release(int button = 1);
bool click(QPoint at, int button);
bool key(const QString &name);
} // namespace XInput

// The capture overlay currently on screen, once it is shown and has the keyboard focus; null after the
// timeout.
CaptureOverlay *waitForCaptureOverlay();
int captureOverlayCount();
