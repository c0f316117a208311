#include "ocr/TextMask.h"

#include "ocr/ShadeHistogram.h"

#include <QRect>

#include <algorithm>
#include <cstdlib>

namespace {

struct Component
{
    QRect box;
    int pixels = 0;
    bool removed = false;
};

// 8-connected components of the marked pixels; `labels` gets each pixel's component index, or -1.
std::vector<Component> components(const std::vector<uchar> &marks, int width, int height,
                                  std::vector<int> &labels)
{
    std::vector<Component> found;
    labels.assign(marks.size(), -1);
    std::vector<int> stack;
    for (int start = 0; start < int(marks.size()); ++start) {
        if (!marks[start] || labels[start] >= 0)
            continue;
        const int id = int(found.size());
        Component component;
        int minX = width, minY = height, maxX = -1, maxY = -1;
        stack.push_back(start);
        labels[start] = id;
        while (!stack.empty()) {
            const int at = stack.back();
            stack.pop_back();
            const int x = at % width, y = at / width;
            ++component.pixels;
            minX = std::min(minX, x), maxX = std::max(maxX, x);
            minY = std::min(minY, y), maxY = std::max(maxY, y);
            for (int dy = -1; dy <= 1; ++dy) {
                for (int dx = -1; dx <= 1; ++dx) {
                    const int nx = x + dx, ny = y + dy;
                    if (nx < 0 || ny < 0 || nx >= width || ny >= height)
                        continue;
                    const int next = ny * width + nx;
                    if (marks[next] && labels[next] < 0) {
                        labels[next] = id;
                        stack.push_back(next);
                    }
                }
            }
        }
        component.box = QRect(QPoint(minX, minY), QPoint(maxX, maxY));
        found.push_back(component);
    }
    return found;
}

// The height of a typical glyph: the upper quartile of the heights of glyph-like marks (capitals and
// ideographs rather than x-height letters, dots and commas). Rules, frames and large blobs are left out
// by their shape.
int glyphHeight(const std::vector<Component> &found, int width, int height)
{
    std::vector<int> heights;
    for (const Component &c : found) {
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
                if (i - start >= minLength || frameSide) {
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

// An icon is a flat-coloured area far thicker than any stroke of the text around it; glyphs, even dense
// ideographs, are strokes of the text colour with anti-aliased edges and no such area. Bold strokes (titles,
// buttons) are several times thicker than regular ones, so in the text's own colour only an area thicker
// than those counts; an area of another colour (icons are blue, orange, grey) is judged against regular
// strokes.
bool isSolidBlob(const Component &c, int id, const std::vector<int> &labels, const QImage &gray, int width,
                 int glyph, int ink, int markBelow)
{
    const int w = c.box.width(), h = c.box.height();
    if (w * 10 < glyph * 6 || h * 10 < glyph * 6 || c.pixels * 10 < w * h * 3)
        return false;
    ShadeHistogram shades{};
    for (int y = c.box.top(); y <= c.box.bottom(); ++y) {
        for (int x = c.box.left(); x <= c.box.right(); ++x) {
            if (labels[y * width + x] == id)
                ++shades[gray.constScanLine(y)[x]];
        }
    }
    const int fill = vontrelDominantShade(shades);
    // Summed-area table of the flat-coloured pixels, to test whole squares at once.
    std::vector<int> sums(size_t(w + 1) * (h + 1), 0);
    for (int y = 0; y < h; ++y) {
        for (int x = 0; x < w; ++x) {
            const int gx = c.box.left() + x, gy = c.box.top() + y;
            const bool flat =
                labels[gy * width + gx] == id && std::abs(gray.constScanLine(gy)[gx] - fill) <= 12;
            sums[size_t(y + 1) * (w + 1) + x + 1] = flat + sums[size_t(y) * (w + 1) + x + 1] +
                                                    sums[size_t(y + 1) * (w + 1) + x] -
                                                    sums[size_t(y) * (w + 1) + x];
        }
    }
    const bool textColoured = fill <= ink + (markBelow - ink) / 3;
    // Regular strokes are about a twelfth of the glyph height thick, bold ones up to a fifth.
    const int r = std::max(1, textColoured ? (glyph + 4) / 6 : (glyph + 6) / 12);
    const int side = 2 * r + 1;
    int solid = 0;
    for (int y = 0; y + side <= h; ++y) {
        for (int x = 0; x + side <= w; ++x) {
            const int sum = sums[size_t(y + side) * (w + 1) + x + side] -
                            sums[size_t(y) * (w + 1) + x + side] - sums[size_t(y + side) * (w + 1) + x] +
                            sums[size_t(y) * (w + 1) + x];
            solid += sum == side * side;
        }
    }
    return solid * 12 >= w * h;
}

// The empty outline of a check box or radio button: a ring about a glyph or two across, drawn thin in a
// colour lighter than the text's. "口" and "O" are rings too, but in the text's colour and with strokes of
// the text's weight; read, an outline turns into "[ ]", "O" or "(_)" before the label.
bool isControlOutline(const Component &c, int id, const std::vector<int> &labels, const QImage &gray,
                      int width, int glyph, int ink, int markBelow)
{
    // Taller than capitals and ideographs (the glyph height), which is also what keeps "O" and "口" out.
    const int w = c.box.width(), h = c.box.height();
    if (w * 20 < glyph * 23 || h * 20 < glyph * 23 || w > glyph * 5 / 2 || h > glyph * 5 / 2 ||
        w * 4 < h * 3 || h * 4 < w * 3 || c.pixels * 10 > w * h * 4)
        return false;
    // Closed: the ring lies across every way out of its middle, which "C" or "L" does not.
    const QPoint centre = c.box.center();
    const auto ringAt = [&](int dx, int dy) {
        for (QPoint p = centre; c.box.contains(p); p += QPoint(dx, dy)) {
            if (labels[p.y() * width + p.x()] == id)
                return true;
        }
        return false;
    };
    if (!ringAt(1, 0) || !ringAt(-1, 0) || !ringAt(0, 1) || !ringAt(0, -1))
        return false;
    // Hollow: nothing of the ring in its middle half.
    const QRect middle = c.box.adjusted(w / 4, h / 4, -w / 4, -h / 4);
    ShadeHistogram shades{};
    for (int y = c.box.top(); y <= c.box.bottom(); ++y) {
        for (int x = c.box.left(); x <= c.box.right(); ++x) {
            if (labels[y * width + x] != id)
                continue;
            if (middle.contains(x, y))
                return false;
            ++shades[gray.constScanLine(y)[x]];
        }
    }
    return vontrelDominantShade(shades) > ink + (markBelow - ink) / 3;
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
    std::vector<Component> found = components(marks, width, height, labels);
    int glyph = glyphHeight(found, width, height);
    std::vector<uchar> erased(size_t(total), 0);
    if (glyph > 0) {
        eraseRules(marks, erased, width, height, glyph);
        found = components(marks, width, height, labels);
        glyph = std::max(glyph, 3);
        for (int id = 0; id < int(found.size()); ++id) {
            Component &c = found[size_t(id)];
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
            if (picture || cornerDebris || isSolidBlob(c, id, labels, gray, width, glyph, ink, markBelow) ||
                isControlOutline(c, id, labels, gray, width, glyph, ink, markBelow))
                c.removed = true;
        }
    }

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
        for (Component &c : found) {
            if (c.box.top() >= band.top && c.box.bottom() < band.bottom)
                c.removed = true;
        }
        bands.erase(top ? bands.begin() : bands.end() - 1);
    }

    // Only the surroundings of the kept glyphs reach the recogniser: their anti-aliased edges stay,
    // erased rules and anything too faint to be a mark become paper.
    const int pad = std::max(2, glyph / 3);
    for (const Component &c : found) {
        if (c.removed)
            continue;
        const QRect around = c.box.adjusted(-pad, -pad, pad, pad).intersected(QRect(0, 0, width, height));
        for (int y = around.top(); y <= around.bottom(); ++y)
            std::fill_n(keep.begin() + size_t(y) * width + around.left(), around.width(), 1);
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
    for (const Band &band : bands) {
        if (countsAsLine(band))
            heights.push_back(band.height());
    }
    if (bandsAreLines)
        mask.lineHeights = std::move(heights);
    return mask;
}
