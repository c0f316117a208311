#pragma once

#include "ocr/IOcrProvider.h"

#include <QStringList>

// Text recognition with Apple's Vision framework, on the device. Stateless, so one instance serves
// overlapping recognitions from pool threads.
class MacOcrAdapter final : public IOcrProvider
{
public:
    QString recognize(QImage image) override;
    bool isAvailable() override { return true; }

    // Of the languages Vision offers, the Chinese ones ("zh", "zh-...") then the English ones ("en",
    // "en-..."), each group in Vision's order; the rest are dropped, since every language costs recognition
    // time. *chineseCount receives the size of the first group.
    static QStringList recognitionLanguages(const QStringList &supported, qsizetype *chineseCount = nullptr);
    // Appends one recognised line: a "\n" separates it from text already there; nothing trails.
    static void appendLine(QString &text, const QString &line);
};
