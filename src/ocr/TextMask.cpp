#include "ocr/TextMask.h"

#include "ocr/MarkShapes.h"
#include "ocr/ShadeHistogram.h"

#include <QRect>

#include <algorithm>
#include <cstdlib>

namespace {

// The height of a typical glyph: the upper quartile of the heights of glyph-like marks (capitals and
// ideographs rather than x-height letters, dots and commas). Rules, frames and large blobs are left out
// by their shape.
int glyphHeight(const std::vector<MarkComponent> &found, int width, int height)
{
    std::vector<int> heights;
    for (const MarkComponent &c : found) {
        const int w = c.box.width(), h = c.box.height();
        if (h >= 3 && w <= 4 * h && h <= 12 * w && h < height * 9 / 10 && w < width / 2 && h < width)
            heights.push_back(h);
    }
    if (heights.empty())
        return 0;
    std::sort(heights.begin(), heights.end());
    return heights[heights.size() * 3 / 4];
}

// Erases straight rules and frames: runs of marks far longer than any glyph stroke and no thicker than a
// rule, horizontal and vertical. Where text crosses a rule the marks are thick and stay.
void eraseRules(std::vector<uchar> &marks, std::vector<uchar> &erased, int width, int height, int glyph)
{
    const int minLength = std::max(12, glyph * 3);
    const int maxThickness = std::max(3, glyph / 4);
    const auto at = [width](int x, int y) {
        return y * width + x;
    };
    std::vector<uchar> rule(marks.size(), 0);
    // Thickness of the marks across a run at each of its pixels.
    const auto across = [&](int x, int y, bool horizontalRun) {
        int n = 1;
        for (int d = 1; d <= maxThickness; ++d) {
            const int xx = horizontalRun ? x : x - d, yy = horizontalRun ? y - d : y;
            if (xx < 0 || yy < 0 || !marks[at(xx, yy)])
                break;
            ++n;
        }
        for (int d = 1; d <= maxThickness; ++d) {
            const int xx = horizontalRun ? x : x + d, yy = horizontalRun ? y + d : y;
            if (xx >= width || yy >= height || !marks[at(xx, yy)])
                break;
            ++n;
        }
        return n;
    };
    for (bool horizontal : {true, false}) {
        const int lines = horizontal ? height : width;
        const int length = horizontal ? width : height;
        for (int line = 0; line < lines; ++line) {
            int start = -1;
            for (int i = 0; i <= length; ++i) {
                const int x = horizontal ? i : line, y = horizontal ? line : i;
                const bool mark = i < length && marks[at(x, y)];
                if (mark && start < 0)
                    start = i;
                if (mark || start < 0)
                    continue;
                // The sides of a frame around a single line are hardly longer than a glyph is tall, but both
                // their ends meet the frame's long top and bottom (or the region's edge), which no stroke of
                // a glyph does.
                const auto endsOnRule = [&](int end) {
                    return end < 0 || end >= length || rule[horizontal ? at(end, line) : at(line, end)];
                };
                // A rounded frame's sides end where its corners bend away, a little short of the long rules;
                // only a side clearly taller than a glyph may end that far off.
                const auto nearRule = [&](int end) {
                    const int reach = std::max(3, glyph / 2);
                    for (int y = std::max(0, end - reach); y <= std::min(height - 1, end + reach); ++y)
                        for (int x = std::max(0, line - reach); x <= std::min(width - 1, line + reach); ++x)
                            if (rule[at(x, y)])
                                return true;
                    return false;
                };
                const bool roundedSide =
                    !horizontal && (i - start) * 2 >= glyph * 3 && (start == 0 || nearRule(start)) &&
                    (i == length || nearRule(i - 1)) && (nearRule(start) || nearRule(i - 1));
                const bool frameSide =
                    !horizontal && ((i - start >= glyph && endsOnRule(start) && endsOnRule(i - 1) &&
                                     (rule[at(line, start)] || rule[at(line, i - 1)])) ||
                                    roundedSide);
                // Upright, a thin straight run well taller than the letters with nothing close on either
                // side is the side of a button, a field or a list, or a divider; "|", "l" and "[" stay within
                // a line's height, and the long stroke of a large ideograph has others beside it.
                const auto isolated = [&](int side) {
                    const int reach = std::max(3, glyph / 2);
                    int clear = 0;
                    for (int j = start; j < i; ++j) {
                        int x = line;
                        for (int d = 0;
                             d < maxThickness && x + side >= 0 && x + side < width && marks[at(x + side, j)];
                             ++d)
                            x += side;
                        bool empty = true;
                        for (int d = 1; d <= reach && empty; ++d) {
                            const int xx = x + side * d;
                            empty = xx < 0 || xx >= width || !marks[at(xx, j)];
                        }
                        clear += empty;
                    }
                    return clear * 5 >= (i - start) * 4;
                };
                const bool upright = !horizontal && i - start >= std::max(12, glyph * 8 / 5) &&
                                     i - start < minLength && isolated(-1) && isolated(1);
                if (i - start >= minLength || frameSide || upright) {
                    int thin = 0;
                    for (int j = start; j < i; ++j)
                        thin +=
                            across(horizontal ? j : line, horizontal ? line : j, horizontal) <= maxThickness;
                    if (thin * 5 >= (i - start) * 4) {
                        for (int j = start; j < i; ++j)
                            rule[horizontal ? at(j, line) : at(line, j)] = 1;
                    }
                }
                start = -1;
            }
        }
    }
    for (size_t i = 0; i < marks.size(); ++i) {
        if (rule[i]) {
            marks[i] = 0;
            erased[i] = 1;
        }
    }
}

struct Band
{
    int top = 0;
    int bottom = 0; // exclusive
    int height() const { return bottom - top; }
};

std::vector<Band> inkBands(const std::vector<uchar> &marks, int width, int height, int minHeight)
{
    std::vector<Band> bands;
    int start = -1;
    for (int y = 0; y <= height; ++y) {
        const bool ink =
            y < height && std::any_of(marks.begin() + size_t(y) * width,
                                      marks.begin() + size_t(y + 1) * width, [](uchar m) { return m; });
        if (ink && start < 0)
            start = y;
        if (!ink && start >= 0) {
            // Thinner bands are underlines and specks, not lines of text.
            if (y - start >= minHeight)
                bands.push_back({start, y});
            start = -1;
        }
    }
    return bands;
}

} // namespace

TextMask vontrelFindTextMask(const QImage &gray, int markBelow, int ink)
{
    const int width = gray.width(), height = gray.height();
    const qint64 total = qint64(width) * height;
    TextMask mask;
    std::vector<uchar> &keep = mask.keep;
    keep.assign(size_t(total), 0);
    std::vector<uchar> marks(static_cast<size_t>(total));
    for (int y = 0; y < height; ++y) {
        const uchar *row = gray.constScanLine(y);
        for (int x = 0; x < width; ++x)
            marks[size_t(y) * width + x] = row[x] < markBelow;
    }
    std::vector<int> labels;
    std::vector<MarkComponent> found = vontrelMarkComponents(marks, width, height, labels);
    int glyph = glyphHeight(found, width, height);
    std::vector<uchar> erased(size_t(total), 0);
    if (glyph > 0) {
        eraseRules(marks, erased, width, height, glyph);
        found = vontrelMarkComponents(marks, width, height, labels);
        glyph = std::max(glyph, 3);
        for (int id = 0; id < int(found.size()); ++id) {
            MarkComponent &c = found[size_t(id)];
            // A connected mark many glyphs wide and tall that is no thin frame is a picture or a texture:
            // no text to read, and on it the recogniser's layout analysis can take minutes.
            const bool picture = c.box.width() > 8 * glyph && c.box.height() > 8 * glyph &&
                                 qint64(c.pixels) * 5 > qint64(c.box.width()) * c.box.height();
            // The bend of a rounded frame's corner stays behind when its straight sides go; next to them,
            // such a speck is read as a bar or a bracket.
            const int speck = std::max(2, glyph / 4);
            bool cornerDebris = c.box.width() <= speck && c.box.height() <= speck;
            if (cornerDebris) {
                const QRect around = c.box.adjusted(-1, -1, 1, 1).intersected(QRect(0, 0, width, height));
                bool touchesErased = false;
                for (int y = around.top(); y <= around.bottom() && !touchesErased; ++y)
                    for (int x = around.left(); x <= around.right() && !touchesErased; ++x)
                        touchesErased = erased[size_t(y) * width + x];
                cornerDebris = touchesErased;
            }
            if (picture || cornerDebris ||
                vontrelIsSolidBlob(c, id, labels, gray, width, glyph, ink, markBelow) ||
                vontrelIsControlOutline(c, id, labels, gray, width, glyph, ink, markBelow))
                c.removed = true;
        }
    }

    if (glyph > 0)
        vontrelRemoveTallMarks(found, glyph);

    std::vector<uchar> kept(size_t(total), 0);
    for (size_t i = 0; i < kept.size(); ++i)
        kept[i] = labels[i] >= 0 && !found[size_t(labels[i])].removed;
    // Every band of rows with ink; those lower than a third of a glyph are underlines and specks, or the
    // last pixels of a line cut off by the edge, not lines of text.
    std::vector<Band> bands = inkBands(kept, width, height, 1);
    const int minLineHeight = std::max(3, glyph / 3);
    const auto countsAsLine = [minLineHeight](const Band &b) {
        return b.height() >= minLineHeight;
    };
    // A band many glyphs tall is not one line but lines that touch, a picture or a texture; the number
    // of lines is then unknown.
    const bool bandsAreLines = glyph == 0 || std::all_of(bands.begin(), bands.end(), [glyph](const Band &b) {
                                   return b.height() <= 4 * glyph;
                               });

    // A line cut by the region's top or bottom edge shows only part of its glyphs: it is lower than the
    // full lines and the edge row runs through its glyphs rather than past their tips. It is not text the
    // user meant to select, and must not set the line height. A line ending at the bottom edge may just
    // lack descenders, so only a clearly shorter one counts there.
    const auto partialAtEdge = [&](const Band &band, bool top) {
        if ((top && band.top > 0) || (!top && band.bottom < height))
            return false;
        std::vector<int> others;
        for (const Band &b : bands) {
            if (b.top != band.top && countsAsLine(b))
                others.push_back(b.height());
        }
        if (others.empty())
            return false;
        std::sort(others.begin(), others.end());
        const int edgeRow = top ? 0 : height - 1;
        int columns = 0, atEdge = 0;
        for (int x = 0; x < width; ++x) {
            bool any = false;
            for (int y = band.top; y < band.bottom && !any; ++y)
                any = kept[size_t(y) * width + x];
            columns += any;
            atEdge += kept[size_t(edgeRow) * width + x];
        }
        // An edge row through the middle of the glyphs is inked over much of the line's width; one past
        // their tips only here and there. The more clearly cut, the less shortness it takes.
        const int tenths = !top ? 6 : (atEdge * 5 >= columns * 2 ? 9 : 8);
        return atEdge * 5 >= columns && band.height() * 10 < others[others.size() / 2] * tenths;
    };
    for (bool top : {true, false}) {
        if (bands.empty())
            break;
        const Band band = top ? bands.front() : bands.back();
        if (!partialAtEdge(top ? bands.front() : bands.back(), top))
            continue;
        for (MarkComponent &c : found) {
            if (c.box.top() >= band.top && c.box.bottom() < band.bottom)
                c.removed = true;
        }
        bands.erase(top ? bands.begin() : bands.end() - 1);
    }

    // Only the surroundings of the kept glyphs reach the recogniser: their anti-aliased edges stay,
    // erased rules and anything too faint to be a mark become paper.
    const int pad = std::max(2, glyph / 3);
    for (const MarkComponent &c : found) {
        if (c.removed)
            continue;
        const QRect around = c.box.adjusted(-pad, -pad, pad, pad).intersected(QRect(0, 0, width, height));
        for (int y = around.top(); y <= around.bottom(); ++y)
            std::fill_n(keep.begin() + size_t(y) * width + around.left(), around.width(), 1);
    }
    // A faint pixel away from every kept mark is no glyph's anti-aliased edge but a pale area beside the
    // text: the fill of a check box, a field's shading, a shadow.
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            const size_t i = size_t(y) * width + x;
            if (!keep[i] || gray.constScanLine(y)[x] < markBelow)
                continue;
            bool nearMark = false;
            for (int dy = -1; dy <= 1 && !nearMark; ++dy) {
                for (int dx = -1; dx <= 1 && !nearMark; ++dx) {
                    const int nx = x + dx, ny = y + dy;
                    nearMark =
                        nx >= 0 && ny >= 0 && nx < width && ny < height && kept[size_t(ny) * width + nx];
                }
            }
            keep[i] = nearMark;
        }
    }
    for (size_t i = 0; i < erased.size(); ++i)
        erased[i] = erased[i] || (labels[i] >= 0 && found[size_t(labels[i])].removed);
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            if (!erased[size_t(y) * width + x])
                continue;
            for (int dy = -1; dy <= 1; ++dy) {
                for (int dx = -1; dx <= 1; ++dx) {
                    const int nx = x + dx, ny = y + dy;
                    if (nx >= 0 && ny >= 0 && nx < width && ny < height &&
                        (labels[size_t(ny) * width + nx] < 0 ||
                         found[size_t(labels[size_t(ny) * width + nx])].removed))
                        keep[size_t(ny) * width + nx] = 0;
                }
            }
        }
    }

    std::vector<int> heights;
    std::vector<std::pair<int, int>> lines;
    for (const Band &band : bands) {
        if (countsAsLine(band)) {
            heights.push_back(band.height());
            lines.emplace_back(band.top, band.bottom);
        }
    }
    if (bandsAreLines) {
        mask.lineHeights = std::move(heights);
        mask.lines = std::move(lines);
    }
    return mask;
}
