#pragma once

#include "ocr/IOcrProvider.h"

#include <QMutex>
#include <QString>
#include <QStringList>

#include <atomic>
#include <memory>

namespace tesseract {
class ETEXT_DESC;
class TessBaseAPI;
} // namespace tesseract

// Recognises screen text with Tesseract 5 (LSTM engine). The engine and its language models are loaded on the
// first recognition and kept warm; overlapping recognitions prepare their images in parallel and then use the
// one engine in turn.
class TesseractOcrProvider final : public IOcrProvider
{
public:
    // `languages` in Tesseract's "chi_sim+eng" form; empty chooses the installed Simplified Chinese and
    // English data, Chinese first. `dataPath` is the folder holding the .traineddata files; empty searches
    // TESSDATA_PREFIX and the usual system folders.
    explicit TesseractOcrProvider(const QString &languages = QString(), const QString &dataPath = QString());
    ~TesseractOcrProvider() override;

    QString recognize(QImage image) override;
    OcrOutcome recognizeRegion(QImage image) override;
    // False when the language data is missing or failed to load.
    bool isAvailable() override;

    // The languages and the data folder chosen; empty when none was found.
    QString languages() const { return m_languages.join(QLatin1Char('+')); }
    QString dataPath() const { return m_dataPath; }
    // True once the models are in memory (after the first recognition).
    bool isLoaded() const;
    // How long one region may take in the engine before it gives up and calls the region too complex.
    void setTimeLimit(int msecs);

    static constexpr int kDefaultTimeLimitMs = 20000;

private:
    struct Reading;
    bool ensureEngineLocked();
    Reading readLocked(const QImage &page, int mode, tesseract::ETEXT_DESC &monitor);

    QStringList m_languages;
    QString m_dataPath;
    mutable QMutex m_mutex;
    std::unique_ptr<tesseract::TessBaseAPI> m_api;
    std::atomic<bool> m_loadFailed{false};
    std::atomic<bool> m_loaded{false};
    std::atomic<int> m_timeLimitMs{kDefaultTimeLimitMs};
};
