#pragma once

#include <QString>

// The most text one request carries. 32,000 characters are about 8,000 tokens of English and at most about
// 64,000 of Chinese or Japanese, so with the instructions and the longest answer a request asks for (2,048
// tokens) they fit the context window of today's hosted models (128,000 tokens and more) with room to spare;
// they are also more than anyone reads translated in a small window. A longer text (a log file, a book)
// would cost the window seconds and the provider money, or be refused by the provider outright.
constexpr qsizetype kVontrelMaxInputChars = 32000;

// A text as it is shown and sent, and how long it was before.
struct BoundedInput
{
    QString text;
    qsizetype originalLength = 0; // in the same characters (UTF-16 units) as text
    bool isCut() const { return text.size() < originalLength; }
    qsizetype leftOut() const { return originalLength - text.size(); }
};

// The text whole when it fits in maxChars; otherwise its beginning, ended at a line break or a blank just
// before the limit when there is one there, and never inside a character.
BoundedInput vontrelBoundInput(const QString &text, qsizetype maxChars = kVontrelMaxInputChars);
