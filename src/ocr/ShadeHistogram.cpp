#include "ocr/ShadeHistogram.h"

#include <algorithm>

ShadeHistogram vontrelShadeHistogram(const QImage &gray)
{
    ShadeHistogram counts{};
    for (int y = 0; y < gray.height(); ++y) {
        const uchar *row = gray.constScanLine(y);
        for (int x = 0; x < gray.width(); ++x)
            ++counts[row[x]];
    }
    return counts;
}

int vontrelShadePercentile(const ShadeHistogram &counts, qint64 wanted)
{
    qint64 seen = 0;
    for (int value = 0; value < 256; ++value) {
        seen += counts[value];
        if (seen > wanted)
            return value;
    }
    return 255;
}

int vontrelDominantShade(const ShadeHistogram &counts)
{
    int best = 0;
    qint64 bestCount = -1;
    for (int value = 0; value < 256; ++value) {
        qint64 around = 0;
        for (int v = std::max(0, value - 3); v <= std::min(255, value + 3); ++v)
            around += counts[v];
        if (around > bestCount) {
            bestCount = around;
            best = value;
        }
    }
    return best;
}
