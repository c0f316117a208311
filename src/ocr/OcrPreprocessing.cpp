#include "ocr/OcrPreprocessing.h"

#include <QPainter>

#include <algorithm>
#include <array>
#include <cmath>
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

std::array<int, 256> histogram(const QImage &gray)
{
    std::array<int, 256> counts{};
    for (int y = 0; y < gray.height(); ++y) {
        const uchar *row = gray.constScanLine(y);
        for (int x = 0; x < gray.width(); ++x)
            ++counts[row[x]];
    }
    return counts;
}

int percentile(const std::array<int, 256> &counts, qint64 wanted)
{
    qint64 seen = 0;
    for (int value = 0; value < 256; ++value) {
        seen += counts[value];
        if (seen > wanted)
            return value;
    }
    return 255;
}

// Heights of the horizontal bands that contain ink, top to bottom.
std::vector<int> inkBandHeights(const QImage &gray, int threshold)
{
    std::vector<int> heights;
    int bandStart = -1;
    for (int y = 0; y <= gray.height(); ++y) {
        bool hasInk = false;
        if (y < gray.height()) {
            const uchar *row = gray.constScanLine(y);
            hasInk = std::any_of(row, row + gray.width(), [threshold](uchar v) { return v < threshold; });
        }
        if (hasInk && bandStart < 0) {
            bandStart = y;
        } else if (!hasInk && bandStart >= 0) {
            // A band of one or two rows is an underline, a rule or a speck, not a line of text.
            if (y - bandStart > 2)
                heights.push_back(y - bandStart);
            bandStart = -1;
        }
    }
    return heights;
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
    const qint64 total = qint64(gray.width()) * gray.height();
    std::array<int, 256> counts = histogram(gray);

    // Text covers far less than half of a region, so the median is the background.
    const int background = percentile(counts, total / 2);
    if (background < 128) {
        gray.invertPixels();
        prepared.inverted = true;
        std::reverse(counts.begin(), counts.end());
    }
    const int paper = prepared.inverted ? 255 - background : background;
    const int ink = percentile(counts, kMinimumInkPixels);

    qreal scale = 1.0;
    if (paper - ink >= kMinimumContrast) {
        std::vector<int> heights = inkBandHeights(gray, (paper + ink) / 2);
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
