#include "CliCommands.h"

#include "ocr/IOcrProvider.h"
#include "platform/Platform.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QFileInfo>
#include <QImageReader>
#include <QLoggingCategory>
#include <QTextStream>

#include <cstdio>

namespace {

const char kUsage[] =
    "Usage: vontrel-cli ocr [OPTIONS] IMAGE...\n"
    "\n"
    "Prints the text recognised in each IMAGE, with the same recogniser as the screen capture.\n"
    "With several images, each text is preceded by a line \"==> IMAGE <==\" and followed by an empty line.\n"
    "\n"
    "Options:\n"
    "  --lang LANGUAGES  language data for this run, joined by '+', e.g. eng or chi_sim+eng\n"
    "                    (default: Simplified Chinese and English, whichever is installed)\n"
    "  --verbose         print diagnostics on standard error\n"
    "  -h, --help        show this help\n"
    "\n"
    "Exit status: 0 when every image was read, 1 when an image could not be read or text recognition\n"
    "is not available, 2 on a usage error.\n";

// The image, or why there is none in words a terminal user can act on (Qt's own reasons are often "Unknown
// error" for these).
QImage readImage(const QString &path, QString *problem)
{
    const QFileInfo file(path);
    if (!file.exists()) {
        *problem = QStringLiteral("no such file");
        return QImage();
    }
    if (file.isDir()) {
        *problem = QStringLiteral("is a directory, not an image");
        return QImage();
    }
    if (!file.isReadable()) {
        *problem = QStringLiteral("permission denied");
        return QImage();
    }
    QImageReader reader(path);
    // Photos of a screen carry their orientation in metadata; read them the way a viewer shows them.
    reader.setAutoTransform(true);
    const QSize size = reader.size();
    const qint64 limitBytes = qint64(QImageReader::allocationLimit()) * 1024 * 1024;
    if (size.isValid() && limitBytes > 0 && qint64(size.width()) * size.height() * 4 > limitBytes) {
        *problem = QStringLiteral("the image is too large (%1 x %2 pixels; at most %3 MB once decoded)")
                       .arg(size.width())
                       .arg(size.height())
                       .arg(QImageReader::allocationLimit());
        return QImage();
    }
    const QImage image = reader.read();
    if (image.isNull())
        *problem = QStringLiteral("cannot read the image: %1").arg(reader.errorString());
    return image;
}

} // namespace

int vontrelCliOcr(const QStringList &arguments)
{
    QCommandLineParser parser;
    parser.setSingleDashWordOptionMode(QCommandLineParser::ParseAsLongOptions);
    const QCommandLineOption langOption(QStringLiteral("lang"), QString(), QStringLiteral("LANGUAGES"));
    const QCommandLineOption verboseOption(QStringLiteral("verbose"));
    const QCommandLineOption helpOption(QStringList{QStringLiteral("h"), QStringLiteral("help")});
    parser.addOptions({langOption, verboseOption, helpOption});

    if (!parser.parse(QStringList{QStringLiteral("vontrel-cli ocr")} + arguments)) {
        vontrelCliWriteError(parser.errorText() +
                             QStringLiteral("\nRun 'vontrel-cli ocr --help' for the options."));
        return kCliExitUsage;
    }
    if (parser.isSet(helpOption)) {
        vontrelCliWriteOut(QString::fromUtf8(kUsage));
        return 0;
    }
    const QStringList paths = parser.positionalArguments();
    if (paths.isEmpty()) {
        vontrelCliWriteError(QStringLiteral("no image given\nRun 'vontrel-cli ocr --help' for the options."));
        return kCliExitUsage;
    }
    if (parser.isSet(langOption) && parser.value(langOption).trimmed().isEmpty()) {
        vontrelCliWriteError(QStringLiteral("--lang needs a language, e.g. eng or chi_sim+eng"));
        return kCliExitUsage;
    }
    if (!parser.isSet(verboseOption)) {
        // The engine's diagnostics are for the log; a terminal user sees only the text or the error.
        QLoggingCategory::setFilterRules(QStringLiteral("*.debug=false\n*.info=false\n*.warning=false"));
    }

    const std::unique_ptr<IOcrProvider> provider =
        Platform::create()->createOcrProvider(parser.value(langOption).trimmed());
    if (!provider->isAvailable()) {
        vontrelCliWriteError(
            QStringLiteral("OCR not available on this system") +
            (parser.isSet(langOption)
                 ? QStringLiteral(" (no language data for '%1')").arg(parser.value(langOption))
                 : QString()));
        return kCliExitFailed;
    }

    const bool several = paths.size() > 1;
    int status = 0;
    for (const QString &path : paths) {
        QString problem;
        const QImage image = readImage(path, &problem);
        if (image.isNull()) {
            vontrelCliWriteError(QStringLiteral("%1: %2").arg(path, problem));
            status = kCliExitFailed;
            continue;
        }
        const OcrOutcome outcome = provider->recognizeRegion(image);
        // The recogniser may have failed to load its data only now, on the first image.
        if (!provider->isAvailable()) {
            vontrelCliWriteError(QStringLiteral("OCR not available on this system"));
            return kCliExitFailed;
        }
        if (!outcome.error.isEmpty()) {
            vontrelCliWriteError(QStringLiteral("%1: %2").arg(path, outcome.error));
            status = kCliExitFailed;
            continue;
        }
        const QString &text = outcome.text;
        if (text.isEmpty() && !several)
            vontrelCliWriteError(QStringLiteral("%1: no text found").arg(path));
        QString block;
        if (several)
            block += QStringLiteral("==> %1 <==\n").arg(path);
        if (!text.isEmpty())
            block += text + QLatin1Char('\n');
        if (several)
            block += QLatin1Char('\n');
        vontrelCliWriteOut(block);
    }
    return status;
}
