#pragma once

#include <QImage>

// A capture as ink on paper: every pixel as dark as it stands out from the background it lies on. A window is
// a patchwork of backgrounds (the page, a selected row, a button, a badge, the segments of a shell prompt,
// the desktop beside the window), each with text of its own polarity and colour. Each flat area large enough
// to hold text counts as a background; the pixels around it are measured against its colour by their largest
// difference in any channel, so red on black or white on blue stands out as well as black on white, and each
// background's strongest ink becomes black. Flat areas of any shade become white paper.
struct InkMap
{
    QImage image;          // Format_Grayscale8, dark ink on white; null for a null input
    bool darkPage = false; // the largest background is dark (light text on a dark page)
    int contrast = 0;      // the page's own ink contrast, 0..255 (below about 40 it holds no legible text)
};

InkMap vontrelInkMap(const QImage &image);
