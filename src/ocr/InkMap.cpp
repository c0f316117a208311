#include "ocr/InkMap.h"

#include <QPainter>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <utility>
#include <vector>

namespace {

// Neighbours closer than this in every channel belong to one flat area; a gentle gradient (a button's
// shading, a title bar) chains through it, the anti-aliased edge of a glyph does not.
constexpr int kFlatTolerance = 8;
// Below this contrast between a background and its strongest ink there is no legible text on it, only
// shading, dithering or the edge of a neighbouring area.
constexpr int kMinimumContrast = 40;
// A flat area smaller than this is part of a glyph (the inside of a bold stroke) or an icon, not a
// background.
constexpr int kMinimumBackgroundPixels = 80;
constexpr int kMinimumBackgroundSide = 6;
constexpr int kLargeArea = 2500;
// A flat area with this many pixels that lie this deep inside it is wider than any stroke.
constexpr int kSolidReach = 3;
constexpr int kSolidFill = 12;
// Pieces of one flat area on either side of a stroke this thin are joined.
constexpr int kBridgedStroke = 2;

int difference(QRgb a, QRgb b)
{
    return std::max(
        {std::abs(qRed(a) - qRed(b)), std::abs(qGreen(a) - qGreen(b)), std::abs(qBlue(a) - qBlue(b))});
}

// How far ink stands out from its background: by brightness, as text in the background's hue does, or by
// colour where brightness hardly differs (red on black, green on grey), at a discount, so that a coloured
// icon beside black text stays paler than the text, as it is to the eye.
int inkStrength(QRgb ink, QRgb background)
{
    return std::max(std::abs(qGray(ink) - qGray(background)), difference(ink, background) * 3 / 5);
}

// Whether `c` lies between two clearly different colours `a` and `b`, as an edge pixel blending them does.
bool isBlend(QRgb c, QRgb a, QRgb b)
{
    const int d[3] = {qRed(b) - qRed(a), qGreen(b) - qGreen(a), qBlue(b) - qBlue(a)};
    const int e[3] = {qRed(c) - qRed(a), qGreen(c) - qGreen(a), qBlue(c) - qBlue(a)};
    const int length = d[0] * d[0] + d[1] * d[1] + d[2] * d[2];
    if (length <= 4 * kMinimumContrast * kMinimumContrast)
        return false;
    const double t = std::clamp(double(d[0] * e[0] + d[1] * e[1] + d[2] * e[2]) / length, 0.0, 1.0);
    for (int k = 0; k < 3; ++k) {
        if (std::abs(e[k] - t * d[k]) > 2 * kFlatTolerance)
            return false;
    }
    return true;
}

// The pixels of the box not of the area that cannot reach the box's border without crossing it, and the
// height of the rows they span.
struct Holes
{
    qint64 enclosed = 0;
    int span = 0; // rows spanned by the enclosed holes
};

Holes enclosedHoles(const std::vector<int> &owner, const std::vector<uchar> &flat, int id, const QRect &box,
                    int width, std::vector<int> &stack)
{
    // 0: not yet seen, 1: the area, 2: open to the border, 3: enclosed and counted
    std::vector<uchar> state(size_t(box.width()) * box.height(), 0);
    for (int y = box.top(); y <= box.bottom(); ++y)
        for (int x = box.left(); x <= box.right(); ++x)
            if (owner[size_t(y) * width + x] == id)
                state[size_t(y - box.top()) * box.width() + (x - box.left())] = 1;
    const auto fill = [&](int local, uchar mark, int &top, int &bottom) {
        qint64 count = 0;
        state[size_t(local)] = mark;
        stack.push_back(local);
        while (!stack.empty()) {
            const int at = stack.back();
            stack.pop_back();
            ++count;
            const int x = at % box.width(), y = at / box.width();
            top = std::min(top, y), bottom = std::max(bottom, y);
            for (int dy = -1; dy <= 1; ++dy) {
                for (int dx = -1; dx <= 1; ++dx) {
                    const int nx = x + dx, ny = y + dy;
                    if (nx < 0 || ny < 0 || nx >= box.width() || ny >= box.height())
                        continue;
                    const int n = ny * box.width() + nx;
                    if (state[size_t(n)] == 0) {
                        state[size_t(n)] = mark;
                        stack.push_back(n);
                    }
                }
            }
        }
        return count;
    };
    int top = 0, bottom = 0;
    // Only flat pixels on the border open to the outside: the page around a letter is flat, text that
    // touches the edge of a tight row is not.
    const auto seed = [&](int x, int y) {
        if (state[size_t(y) * box.width() + x] == 0 && flat[size_t(box.top() + y) * width + box.left() + x])
            fill(y * box.width() + x, 2, top, bottom);
    };
    for (int x = 0; x < box.width(); ++x) {
        seed(x, 0);
        seed(x, box.height() - 1);
    }
    for (int y = 0; y < box.height(); ++y) {
        seed(0, y);
        seed(box.width() - 1, y);
    }
    Holes holes;
    top = box.height(), bottom = -1;
    for (int i = 0; i < int(state.size()); ++i) {
        if (state[size_t(i)] == 0)
            holes.enclosed += fill(i, 3, top, bottom);
    }
    holes.span = std::max(0, bottom - top + 1);
    return holes;
}

// How many pixels of the area have the area all around them, `kSolidReach` pixels each way.
int solidPixels(const std::vector<int> &owner, int id, const QRect &box, int width)
{
    const int w = box.width(), h = box.height();
    std::vector<int> sums(size_t(w + 1) * (h + 1), 0);
    for (int y = 0; y < h; ++y) {
        for (int x = 0; x < w; ++x) {
            const bool in = owner[size_t(box.top() + y) * width + box.left() + x] == id;
            sums[size_t(y + 1) * (w + 1) + x + 1] = in + sums[size_t(y) * (w + 1) + x + 1] +
                                                    sums[size_t(y + 1) * (w + 1) + x] -
                                                    sums[size_t(y) * (w + 1) + x];
        }
    }
    const int side = 2 * kSolidReach + 1;
    int solid = 0;
    for (int y = 0; y + side <= h; ++y) {
        for (int x = 0; x + side <= w; ++x) {
            solid += sums[size_t(y + side) * (w + 1) + x + side] - sums[size_t(y) * (w + 1) + x + side] -
                         sums[size_t(y + side) * (w + 1) + x] + sums[size_t(y) * (w + 1) + x] ==
                     side * side;
        }
    }
    return solid;
}

QImage opaque(const QImage &image)
{
    if (!image.hasAlphaChannel())
        return image.convertToFormat(QImage::Format_RGB32);
    // Transparent pixels have no colour of their own; show them as a window would, on white.
    QImage flattened(image.size(), QImage::Format_RGB32);
    flattened.fill(Qt::white);
    QPainter painter(&flattened);
    painter.drawImage(0, 0, image);
    painter.end();
    return flattened;
}

struct Area
{
    int pixels = 0;
    int left = 0, top = 0, right = -1, bottom = -1;
    bool background = false;
};

} // namespace

InkMap vontrelInkMap(const QImage &input)
{
    InkMap map;
    if (input.isNull())
        return map;
    const QImage rgb = opaque(input);
    const int width = rgb.width(), height = rgb.height();
    const size_t total = size_t(width) * height;
    const auto colour = [&rgb](int x, int y) {
        return reinterpret_cast<const QRgb *>(rgb.constScanLine(y))[x];
    };

    std::vector<uchar> flat(total, 0);
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            const QRgb c = colour(x, y);
            flat[size_t(y) * width + x] =
                (x == 0 || difference(c, colour(x - 1, y)) <= kFlatTolerance) &&
                (x + 1 == width || difference(c, colour(x + 1, y)) <= kFlatTolerance) &&
                (y == 0 || difference(c, colour(x, y - 1)) <= kFlatTolerance) &&
                (y + 1 == height || difference(c, colour(x, y + 1)) <= kFlatTolerance);
        }
    }

    // Flat areas, 4-connected through neighbours of nearly the same colour.
    std::vector<int> owner(total, -1); // the flat area of each flat pixel
    std::vector<Area> areas;
    std::vector<int> stack;
    for (size_t start = 0; start < total; ++start) {
        if (!flat[start] || owner[start] >= 0)
            continue;
        const int id = int(areas.size());
        Area area;
        area.left = width, area.top = height;
        owner[start] = id;
        stack.push_back(int(start));
        while (!stack.empty()) {
            const int at = stack.back();
            stack.pop_back();
            const int x = at % width, y = at / width;
            ++area.pixels;
            area.left = std::min(area.left, x), area.right = std::max(area.right, x);
            area.top = std::min(area.top, y), area.bottom = std::max(area.bottom, y);
            const QRgb c = colour(x, y);
            // Across a thin stroke too: the background of a tight row is cut into pieces by its text, as
            // little connected as the space between two lines.
            for (int step = 1; step <= kBridgedStroke + 1; ++step) {
                const int next[4][2] = {{x - step, y}, {x + step, y}, {x, y - step}, {x, y + step}};
                for (const auto &[nx, ny] : next) {
                    if (nx < 0 || ny < 0 || nx >= width || ny >= height)
                        continue;
                    const size_t n = size_t(ny) * width + nx;
                    if (flat[n] && owner[n] < 0 && difference(c, colour(nx, ny)) <= kFlatTolerance) {
                        owner[n] = id;
                        stack.push_back(int(n));
                    }
                }
            }
        }
        areas.push_back(area);
    }

    int page = -1;
    for (int id = 0; id < int(areas.size()); ++id) {
        Area &a = areas[size_t(id)];
        if (page < 0 || a.pixels > areas[size_t(page)].pixels)
            page = id;
        const int w = a.right - a.left + 1, h = a.bottom - a.top + 1;
        // A background is mostly filled, with holes where the text on it lies. The inside of a bold letter
        // is either a solid bar without holes or a sparse outline; only a flat area larger than any letter
        // is a background without holes (an empty field, the blank part of a page).
        const qint64 box = qint64(w) * h;
        if (a.pixels < kMinimumBackgroundPixels || std::min(w, h) < kMinimumBackgroundSide ||
            qint64(a.pixels) * 100 < box * 35)
            continue;
        // A background surrounds what lies on it: the holes it leaves (the text) are enclosed. The inside of
        // a bold word is flat too, but the gaps between its letters and above them open to the outside.
        // Only an area larger than any letter may have no holes (an empty field, the blank part of a page).
        // The counter of a bold "o" is enclosed too, but the ring around it is small for what it holds,
        // while a badge, a button or a row has room for its text.
        const Holes holes = enclosedHoles(owner, flat, id, QRect(a.left, a.top, w, h), width, stack);
        const qint64 holePixels = box - a.pixels;
        // A badge or a button has solid fill beside its text, where its text may touch the edge; the inside
        // of a bold stroke is nowhere that thick.
        a.background = holePixels == 0
                           ? a.pixels >= kLargeArea
                           : (holes.enclosed * 2 >= holePixels ||
                              solidPixels(owner, id, QRect(a.left, a.top, w, h), width) >= kSolidFill) &&
                                 2 * qint64(a.pixels) >= 3 * qint64(holes.span) * holes.span;
    }
    if (page < 0) {
        // Nothing flat at all (a photograph, noise): no background to read text against.
        map.image = QImage(width, height, QImage::Format_Grayscale8);
        map.image.fill(255);
        return map;
    }
    areas[size_t(page)].background = true;

    // Backgrounds by a compact index, each with its own contrast: the ink on a badge is as legible as the
    // ink on the page, however different their colours.
    std::vector<int> region(areas.size(), -1);
    int regions = 0;
    for (size_t id = 0; id < areas.size(); ++id) {
        if (areas[id].background)
            region[id] = regions++;
    }
    const int pageRegion = region[size_t(page)];

    // Every other pixel lies on the background nearest to it.
    std::vector<int> source(total, -1);
    std::vector<int> queue;
    queue.reserve(total);
    for (size_t i = 0; i < total; ++i) {
        if (owner[i] >= 0 && areas[size_t(owner[i])].background) {
            queue.push_back(int(i));
            source[i] = int(i);
        }
    }
    for (size_t head = 0; head < queue.size(); ++head) {
        const int at = queue[head];
        const int x = at % width, y = at / width;
        for (int dy = -1; dy <= 1; ++dy) {
            for (int dx = -1; dx <= 1; ++dx) {
                const int nx = x + dx, ny = y + dy;
                if (nx < 0 || ny < 0 || nx >= width || ny >= height)
                    continue;
                const size_t n = size_t(ny) * width + nx;
                if (source[n] < 0) {
                    source[n] = source[size_t(at)];
                    queue.push_back(int(n));
                }
            }
        }
    }
    queue = std::vector<int>();

    std::vector<std::array<int, 256>> strengths(size_t(regions), std::array<int, 256>{});
    std::vector<int> assigned(size_t(regions), 0);
    std::vector<uchar> strength(total, 0);
    const auto regionOf = [&](size_t i) {
        return region[size_t(owner[size_t(source[i])])];
    };
    for (size_t i = 0; i < total; ++i) {
        const int from = source[i];
        if (from == int(i))
            continue;
        const int x = int(i % width), y = int(i / width);
        const QRgb c = colour(x, y);
        // Where two backgrounds meet, the nearest one may be the other: a pixel of a background's colour is
        // no ink next to that background, nor is the anti-aliased edge between two backgrounds (a button's
        // rounded corner), a blend of them.
        bool backgroundColoured = false;
        for (int dy = -1; dy <= 1 && !backgroundColoured; ++dy) {
            for (int dx = -1; dx <= 1 && !backgroundColoured; ++dx) {
                const int nx = x + dx, ny = y + dy;
                if (nx < 0 || ny < 0 || nx >= width || ny >= height)
                    continue;
                const int other = source[size_t(ny) * width + nx];
                const QRgb otherColour = colour(other % width, other / width);
                backgroundColoured = difference(c, otherColour) <= 2 * kFlatTolerance ||
                                     isBlend(c, colour(from % width, from / width), otherColour);
            }
        }
        if (backgroundColoured)
            continue;
        const int s = inkStrength(c, colour(from % width, from / width));
        strength[i] = uchar(s);
        ++strengths[size_t(regionOf(i))][size_t(s)];
        ++assigned[size_t(regionOf(i))];
    }
    // The strongest ink of each background, of a fiftieth of its marks at least, so that a stray pixel does
    // not set it: the text's own, which grey text, outlines and anti-aliasing stay lighter than.
    std::vector<int> contrast(size_t(regions), 0);
    for (int r = 0; r < regions; ++r) {
        const int wanted = std::max(4, assigned[size_t(r)] / 50);
        int count = 0;
        for (int s = 255; s > 0 && !contrast[size_t(r)]; --s) {
            count += strengths[size_t(r)][size_t(s)];
            if (count >= wanted)
                contrast[size_t(r)] = s;
        }
    }
    map.image = QImage(width, height, QImage::Format_Grayscale8);
    for (int y = 0; y < height; ++y) {
        uchar *row = map.image.scanLine(y);
        for (int x = 0; x < width; ++x) {
            const size_t i = size_t(y) * width + x;
            const int c = contrast[size_t(regionOf(i))];
            row[x] = c < kMinimumContrast ? 255 : uchar(255 - std::min(255, strength[i] * 255 / c));
        }
    }
    // The text's polarity is that of the background holding most of the ink, which need not be the
    // largest (a window on a wide desktop).
    int inkiest = pageRegion;
    std::vector<qint64> inked(size_t(regions), 0);
    for (int r = 0; r < regions; ++r) {
        for (int v = contrast[size_t(r)] / 2; v < 256 && contrast[size_t(r)] >= kMinimumContrast; ++v)
            inked[size_t(r)] += strengths[size_t(r)][size_t(v)];
        if (inked[size_t(r)] > inked[size_t(inkiest)])
            inkiest = r;
    }
    map.contrast = contrast[size_t(pageRegion)];
    for (size_t i = 0; i < total; ++i) {
        if (source[i] == int(i) && region[size_t(owner[i])] == inkiest) {
            map.darkPage = qGray(colour(int(i % width), int(i / width))) < 128;
            break;
        }
    }
    return map;
}
