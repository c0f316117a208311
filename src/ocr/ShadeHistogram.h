#pragma once

#include <QImage>

#include <array>

// How many pixels of a grey image have each shade.
using ShadeHistogram = std::array<int, 256>;

ShadeHistogram vontrelShadeHistogram(const QImage &gray);

// The darkest shade with more than `wanted` pixels at or below it; 255 when the image has no more pixels.
int vontrelShadePercentile(const ShadeHistogram &counts, qint64 wanted);

// The most common shade, smoothed over neighbouring shades so that a faint gradient or dithering does not
// split it: on a screen that is the window's own background. 0 for an empty histogram.
int vontrelDominantShade(const ShadeHistogram &counts);
