#include "ocr/MarkShapes.h"

#include "ocr/ShadeHistogram.h"

#include <algorithm>
#include <cstdlib>

std::vector<MarkComponent> vontrelMarkComponents(const std::vector<uchar> &marks, int width, int height,
                                                 std::vector<int> &labels)
{
    std::vector<MarkComponent> found;
    labels.assign(marks.size(), -1);
    std::vector<int> stack;
    for (int start = 0; start < int(marks.size()); ++start) {
        if (!marks[start] || labels[start] >= 0)
            continue;
        const int id = int(found.size());
        MarkComponent component;
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

// An icon is a flat-coloured area far thicker than any stroke of the text around it; glyphs, even dense
// ideographs, are strokes of the text colour with anti-aliased edges and no such area. Bold strokes (titles,
// buttons) are several times thicker than regular ones, so in the text's own colour only an area thicker
// than those counts; an area of another colour (icons are blue, orange, grey) is judged against regular
// strokes.
bool vontrelIsSolidBlob(const MarkComponent &c, int id, const std::vector<int> &labels, const QImage &gray,
                        int width, int glyph, int ink, int markBelow)
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
bool vontrelIsControlOutline(const MarkComponent &c, int id, const std::vector<int> &labels,
                             const QImage &gray, int width, int glyph, int ink, int markBelow)
{
    const int w = c.box.width(), h = c.box.height();
    if (w * 5 < glyph * 3 || h * 5 < glyph * 3 || w > glyph * 5 / 2 || h > glyph * 5 / 2 || w * 4 < h * 3 ||
        h * 4 < w * 3 || c.pixels * 10 > w * h * 4)
        return false;
    ShadeHistogram shades{};
    int top = 0, left = 0; // marks in the top row and the left column
    for (int y = c.box.top(); y <= c.box.bottom(); ++y) {
        for (int x = c.box.left(); x <= c.box.right(); ++x) {
            if (labels[y * width + x] != id)
                continue;
            ++shades[gray.constScanLine(y)[x]];
            top += y == c.box.top();
            left += x == c.box.left();
        }
    }
    const int shade = vontrelDominantShade(shades);
    // Drawn in a colour lighter than the text's.
    if (shade <= ink + (markBelow - ink) / 3)
        return false;
    // A sunken box shows only its shadowed top and left sides, a thin corner that no glyph ends in.
    if (top * 5 >= w * 4 && left * 5 >= h * 4 && c.pixels <= (w + h) * 2)
        return true;
    // A ring taller than capitals and ideographs is no "O" or "口"; one about as tall may be one in grey
    // text, so only a hairline (a box's outline; a letter's strokes are heavier) or one far lighter than the
    // text counts.
    const bool taller = w * 20 >= glyph * 23 && h * 20 >= glyph * 23;
    const bool hairline = c.pixels * 10 <= (w + h) * 2 * 13;
    if (w * 5 < glyph * 4 || h * 5 < glyph * 4 ||
        (!taller && !hairline && shade <= ink + (markBelow - ink) * 2 / 3))
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
    for (int y = middle.top(); y <= middle.bottom(); ++y) {
        for (int x = middle.left(); x <= middle.right(); ++x) {
            if (labels[y * width + x] == id)
                return false;
        }
    }
    return true;
}

// An icon, an avatar or a picture beside text stands far taller than the glyphs next to it, while the letters
// of a heading are as tall as each other. It goes with everything drawn inside it.
void vontrelRemoveTallMarks(std::vector<MarkComponent> &found, int glyph)
{
    std::vector<QRect> tall;
    for (const MarkComponent &c : found) {
        const QRect &box = c.box;
        if (c.removed || box.height() < 2 * glyph || box.width() * 2 < glyph)
            continue;
        std::vector<int> beside;
        for (const MarkComponent &other : found) {
            const int h = other.box.height();
            if (&other != &c && !other.removed && h >= 3 && h < box.height() &&
                other.box.top() >= box.top() && other.box.bottom() <= box.bottom() &&
                !box.contains(other.box))
                beside.push_back(h);
        }
        if (beside.size() < 3)
            continue;
        std::nth_element(beside.begin(), beside.begin() + beside.size() / 2, beside.end());
        // A frame or a list around lines of text is tall too, but holds far more than an icon's few parts.
        const auto inside = std::count_if(found.begin(), found.end(), [&](const MarkComponent &other) {
            return &other != &c && box.contains(other.box);
        });
        if (box.height() * 10 >= beside[beside.size() / 2] * 22 && inside <= 4)
            tall.push_back(box);
    }
    for (MarkComponent &c : found) {
        for (const QRect &box : tall) {
            if (box.contains(c.box))
                c.removed = true;
        }
    }
}
