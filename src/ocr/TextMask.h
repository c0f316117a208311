#pragma once

#include <QImage>

#include <utility>
#include <vector>

// The pixels of a grey region of dark text on a light background that hold its text. Straight rules and
// frames, icons, pictures and the remains of a line cut off by the region's edge are left out, since a
// recogniser reads them as letters or spends minutes laying them out.
struct TextMask
{
    std::vector<uchar> keep; // per pixel, row after row: 1 where the recogniser gets the pixel as it is
    std::vector<int>
        lineHeights; // ink height of each line of text, top first; empty when lines cannot be told
    // The rows of each line of text [first, second), top first; like lineHeights, empty when lines cannot
    // be told.
    std::vector<std::pair<int, int>> lines;
};

// `markBelow`: pixels darker than this shade are ink; `ink`: the shade of the text itself.
TextMask vontrelFindTextMask(const QImage &gray, int markBelow, int ink);
