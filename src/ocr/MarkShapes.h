#pragma once

#include <QImage>
#include <QRect>

#include <vector>

// Connected marks of a grey region, and the shapes among them that are no text.

struct MarkComponent
{
    QRect box;
    int pixels = 0;
    bool removed = false;
};

// 8-connected components of the marked pixels; `labels` gets each pixel's component index, or -1.
std::vector<MarkComponent> vontrelMarkComponents(const std::vector<uchar> &marks, int width, int height,
                                                 std::vector<int> &labels);

// A flat-coloured area far thicker than the strokes of the text around it: an icon.
bool vontrelIsSolidBlob(const MarkComponent &c, int id, const std::vector<int> &labels, const QImage &gray,
                        int width, int glyph, int ink, int markBelow);

// The empty outline of a check box or radio button: a thin ring or sunken corner about a glyph or two
// across, drawn lighter than the text.
bool vontrelIsControlOutline(const MarkComponent &c, int id, const std::vector<int> &labels,
                             const QImage &gray, int width, int glyph, int ink, int markBelow);

// Marks far taller than the glyphs beside them (icons, avatars, pictures), with all they hold, are marked
// removed.
void vontrelRemoveTallMarks(std::vector<MarkComponent> &found, int glyph);
