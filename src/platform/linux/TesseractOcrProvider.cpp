#include "platform/linux/TesseractOcrProvider.h"

#include "ocr/OcrPreprocessing.h"

#include <QDebug>
#include <QElapsedTimer>
#include <QFileInfo>
#include <QMutexLocker>

#include <tesseract/baseapi.h>
#include <tesseract/resultiterator.h>

#include <algorithm>

#include <dlfcn.h>

namespace {

// Prepared images are scaled so that text is as tall as in a 300 dpi scan; telling the engine so keeps it
// from guessing (and logging) a resolution of its own.
constexpr int kPreparedResolution = 300;

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
        qWarning().noquote() << "TesseractOcrProvider: No language data for"
                             << (requested.isEmpty() ? kChinese + QLatin1Char('+') + kEnglish : languages)
                             << "in" << candidateDataDirs(dataPath).join(QStringLiteral(", "));
        return;
    }
    qDebug().noquote() << "TesseractOcrProvider: Using languages:" << m_languages.size()
                       << "(Chinese:" << m_languages.count(kChinese)
                       << ", English:" << m_languages.count(kEnglish) << ")" << this->languages() << "from"
                       << m_dataPath;
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
        qWarning().noquote() << "TesseractOcrProvider: Failed to load language data" << languages() << "from"
                             << m_dataPath;
        m_loadFailed = true;
        return false;
    }
    // The engine reports every small doubt ("Empty page!!", diacritics) on standard error; the user can do
    // nothing with them.
    api->SetVariable("debug_file", "/dev/null");
    m_api = std::move(api);
    m_loaded = true;
    qInfo().noquote() << "TesseractOcrProvider: Loaded" << languages() << "in" << timer.elapsed() << "ms";
    return true;
}

QString TesseractOcrProvider::recognize(QImage image)
{
    if (image.isNull()) {
        qWarning().noquote() << "TesseractOcrProvider: Input image is null";
        return QString();
    }
    // Preparation needs no engine, so overlapping recognitions do it in parallel.
    const OcrPreparedImage prepared = vontrelPrepareImageForOcr(image);

    QMutexLocker lock(&m_mutex);
    if (!ensureEngineLocked())
        return QString();
    limitOpenMpToThisThread();

    // A dragged region is one block of text; with a single band of ink the line mode also keeps short words
    // from being read as noise.
    m_api->SetPageSegMode(prepared.lineCount == 1 ? tesseract::PSM_SINGLE_LINE : tesseract::PSM_SINGLE_BLOCK);
    const QImage &page = prepared.image;
    m_api->SetImage(page.constBits(), page.width(), page.height(), 1, int(page.bytesPerLine()));
    m_api->SetSourceResolution(kPreparedResolution);
    if (m_api->Recognize(nullptr) != 0) {
        qWarning().noquote() << "TesseractOcrProvider: Recognition failed";
        m_api->Clear();
        return QString();
    }

    QStringList lines;
    std::unique_ptr<tesseract::ResultIterator> iterator(m_api->GetIterator());
    if (iterator) {
        do {
            std::unique_ptr<char[]> text(iterator->GetUTF8Text(tesseract::RIL_TEXTLINE));
            if (text)
                lines << QString::fromUtf8(text.get());
        } while (iterator->Next(tesseract::RIL_TEXTLINE));
    }
    iterator.reset();
    // Drops the page but keeps the models loaded for the next recognition.
    m_api->Clear();
    return vontrelJoinOcrLines(lines);
}

std::unique_ptr<IOcrProvider> vontrelCreateOcrProvider(const QString &languages)
{
    return std::make_unique<TesseractOcrProvider>(languages);
}
