#pragma once

#include <QImage>
#include <QPixmap>
#include <QPoint>
#include <QRect>
#include <QWidget>

class QScreen;

// Full-screen region selector: freezes the screen under the cursor, dims it and lets the user drag out a
// rectangle. Shows itself from the constructor; never reused after it has reported.
class CaptureOverlay final : public QWidget
{
    Q_OBJECT

public:
    // How the selector comes to cover its screen.
    enum Placement {
        // Placed at the screen's geometry, past the window manager (X11).
        ScreenGeometry,
        // Asks the compositor to show it full screen on that screen's output: a Wayland client cannot place
        // itself, and a tiling compositor would make any other toplevel a tile.
        FullScreenState,
    };

    explicit CaptureOverlay(QWidget *parent = nullptr);
    // Shows the selector over a screenshot taken elsewhere (a desktop portal); the image's device pixel
    // ratio maps it onto the screen's logical geometry.
    CaptureOverlay(QScreen *screen, const QImage &screenshot, Placement placement = ScreenGeometry,
                   QWidget *parent = nullptr);

    // False when no screen could be grabbed; the overlay was then never shown and will report nothing.
    bool hasScreenshot() const { return !m_screenshot.isNull(); }

signals:
    // The selected pixels at full device resolution, with the screen's device pixel ratio.
    void captureDone(QImage image);
    void captureCancelled();

protected:
    void paintEvent(QPaintEvent *event) override;
    void mousePressEvent(QMouseEvent *event) override;
    void mouseMoveEvent(QMouseEvent *event) override;
    void mouseReleaseEvent(QMouseEvent *event) override;
    void keyPressEvent(QKeyEvent *event) override;
    void hideEvent(QHideEvent *event) override;

private:
    void captureScreen();
    void showOn(QScreen *screen, Placement placement);
    QRect sourceRect(const QRect &logical) const;
    QImage captureSelectedRegion() const;

    QPixmap m_screenshot;
    QPoint m_selectionStart;
    QPoint m_selectionEnd;
    bool m_selecting = false;
    QRect m_selection;
    qreal m_devicePixelRatio = 1.0;
};
