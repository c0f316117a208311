#include "ocr/OcrPreprocessing.h"

#include "ocr/ShadeHistogram.h"
#include "ocr/TextMask.h"

#include <QPainter>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <vector>

namespace {

// The ink height of a typical line we aim for: capitals then stand roughly 25-35 pixels tall, where
// recognisers trained on 300 dpi print are at their best.
constexpr int kTargetLineHeight = 40;
constexpr qreal kMaximumScale = 4.0;
// The enlarged page stays below this many pixels (bytes, in grey), so a large region of small text cannot
// make the engine allocate gigabytes.
constexpr qreal kMaximumPreparedPixels = 24e6;
// The ink colour is that of the darkest pixels, but of at least this many, so that a stray dark pixel does
// not set it while a single short word in a wide region still does.
constexpr qint64 kMinimumInkPixels = 12;
// Below this contrast between background and darkest ink the region holds no legible text.
constexpr int kMinimumContrast = 40;
// Shades this close to the background count as background (gradients, dithering, compression).
constexpr int kBackgroundTolerance = 24;

QImage toGrayscale(const QImage &image)
{
    if (image.hasAlphaChannel()) {
        // Transparent pixels have no colour of their own; show them as a window would, on white.
        QImage flattened(image.size(), QImage::Format_RGB32);
        flattened.fill(Qt::white);
        QPainter painter(&flattened);
        painter.drawImage(0, 0, image);
        painter.end();
        return flattened.convertToFormat(QImage::Format_Grayscale8);
    }
    return image.convertToFormat(QImage::Format_Grayscale8);
}

// A line (row or column) of the region belongs to something else than the text's window when it is mostly
// of another shade and that shade is flat: the edge of the next window, a panel, the desktop, a frame at the
// very edge. A row through text alternates between ink and background many times and is kept.
bool isForeignLine(const QImage &gray, int index, bool column, int background, int tolerance)
{
    const int length = column ? gray.height() : gray.width();
    int foreign = 0;
    int changes = 0;
    bool previous = false;
    for (int i = 0; i < length; ++i) {
        const int v = column ? gray.constScanLine(i)[index] : gray.constScanLine(index)[i];
        const bool other = std::abs(v - background) > tolerance;
        foreign += other ? 1 : 0;
        if (i > 0 && other != previous)
            ++changes;
        previous = other;
    }
    return foreign * 10 >= length * 6 && changes <= 2 + length / 40;
}

// The part of the region that holds the text's window: bands of a foreign shade at the sides are cut off.
QRect textWindow(const QImage &gray, int background, int tolerance)
{
    int left = 0, right = gray.width() - 1, top = 0, bottom = gray.height() - 1;
    // Never more than this share of a side: a region made mostly of "foreign" lines is better read whole.
    const int maxX = gray.width() * 3 / 4, maxY = gray.height() * 3 / 4;
    while (left < maxX && isForeignLine(gray, left, true, background, tolerance))
        ++left;
    while (gray.width() - 1 - right < maxX && isForeignLine(gray, right, true, background, tolerance))
        --right;
    while (top < maxY && isForeignLine(gray, top, false, background, tolerance))
        ++top;
    while (gray.height() - 1 - bottom < maxY && isForeignLine(gray, bottom, false, background, tolerance))
        --bottom;
    return QRect(QPoint(left, top), QPoint(right, bottom));
}

// The share of the area in the background's shade: text sits on a clean background, while an area that
// holds the text's window and the desktop around it is mixed.
qreal purity(const QImage &gray, const QRect &area, int background)
{
    qint64 same = 0;
    for (int y = area.top(); y <= area.bottom(); ++y) {
        const uchar *row = gray.constScanLine(y);
        for (int x = area.left(); x <= area.right(); ++x)
            same += std::abs(row[x] - background) <= kBackgroundTolerance;
    }
    return qreal(same) / std::max<qint64>(1, qint64(area.width()) * area.height());
}

// How often rows of the area switch between the background and anything else: text switches at every
// stroke, flat panels and desktop hardly ever.
qint64 edgeCount(const QImage &gray, const QRect &area, int background)
{
    qint64 changes = 0;
    for (int y = area.top(); y <= area.bottom(); ++y) {
        const uchar *row = gray.constScanLine(y);
        bool previous = std::abs(row[area.left()] - background) > kBackgroundTolerance;
        for (int x = area.left() + 1; x <= area.right(); ++x) {
            const bool other = std::abs(row[x] - background) > kBackgroundTolerance;
            changes += other != previous;
            previous = other;
        }
    }
    return changes;
}

bool isCjk(QChar c)
{
    const ushort u = c.unicode();
    return (u >= 0x2E80 && u <= 0x9FFF)     // radicals, CJK punctuation, kana, unified ideographs
           || (u >= 0xF900 && u <= 0xFAFF)  // compatibility ideographs
           || (u >= 0xFE30 && u <= 0xFE4F)  // compatibility forms
           || (u >= 0xFF00 && u <= 0xFF60); // full-width forms and punctuation
}

QString removeSpacesBetweenCjk(const QString &line)
{
    QString out;
    out.reserve(line.size());
    for (int i = 0; i < line.size(); ++i) {
        const QChar c = line.at(i);
        if (c.isSpace() && !out.isEmpty()) {
            int next = i;
            while (next < line.size() && line.at(next).isSpace())
                ++next;
            if (next < line.size() && isCjk(out.back()) && isCjk(line.at(next))) {
                i = next - 1;
                continue;
            }
        }
        out.append(c);
    }
    return out;
}

} // namespace

OcrPreparedImage vontrelPrepareImageForOcr(const QImage &image)
{
    OcrPreparedImage prepared;
    if (image.isNull())
        return prepared;

    QImage gray = toGrayscale(image);
    ShadeHistogram shades = vontrelShadeHistogram(gray);
    int background = vontrelDominantShade(shades);
    QRect window = textWindow(gray, background, kBackgroundTolerance);
    // A region dragged well past a window's edge can hold more desktop than window. The second most common
    // shade is then the window's; taken as the background it leaves flat desktop at the sides to cut off, a
    // cleaner page than the desktop's shade does, and about as much text (a bare corner of desktop has none).
    for (int v = std::max(0, background - kBackgroundTolerance);
         v <= std::min(255, background + kBackgroundTolerance); ++v)
        shades[v] = 0;
    const int second = vontrelDominantShade(shades);
    qint64 secondCount = 0;
    for (int v = std::max(0, second - 3); v <= std::min(255, second + 3); ++v)
        secondCount += shades[v];
    if (secondCount * 10 >= qint64(gray.width()) * gray.height()) {
        const QRect inner = textWindow(gray, second, kBackgroundTolerance);
        if (std::abs(vontrelDominantShade(vontrelShadeHistogram(gray.copy(inner))) - second) <=
                kBackgroundTolerance / 4 &&
            purity(gray, inner, second) > purity(gray, window, background) &&
            2 * edgeCount(gray, inner, second) >= edgeCount(gray, window, background)) {
            window = inner;
            background = second;
        }
    }
    if (window != gray.rect()) {
        gray = gray.copy(window);
        background = vontrelDominantShade(vontrelShadeHistogram(gray));
    }
    if (background < 128) {
        gray.invertPixels();
        prepared.inverted = true;
    }
    const int paper = prepared.inverted ? 255 - background : background;
    ShadeHistogram counts = vontrelShadeHistogram(gray);
    const int ink = vontrelShadePercentile(counts, kMinimumInkPixels);
    const int width = gray.width(), height = gray.height();
    const qint64 total = qint64(width) * height;

    qreal scale = 1.0;
    std::vector<uchar> keep(size_t(total), 1); // pixels handed to the recogniser as they are
    if (paper - ink >= kMinimumContrast) {
        // Anything visibly darker than the paper is a mark: faint rules and pale icons too, which the
        // recogniser's own thresholding might otherwise turn into letters.
        const int markBelow = paper - std::max(kMinimumContrast / 2, (paper - ink) / 5);
        TextMask mask = vontrelFindTextMask(gray, markBelow, ink);
        keep = std::move(mask.keep);
        std::vector<int> &heights = mask.lineHeights;
        prepared.lineCount = int(heights.size());
        if (!heights.empty()) {
            std::nth_element(heights.begin(), heights.begin() + heights.size() / 2, heights.end());
            const int typical = heights[heights.size() / 2];
            const qreal pixelBudget = std::sqrt(kMaximumPreparedPixels / qreal(total));
            scale = std::clamp(qreal(kTargetLineHeight) / typical, 1.0,
                               std::max(1.0, std::min(kMaximumScale, pixelBudget)));
        }
    }
    prepared.scale = scale;

    for (int y = 0; y < height; ++y) {
        uchar *row = gray.scanLine(y);
        for (int x = 0; x < width; ++x) {
            if (!keep[size_t(y) * width + x])
                row[x] = uchar(paper);
        }
    }

    if (scale > 1.0) {
        gray = gray.scaled(qRound(gray.width() * scale), qRound(gray.height() * scale), Qt::IgnoreAspectRatio,
                           Qt::SmoothTransformation)
                   .convertToFormat(QImage::Format_Grayscale8);
    }

    // Recognisers drop glyphs that touch the image edge; a margin in the background's own shade does not
    // create the false edge a white frame would draw around a grey panel.
    const int margin = std::max(10, qRound(kTargetLineHeight / 2.0));
    QImage padded(gray.width() + 2 * margin, gray.height() + 2 * margin, QImage::Format_Grayscale8);
    padded.fill(uint(paper));
    for (int y = 0; y < gray.height(); ++y)
        std::copy_n(gray.constScanLine(y), gray.width(), padded.scanLine(y + margin) + margin);
    prepared.image = padded;
    return prepared;
}

QString vontrelJoinOcrLines(const QStringList &lines)
{
    QStringList kept;
    for (const QString &line : lines) {
        const QString cleaned = removeSpacesBetweenCjk(line.trimmed());
        if (!cleaned.isEmpty())
            kept.append(cleaned);
    }
    return kept.join(QLatin1Char('\n'));
}
