#include "ai/InputLimit.h"

BoundedInput vontrelBoundInput(const QString &text, qsizetype maxChars)
{
    if (text.size() <= maxChars)
        return {text, text.size()};
    qsizetype cut = qMax<qsizetype>(0, maxChars);
    if (cut > 0 && text.at(cut - 1).isHighSurrogate())
        --cut;
    // Ending on a whole line, or at least a whole word, costs at most a few per cent of the limit.
    if (cut > 0) {
        const qsizetype lineBreak = text.lastIndexOf(QLatin1Char('\n'), cut - 1);
        const qsizetype blank = text.lastIndexOf(QLatin1Char(' '), cut - 1);
        if (lineBreak >= 0 && lineBreak >= cut - cut / 20)
            cut = lineBreak + 1;
        else if (blank >= 0 && blank >= cut - cut / 100)
            cut = blank + 1;
    }
    return {text.left(cut), text.size()};
}
