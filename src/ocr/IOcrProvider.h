#pragma once

#include <QImage>
#include <QString>

#include <utility>

// The outcome of one recognition: the text, or why there is none when that is more than "nothing found".
struct OcrOutcome
{
    QString text;
    QString error; // for the user, e.g. the region was too complex to read in time; empty otherwise
};

// Turns an image of screen text into plain text. One instance may serve several recognitions at once, from
// any thread.
class IOcrProvider
{
public:
    virtual ~IOcrProvider() = default;
    // The recognised lines joined by "\n" (no trailing line feed); empty when nothing was found or the
    // recognition failed (the reason is logged).
    virtual QString recognize(QImage image) = 0;
    // As recognize(), but says why a recognition failed when the user can act on it.
    virtual OcrOutcome recognizeRegion(QImage image) { return {recognize(std::move(image)), QString()}; }
    // False when this system cannot recognise text at all (no engine or no language data); recognize() then
    // returns nothing useful.
    virtual bool isAvailable() = 0;
};
