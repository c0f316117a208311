#pragma once

#include <QImage>
#include <QString>
#include <QStringList>

#include <vector>

// One line of text as a recogniser's line reader wants it: black on white, its own height scaled to that of a
// 300 dpi scan, with a margin.
struct OcrPreparedLine
{
    QImage image;        // Format_Grayscale8
    bool block = false;  // taller than one line (lines that touch, a tall mark beside one): read as a block
    bool atEdge = false; // touches the region's top or bottom edge: perhaps the rest of a cut-off line
};

// What a text recogniser is handed after screen-specific preparation.
struct OcrPreparedImage
{
    QImage image;      // Format_Grayscale8, dark text on a light background, padded; null for a null input
    qreal scale = 1.0; // how much the input was enlarged
    bool inverted = false; // the input was light text on a dark background
    int lineCount = 0;     // separate bands of text found (0 when the image looks blank)
    // The lines of `image` one by one, top first; empty when they cannot be told apart (the whole image is
    // then read as a page).
    std::vector<OcrPreparedLine> lines;
};

// Screen text is small, anti-aliased, and on a patchwork of backgrounds of either polarity; recognisers are
// trained on dark print scanned at 300 dpi. This turns a screen region into grey ink on white whose typical
// line is tall enough for them, with what is not text left out, and cuts it into lines.
OcrPreparedImage vontrelPrepareImageForOcr(const QImage &image);

// Joins recognised lines into the text the user sees: each line trimmed, empty lines dropped, the spaces a
// recogniser puts between Chinese characters removed, one "\n" between lines and none at the end.
QString vontrelJoinOcrLines(const QStringList &lines);
