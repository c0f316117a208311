#pragma once

#include <QColor>
#include <QImage>
#include <QStringList>

// Screen-like images of text for recognition tests. Needs a QGuiApplication (fonts).
namespace TextImage {
// The lines drawn one under the other, anti-aliased, with UI line spacing and a small margin, at the given
// device pixel ratio (the image is that many times larger and carries the ratio). Latin text in DejaVu Sans,
// Chinese in Noto Sans CJK SC.
QImage render(const QStringList &lines, int pixelSize, const QColor &text = QColor(0x1d, 0x1d, 0x1f),
              const QColor &background = Qt::white, qreal ratio = 1.0);
} // namespace TextImage
