#pragma once

#include <QImage>
#include <QString>
#include <QStringList>

// What a text recogniser is handed after screen-specific preparation.
struct OcrPreparedImage
{
    QImage image;      // Format_Grayscale8, dark text on a light background, padded; null for a null input
    qreal scale = 1.0; // how much the input was enlarged
    bool inverted = false; // the input was light text on a dark background
    int lineCount = 0;     // separate bands of text found (0 when the image looks blank)
};

// Screen text is small, anti-aliased and often light on dark; recognisers are trained on dark print scanned
// at 300 dpi. This turns a screen region into grey dark-on-light text whose typical line is tall enough for
// them, padded with its own background colour.
OcrPreparedImage vontrelPrepareImageForOcr(const QImage &image);

// Joins recognised lines into the text the user sees: each line trimmed, empty lines dropped, the spaces a
// recogniser puts between Chinese characters removed, one "\n" between lines and none at the end.
QString vontrelJoinOcrLines(const QStringList &lines);
