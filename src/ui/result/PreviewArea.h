#pragma once

#include <QImage>
#include <QLabel>

// The captured region above the recognised text: as tall as the image needs at the area's width (within
// limits), the image scaled to fit at the screen's pixel density.
class PreviewArea final : public QLabel
{
    Q_OBJECT

public:
    explicit PreviewArea(QWidget *parent = nullptr);

    // Keeps the image at full resolution; an empty image clears the area.
    void setImage(const QImage &image);
    QImage image() const { return m_image; }
    // Fits the height and the pixmap to the current width; call after the width may have changed.
    void fit();

protected:
    void resizeEvent(QResizeEvent *event) override;

private:
    void scheduleScale();
    void scale();

    QImage m_image;
};
