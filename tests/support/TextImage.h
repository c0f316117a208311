#pragma once

#include <QColor>
#include <QImage>
#include <QStringList>

// Screen-like images of text for recognition tests. Needs a QGuiApplication (fonts).
namespace TextImage {
// The lines one under the other, anti-aliased, at the given device pixel ratio (which the image carries).
QImage render(const QStringList &lines, int pixelSize, const QColor &text = QColor(0x1d, 0x1d, 0x1f),
              const QColor &background = Qt::white, qreal ratio = 1.0);
// The image in a frame as screens draw them, in device pixels: `gap` pixels of the image's own background,
// a line of `line` `width` pixels wide, then `slack` pixels of `outside` (a frame at the very edge with 0).
QImage framed(const QImage &image, int gap, const QColor &line, int slack = 0,
              const QColor &outside = Qt::white, int width = 1);
} // namespace TextImage
