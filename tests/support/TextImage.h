#pragma once

#include <QColor>
#include <QImage>
#include <QStringList>

// Screen-like images of text for recognition tests. Needs a QGuiApplication (fonts).
namespace TextImage {
// The lines one under the other, anti-aliased, at the given device pixel ratio (which the image carries).
QImage render(const QStringList &lines, int pixelSize, const QColor &text = QColor(0x1d, 0x1d, 0x1f),
              const QColor &background = Qt::white, qreal ratio = 1.0);
} // namespace TextImage
