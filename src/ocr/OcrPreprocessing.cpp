#include "ocr/OcrPreprocessing.h"

#include "ocr/InkMap.h"
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
// A line much taller than the target is made smaller, but not so much that its strokes blur together.
constexpr qreal kMinimumLineScale = 0.5;

// Enlarged by `scale`, with a margin in the paper's shade: recognisers drop glyphs that touch the image edge.
QImage padded(const QImage &gray, qreal scale, int paper)
{
    QImage scaled = gray;
    if (scale != 1.0) {
        scaled = gray.scaled(qMax(1, qRound(gray.width() * scale)), qMax(1, qRound(gray.height() * scale)),
                             Qt::IgnoreAspectRatio, Qt::SmoothTransformation)
                     .convertToFormat(QImage::Format_Grayscale8);
    }
    const int margin = std::max(10, qRound(kTargetLineHeight / 2.0));
    QImage page(scaled.width() + 2 * margin, scaled.height() + 2 * margin, QImage::Format_Grayscale8);
    page.fill(uint(paper));
    for (int y = 0; y < scaled.height(); ++y)
        std::copy_n(scaled.constScanLine(y), scaled.width(), page.scanLine(y + margin) + margin);
    return page;
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

    const InkMap map = vontrelInkMap(image);
    QImage gray = map.image;
    prepared.inverted = map.darkPage;
    constexpr int paper = 255;
    ShadeHistogram counts = vontrelShadeHistogram(gray);
    const int ink = vontrelShadePercentile(counts, kMinimumInkPixels);
    const int width = gray.width(), height = gray.height();
    const qint64 total = qint64(width) * height;

    qreal scale = 1.0;
    std::vector<uchar> keep(size_t(total), 1); // pixels handed to the recogniser as they are
    std::vector<std::pair<int, int>> lines;
    int typical = 0;
    if (paper - ink >= kMinimumContrast) {
        // Anything visibly darker than the paper is a mark: faint rules and pale icons too, which the
        // recogniser's own thresholding might otherwise turn into letters.
        const int markBelow = paper - std::max(kMinimumContrast / 2, (paper - ink) / 5);
        TextMask mask = vontrelFindTextMask(gray, markBelow, ink);
        keep = std::move(mask.keep);
        lines = std::move(mask.lines);
        std::vector<int> &heights = mask.lineHeights;
        prepared.lineCount = int(heights.size());
        if (!heights.empty()) {
            std::nth_element(heights.begin(), heights.begin() + heights.size() / 2, heights.end());
            typical = heights[heights.size() / 2];
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

    for (const auto &[top, bottom] : lines) {
        int left = width, right = -1;
        for (int y = top; y < bottom; ++y) {
            const uchar *row = gray.constScanLine(y);
            for (int x = 0; x < width; ++x) {
                if (row[x] < 255) {
                    left = std::min(left, x);
                    right = std::max(right, x);
                }
            }
        }
        if (right < left)
            continue;
        OcrPreparedLine line;
        // Headings stand about twice as tall as the text around them; only more than that is more than one
        // line.
        line.block = (bottom - top) * 10 > typical * 21;
        line.atEdge = top == 0 || bottom == height;
        const qreal lineScale = std::clamp(qreal(kTargetLineHeight) / (line.block ? typical : bottom - top),
                                           kMinimumLineScale, kMaximumScale);
        line.image = padded(gray.copy(left, top, right - left + 1, bottom - top), lineScale, paper);
        prepared.lines.push_back(std::move(line));
    }
    prepared.image = padded(gray, scale, paper);
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
