#pragma once

#include <QImage>
#include <QString>
#include <QStringList>
#include <QVector>

// One generated test image: screen-like text with its ground truth and the categories it counts in.
struct OcrBenchSample
{
    QString name;
    QImage image;
    QString truth;     // lines joined by "\n"
    QString language;  // "en", "zh", "mixed", "code"
    int pixelSize = 0; // logical font pixel size
    int ratio = 1;     // device pixel ratio the text was rendered at
    bool dark = false;
    int lines = 0;
    QString kind; // what surrounds the text in a messy capture; empty for a clean one
    bool bold = false;
};

// Renders the benchmark's image set deterministically: UI text of 11-20 px at ratio 1 and 2, light and dark
// themes, English, Chinese, mixed and code, 1-8 lines each. `variants` images per combination.
QVector<OcrBenchSample> vontrelBenchOcrSamples(int variants);

// What a hand-dragged region catches besides the text, one name per kind of surrounding.
QStringList vontrelBenchOcrArtefactKinds();
// Screen text in those surroundings: every kind at ratio 1 and 2, light and dark, `perCombination` images
// each, with fonts, sizes, margins and colours drawn from `seed`.
QVector<OcrBenchSample> vontrelBenchOcrArtefactSamples(int perCombination, quint32 seed);
