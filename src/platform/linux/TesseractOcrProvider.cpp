#include "platform/linux/TesseractOcrProvider.h"

#include "log/LogCategories.h"
#include "ocr/OcrPreprocessing.h"

#include <QDebug>
#include <QElapsedTimer>
#include <QFileInfo>
#include <QMutexLocker>
#include <QRect>

#include <tesseract/baseapi.h>
#include <tesseract/ocrclass.h>
#include <tesseract/resultiterator.h>

#include <algorithm>

#include <dlfcn.h>

namespace {

// Prepared images are scaled so that text is as tall as in a 300 dpi scan; telling the engine so keeps it
// from guessing (and logging) a resolution of its own.
constexpr int kPreparedResolution = 300;
// Words the engine is less sure of than this are mostly noise read as letters.
constexpr float kMinimumWordConfidence = 40.0F;
// Doubtful stretches read again on their own, at most, so a page of noise costs little more than one reading.
constexpr int kMaximumRereads = 8;

const QString kChinese = QStringLiteral("chi_sim");
const QString kEnglish = QStringLiteral("eng");

QStringList candidateDataDirs(const QString &explicitPath)
{
    if (!explicitPath.isEmpty())
        return {explicitPath};
    QStringList dirs;
    const QString prefix = qEnvironmentVariable("TESSDATA_PREFIX");
    if (!prefix.isEmpty())
        dirs << prefix << prefix + QStringLiteral("/tessdata");
    dirs << QStringLiteral("/usr/share/tesseract-ocr/5/tessdata")
         << QStringLiteral("/usr/share/tesseract-ocr/4.00/tessdata") << QStringLiteral("/usr/share/tessdata")
         << QStringLiteral("/usr/local/share/tessdata");
    return dirs;
}

bool hasLanguageData(const QString &dir, const QString &language)
{
    const QFileInfo file(dir + QLatin1Char('/') + language + QStringLiteral(".traineddata"));
    return file.isFile() && file.isReadable();
}

// WORKAROUND(Debian): libtesseract is built with OpenMP, whose worker threads spin for every line and, with
// several recognitions at once on few cores, make recognition many times slower. OMP_THREAD_LIMIT would help
// but the runtime reads it when it is loaded, before main(). Disabling nested parallel regions for the
// calling thread has the same effect; the setting belongs to that thread, so it is made before every
// recognition.
void limitOpenMpToThisThread()
{
    using SetMaxActiveLevels = void (*)(int);
    static const SetMaxActiveLevels setMaxActiveLevels =
        reinterpret_cast<SetMaxActiveLevels>(dlsym(RTLD_DEFAULT, "omp_set_max_active_levels"));
    if (setMaxActiveLevels)
        setMaxActiveLevels(0);
}

} // namespace

TesseractOcrProvider::TesseractOcrProvider(const QString &languages, const QString &dataPath)
{
    const QStringList requested = languages.split(QLatin1Char('+'), Qt::SkipEmptyParts);
    for (const QString &dir : candidateDataDirs(dataPath)) {
        QStringList chosen;
        if (requested.isEmpty()) {
            // The same choice as on the Mac: Chinese first, then English, whichever of them is installed.
            for (const QString &language : {kChinese, kEnglish}) {
                if (hasLanguageData(dir, language))
                    chosen << language;
            }
        } else if (std::all_of(requested.begin(), requested.end(),
                               [&dir](const QString &language) { return hasLanguageData(dir, language); })) {
            chosen = requested;
        }
        if (!chosen.isEmpty()) {
            m_languages = chosen;
            m_dataPath = dir;
            break;
        }
    }

    if (m_languages.isEmpty()) {
        qCWarning(lcOcr).noquote() << "TesseractOcrProvider: No language data for"
                                   << (requested.isEmpty() ? kChinese + QLatin1Char('+') + kEnglish
                                                           : languages)
                                   << "in" << candidateDataDirs(dataPath).join(QStringLiteral(", "));
        return;
    }
    qCDebug(lcOcr).noquote() << "TesseractOcrProvider: Using languages:" << m_languages.size()
                             << "(Chinese:" << m_languages.count(kChinese)
                             << ", English:" << m_languages.count(kEnglish) << ")" << this->languages()
                             << "from" << m_dataPath;
}

TesseractOcrProvider::~TesseractOcrProvider()
{
    // A recognition still running on the pool finishes before the engine goes away.
    QMutexLocker lock(&m_mutex);
    if (m_api)
        m_api->End();
}

bool TesseractOcrProvider::isAvailable()
{
    return !m_languages.isEmpty() && !m_loadFailed.load();
}

bool TesseractOcrProvider::isLoaded() const
{
    return m_loaded.load();
}

bool TesseractOcrProvider::ensureEngineLocked()
{
    if (m_api)
        return true;
    if (m_languages.isEmpty() || m_loadFailed.load())
        return false;

    QElapsedTimer timer;
    timer.start();
    auto api = std::make_unique<tesseract::TessBaseAPI>();
    if (api->Init(m_dataPath.toLocal8Bit().constData(), languages().toUtf8().constData(),
                  tesseract::OEM_LSTM_ONLY) != 0) {
        qCWarning(lcOcr).noquote() << "TesseractOcrProvider: Failed to load language data" << languages()
                                   << "from" << m_dataPath;
        m_loadFailed = true;
        return false;
    }
    // The engine reports every small doubt ("Empty page!!", diacritics) on standard error; the user can do
    // nothing with them.
    api->SetVariable("debug_file", "/dev/null");
    m_api = std::move(api);
    m_loaded = true;
    qCInfo(lcOcr).noquote() << "TesseractOcrProvider: Loaded" << languages() << "in" << timer.elapsed()
                            << "ms";
    return true;
}

void TesseractOcrProvider::setTimeLimit(int msecs)
{
    m_timeLimitMs = std::max(1, msecs);
}

// What one page segmentation mode made of the page.
struct TesseractOcrProvider::Reading
{
    QStringList lines;
    double confidentText = 0; // characters weighted by the engine's confidence in their words
    int lineCount = 0;        // lines the engine found, empty ones included
    bool timedOut = false;
};

TesseractOcrProvider::Reading TesseractOcrProvider::readLocked(const QImage &page, int mode,
                                                               tesseract::ETEXT_DESC &monitor)
{
    Reading reading;
    m_api->SetPageSegMode(tesseract::PageSegMode(mode));
    m_api->SetImage(page.constBits(), page.width(), page.height(), 1, int(page.bytesPerLine()));
    m_api->SetSourceResolution(kPreparedResolution);
    const int status = m_api->Recognize(&monitor);
    if (monitor.deadline_exceeded()) {
        reading.timedOut = true;
        return reading;
    }
    if (status != 0) {
        qCWarning(lcOcr).noquote() << "TesseractOcrProvider: Recognition failed";
        return reading;
    }
    struct Word
    {
        QRect box;
        qsizetype at = -1; // where the word starts in its line's text
        qsizetype size = 0;
        double score = 0; // characters weighted by confidence, as the page's confident text counts them
        bool doubtful = false;
    };
    struct Line
    {
        std::vector<Word> words;
        double confident = 0;
    };
    std::vector<Line> lines;
    std::unique_ptr<tesseract::ResultIterator> iterator(m_api->GetIterator());
    if (!iterator)
        return reading;
    const auto boxOf = [](tesseract::PageIterator &at, tesseract::PageIteratorLevel level) {
        int left = 0, top = 0, right = 0, bottom = 0;
        at.BoundingBox(level, &left, &top, &right, &bottom);
        return QRect(QPoint(left, top), QPoint(right - 1, bottom - 1));
    };
    qsizetype cursor = 0;
    do {
        if (iterator->IsAtBeginningOf(tesseract::RIL_TEXTLINE)) {
            std::unique_ptr<char[]> text(iterator->GetUTF8Text(tesseract::RIL_TEXTLINE));
            reading.lines << (text ? QString::fromUtf8(text.get()) : QString());
            lines.emplace_back();
            cursor = 0;
        }
        std::unique_ptr<char[]> word(iterator->GetUTF8Text(tesseract::RIL_WORD));
        if (!word || lines.empty())
            continue;
        const QString text = QString::fromUtf8(word.get()).trimmed();
        const float confidence = iterator->Confidence(tesseract::RIL_WORD);
        const qsizetype at = reading.lines.last().indexOf(text, cursor);
        if (at >= 0)
            cursor = at + text.size();
        // Noise read as letters comes with low confidence; it must not outweigh real words.
        const double score = confidence >= kMinimumWordConfidence ? text.size() * confidence / 100.0 : 0.0;
        lines.back().confident += score;
        lines.back().words.push_back({boxOf(*iterator, tesseract::RIL_WORD), at, text.size(), score,
                                      confidence < kMinimumWordConfidence});
    } while (iterator->Next(tesseract::RIL_WORD));
    iterator.reset();
    reading.lineCount = int(lines.size());

    // Within a page the engine first tries the language that read the previous word, so Chinese after English
    // (a label beside a key field, a description under it) can come out as Latin nonsense of near-zero
    // confidence. Such a stretch is read again on its own, and replaced where that reading is mostly
    // confident and more so than the first. (Doubting words of middling confidence too was tried: it mended
    // some lines and broke more.)
    int rereads = 0;
    bool outOfTime = false;
    for (size_t i = 0; i < lines.size() && rereads < kMaximumRereads && !outOfTime; ++i) {
        std::vector<Word> &words = lines[i].words;
        if (words.empty())
            continue;
        // The doubtful stretches [begin, end), each between confident words.
        std::vector<std::pair<size_t, size_t>> stretches;
        qsizetype lineCharacters = 0;
        for (size_t w = 0; w < words.size(); ++w) {
            lineCharacters += words[w].size;
            if (!words[w].doubtful)
                continue;
            if (!stretches.empty() && stretches.back().second == w)
                stretches.back().second = w + 1;
            else
                stretches.push_back({w, w + 1});
        }
        // A line mostly in doubt is read again whole, and so is one whose doubtful box reaches over a
        // confident neighbour: read again, that neighbour would be doubled.
        bool wholeLine = lines[i].confident * 2 < lineCharacters;
        for (const auto &[begin, end] : stretches) {
            QRect box;
            for (size_t w = begin; w < end; ++w)
                box |= words[w].box;
            wholeLine = wholeLine || (begin > 0 && box.left() <= words[begin - 1].box.right()) ||
                        (end < words.size() && box.right() >= words[end].box.left());
        }
        if (wholeLine && mode == tesseract::PSM_SINGLE_LINE)
            continue; // the same line in the same mode would read the same
        if (wholeLine)
            stretches = {{0, words.size()}};
        // From the end, so replacing one stretch leaves the positions of those before it valid.
        for (auto stretch = stretches.rbegin(); stretch != stretches.rend() && rereads < kMaximumRereads;
             ++stretch) {
            const auto [begin, end] = *stretch;
            QRect box;
            qsizetype characters = 0;
            double before = 0;
            for (size_t w = begin; w < end; ++w) {
                box |= words[w].box;
                characters += words[w].size;
                before += words[w].score;
            }
            const qsizetype from = words[begin].at, to = words[end - 1].at + words[end - 1].size;
            if (characters < 2 || from < 0 || words[end - 1].at < 0 || box.isEmpty())
                continue;
            ++rereads;
            // Room round the stretch: glyphs touching the rectangle's side are dropped, and above and below
            // lie the neighbouring lines.
            const int padX = std::max(4, box.height() / 2), padY = std::max(4, box.height() / 4);
            const QRect area = box.adjusted(-padX, -padY, padX, padY).intersected(page.rect());
            m_api->SetPageSegMode(tesseract::PSM_SINGLE_LINE);
            m_api->SetRectangle(area.x(), area.y(), area.width(), area.height());
            // Out of time, the first reading stands as it is.
            if (m_api->Recognize(&monitor) != 0 || monitor.deadline_exceeded()) {
                outOfTime = true;
                break;
            }
            std::unique_ptr<tesseract::ResultIterator> again(m_api->GetIterator());
            QStringList reread;
            double confident = 0;
            qsizetype total = 0;
            if (again) {
                do {
                    std::unique_ptr<char[]> word(again->GetUTF8Text(tesseract::RIL_WORD));
                    if (!word)
                        continue;
                    const QString text = QString::fromUtf8(word.get()).trimmed();
                    const float confidence = again->Confidence(tesseract::RIL_WORD);
                    reread << text;
                    total += text.size();
                    if (confidence >= kMinimumWordConfidence)
                        confident += text.size() * confidence / 100.0;
                } while (again->Next(tesseract::RIL_WORD));
            }
            if (confident * 2 >= total && confident > before) {
                reading.lines[int(i)].replace(from, to - from, reread.join(QLatin1Char(' ')));
                lines[i].confident += confident - before;
            }
        }
    }
    for (const Line &line : lines)
        reading.confidentText += line.confident;
    return reading;
}

QString TesseractOcrProvider::recognize(QImage image)
{
    return recognizeRegion(std::move(image)).text;
}

OcrOutcome TesseractOcrProvider::recognizeRegion(QImage image)
{
    if (image.isNull()) {
        qCWarning(lcOcr).noquote() << "TesseractOcrProvider: Input image is null";
        return {};
    }
    // Preparation needs no engine, so overlapping recognitions do it in parallel.
    const OcrPreparedImage prepared = vontrelPrepareImageForOcr(image);

    QMutexLocker lock(&m_mutex);
    if (!ensureEngineLocked())
        return {};
    limitOpenMpToThisThread();

    tesseract::ETEXT_DESC monitor;
    monitor.set_deadline_msecs(m_timeLimitMs);
    // Each line is read on its own, in the engine's line mode: its page layout analysis, made for scanned
    // paper, splits screen lines into columns at wide gaps, drops short lines ("{" alone) and merges a
    // selected row with its neighbours. Lines we could not tell apart are read as a block.
    Reading best;
    QStringList text;
    const std::vector<OcrPreparedLine> &lines = prepared.lines;
    for (size_t i = 0; i < lines.size() && !best.timedOut; ++i) {
        Reading line =
            readLocked(lines[i].image,
                       lines[i].block ? tesseract::PSM_SINGLE_BLOCK : tesseract::PSM_SINGLE_LINE, monitor);
        const auto characters = [](const Reading &reading) {
            qsizetype count = 0;
            for (const QString &read : reading.lines)
                count += read.trimmed().size();
            return count;
        };
        // Short Chinese lines in line mode sometimes come out as Latin nonsense of little confidence; in
        // block mode the engine weighs its languages anew, so a doubtful line is read that way too and the
        // more confident reading kept.
        if (!line.timedOut && !lines[i].block && line.confidentText * 2 < characters(line)) {
            Reading again = readLocked(lines[i].image, tesseract::PSM_SINGLE_BLOCK, monitor);
            if (again.timedOut || again.confidentText > line.confidentText)
                line = std::move(again);
        }
        best.timedOut = line.timedOut;
        // The rest of a line cut off by the region's edge reads as a few doubtful letters; a whole line
        // there reads with confidence.
        if (lines[i].atEdge && lines.size() > 1 && line.confidentText * 2 < characters(line))
            continue;
        text << line.lines;
    }
    if (lines.empty()) {
        best = readLocked(prepared.image, tesseract::PSM_SINGLE_BLOCK, monitor);
        text = best.lines;
    }
    // Drops the page but keeps the models loaded for the next recognition.
    m_api->Clear();
    if (best.timedOut) {
        qCWarning(lcOcr).noquote() << "TesseractOcrProvider: Gave up on a" << image.width() << "x"
                                   << image.height() << "region after" << m_timeLimitMs << "ms";
        return {QString(),
                QStringLiteral("The region is too complex to recognise within %1 seconds; select a "
                               "smaller region")
                    .arg(qMax(1, m_timeLimitMs / 1000))};
    }
    return {vontrelJoinOcrLines(text), QString()};
}
