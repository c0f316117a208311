// Character error rate and time per image of our recogniser and of the tesseract command line, on the same
// generated screen-text images. Run through bench/ocr/run.sh.
#include "OcrBenchCorpus.h"

#include "ocr/IOcrProvider.h"
#include "ocr/OcrPreprocessing.h"
#include "platform/Platform.h"

#include <QCommandLineParser>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QGuiApplication>
#include <QMap>
#include <QProcess>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTextStream>

#include <algorithm>
#include <vector>

namespace {

QTextStream out(stdout);

bool isCjk(QChar c)
{
    const ushort u = c.unicode();
    return (u >= 0x2E80 && u <= 0x9FFF) || (u >= 0xF900 && u <= 0xFAFF) || (u >= 0xFF00 && u <= 0xFF60);
}

// Both recognisers are judged on the characters, not on typography: compatibility forms folded (full-width
// "？" counts as "?"), each line trimmed, runs of spaces made one, spaces next to Chinese characters dropped
// (whether "3 个" has a space is a matter of style), empty lines dropped.
QString normalised(const QString &text)
{
    QStringList kept;
    for (const QString &rawLine : text.normalized(QString::NormalizationForm_KC).split(QLatin1Char('\n'))) {
        const QString line = rawLine.simplified();
        QString cleaned;
        for (int i = 0; i < line.size(); ++i) {
            if (line.at(i) == QLatin1Char(' ') && i > 0 && i + 1 < line.size() &&
                (isCjk(line.at(i - 1)) || isCjk(line.at(i + 1))))
                continue;
            cleaned.append(line.at(i));
        }
        if (!cleaned.isEmpty())
            kept.append(cleaned);
    }
    return kept.join(QLatin1Char('\n'));
}

int editDistance(const QString &a, const QString &b)
{
    std::vector<int> previous(b.size() + 1), current(b.size() + 1);
    for (int j = 0; j <= b.size(); ++j)
        previous[j] = j;
    for (int i = 1; i <= a.size(); ++i) {
        current[0] = i;
        for (int j = 1; j <= b.size(); ++j) {
            const int substitution = previous[j - 1] + (a.at(i - 1) == b.at(j - 1) ? 0 : 1);
            current[j] = std::min({previous[j] + 1, current[j - 1] + 1, substitution});
        }
        std::swap(previous, current);
    }
    return previous[b.size()];
}

struct Tally
{
    qint64 errors = 0;
    qint64 characters = 0;
    int images = 0;
    int exact = 0;
    int empty = 0;           // came back with no text at all
    int emptyWhereOther = 0; // ... while the other recogniser read something
    double rate() const { return characters ? 100.0 * errors / characters : 0.0; }
};

struct Score
{
    QMap<QString, Tally> byCategory;
    std::vector<double> times;
};

QStringList categoriesOf(const OcrBenchSample &sample)
{
    if (sample.language == QLatin1String("window"))
        return {QStringLiteral("all windows"), sample.kind};
    if (!sample.kind.isEmpty()) {
        QStringList categories{QStringLiteral("all messy"), sample.kind,
                               sample.dark ? QStringLiteral("messy dark") : QStringLiteral("messy light"),
                               QStringLiteral("messy ratio %1").arg(sample.ratio)};
        if (sample.bold)
            categories << QStringLiteral("messy bold");
        return categories;
    }
    const bool small = sample.pixelSize <= 14;
    const QString size = small ? QStringLiteral("11-14 px") : QStringLiteral("16-20 px");
    return {QStringLiteral("all"),
            size,
            QStringLiteral("ratio %1").arg(sample.ratio),
            sample.dark ? QStringLiteral("dark") : QStringLiteral("light"),
            sample.language,
            size + QLatin1Char(' ') + sample.language,
            size + QLatin1String(" ratio ") + QString::number(sample.ratio),
            size + QLatin1Char(' ') + (sample.dark ? QStringLiteral("dark") : QStringLiteral("light"))};
}

void count(Score &score, const OcrBenchSample &sample, const QString &recognised, const QString &other)
{
    const QString truth = normalised(sample.truth);
    const QString got = normalised(recognised);
    const int errors = editDistance(got, truth);
    for (const QString &category : categoriesOf(sample)) {
        Tally &tally = score.byCategory[category];
        tally.errors += errors;
        tally.characters += truth.size();
        tally.images += 1;
        tally.exact += errors == 0 ? 1 : 0;
        tally.empty += got.isEmpty() ? 1 : 0;
        tally.emptyWhereOther += got.isEmpty() && !normalised(other).isEmpty() ? 1 : 0;
    }
}

double median(std::vector<double> values)
{
    if (values.empty())
        return 0.0;
    std::sort(values.begin(), values.end());
    const size_t middle = values.size() / 2;
    return values.size() % 2 ? values[middle] : (values[middle - 1] + values[middle]) / 2;
}

long residentKiB()
{
    QFile status(QStringLiteral("/proc/self/status"));
    if (!status.open(QIODevice::ReadOnly))
        return 0;
    for (const QByteArray &line : status.readAll().split('\n')) {
        if (line.startsWith("VmRSS:"))
            return line.mid(6).trimmed().split(' ').value(0).toLong();
    }
    return 0;
}

struct Run
{
    Score ours;
    Score cli;
    bool withCli = false;
};

// Recognises every sample with both recognisers, alternating so that a busy machine favours neither.
Run evaluate(IOcrProvider &provider, const QVector<OcrBenchSample> &samples, const QString &imageDir,
             bool withCli, bool verbose)
{
    auto report = [verbose](const char *who, const OcrBenchSample &sample, const QString &text) {
        if (verbose && normalised(text) != normalised(sample.truth))
            out << "--- " << who << " " << sample.name
                << "\n  truth: " << QString(sample.truth).replace('\n', " | ")
                << "\n  got:   " << QString(text).replace('\n', " | ") << "\n";
    };
    Run run;
    run.withCli = withCli;
    QElapsedTimer timer;
    for (const OcrBenchSample &sample : samples) {
        timer.start();
        const QString text = provider.recognize(sample.image);
        run.ours.times.push_back(timer.nsecsElapsed() / 1e6);
        QString cliText;
        if (withCli) {
            // The command line keeps all its defaults (page segmentation, OpenMP threads, dictionaries) but
            // is given the same languages: its default, English alone, cannot read the Chinese half at all.
            QProcess process;
            timer.restart();
            process.start(QStringLiteral("tesseract"),
                          {imageDir + QLatin1Char('/') + sample.name + QStringLiteral(".png"),
                           QStringLiteral("stdout"), QStringLiteral("-l"), QStringLiteral("chi_sim+eng")});
            process.waitForFinished(120000);
            run.cli.times.push_back(timer.nsecsElapsed() / 1e6);
            cliText = QString::fromUtf8(process.readAllStandardOutput());
            count(run.cli, sample, cliText, text);
            report("cli", sample, cliText);
        }
        count(run.ours, sample, text, withCli ? cliText : text);
        report("ours", sample, text);
    }
    return run;
}

void printTable(const Run &run, const QStringList &categories)
{
    out << QStringLiteral("%1 %2 %3 %4 %5 %6 %7 %8\n")
               .arg(QStringLiteral("category"), -22)
               .arg(QStringLiteral("images"), 6)
               .arg(QStringLiteral("ours"), 7)
               .arg(QStringLiteral("exact"), 6)
               .arg(QStringLiteral("empty"), 6)
               .arg(QStringLiteral("cli"), 7)
               .arg(QStringLiteral("exact"), 6)
               .arg(QStringLiteral("empty"), 6);
    for (const QString &category : categories) {
        if (!run.ours.byCategory.contains(category))
            continue;
        const Tally mine = run.ours.byCategory.value(category);
        const Tally theirs = run.cli.byCategory.value(category);
        const auto cli = [&run](const QString &value) {
            return run.withCli ? value : QStringLiteral("-");
        };
        out << QStringLiteral("%1 %2 %3 %4 %5 %6 %7 %8\n")
                   .arg(category, -22)
                   .arg(mine.images, 6)
                   .arg(mine.rate(), 7, 'f', 2)
                   .arg(mine.exact, 6)
                   .arg(mine.empty, 6)
                   .arg(cli(QString::number(theirs.rate(), 'f', 2)), 7)
                   .arg(cli(QString::number(theirs.exact)), 6)
                   .arg(cli(QString::number(theirs.empty)), 6);
    }
}

void printTimes(const Run &run)
{
    out << "Time per image (ms): ours median " << QString::number(median(run.ours.times), 'f', 1);
    if (run.withCli) {
        const double ratio = median(run.ours.times) / qMax(1e-9, median(run.cli.times));
        out << ", cli median " << QString::number(median(run.cli.times), 'f', 1) << " (ours/cli "
            << QString::number(ratio, 'f', 2) << ")";
    }
    out << "\n";
}

void saveSamples(const QVector<OcrBenchSample> &samples, const QString &imageDir)
{
    for (const OcrBenchSample &sample : samples) {
        sample.image.save(imageDir + QLatin1Char('/') + sample.name + QStringLiteral(".png"));
        QFile truth(imageDir + QLatin1Char('/') + sample.name + QStringLiteral(".gt.txt"));
        if (truth.open(QIODevice::WriteOnly))
            truth.write(sample.truth.toUtf8() + '\n');
    }
}

// Regions saved by bench/ocr/appwindows/generate.py: KIND__NAME.png beside KIND__NAME.gt.txt.
QVector<OcrBenchSample> loadSamples(const QString &dir)
{
    QVector<OcrBenchSample> samples;
    const QStringList names = QDir(dir).entryList({QStringLiteral("*.png")}, QDir::Files, QDir::Name);
    for (const QString &file : names) {
        OcrBenchSample sample;
        sample.name = file.chopped(4);
        sample.image = QImage(dir + QLatin1Char('/') + file);
        QFile truth(dir + QLatin1Char('/') + sample.name + QStringLiteral(".gt.txt"));
        if (sample.image.isNull() || !truth.open(QIODevice::ReadOnly))
            continue;
        sample.truth = QString::fromUtf8(truth.readAll()).trimmed();
        sample.kind = sample.name.section(QStringLiteral("__"), 0, 0);
        sample.language = QStringLiteral("window");
        samples.append(sample);
    }
    return samples;
}

} // namespace

int main(int argc, char *argv[])
{
    QGuiApplication app(argc, argv);
    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral("OCR accuracy and speed on generated screen text"));
    parser.addHelpOption();
    const QCommandLineOption variantsOption(
        QStringLiteral("variants"), QStringLiteral("clean images per category combination (default 2)"),
        QStringLiteral("N"), QStringLiteral("2"));
    const QCommandLineOption messyOption(
        QStringLiteral("messy"),
        QStringLiteral("messy images per kind, ratio and theme (default 4; 0 skips them)"),
        QStringLiteral("N"), QStringLiteral("4"));
    const QCommandLineOption seedOption(QStringLiteral("seed"),
                                        QStringLiteral("draws the messy images (default 11)"),
                                        QStringLiteral("N"), QStringLiteral("11"));
    const QCommandLineOption cleanOption(QStringLiteral("no-clean"), QStringLiteral("skip the clean images"));
    const QCommandLineOption keepOption(QStringLiteral("keep"), QStringLiteral("write the images to DIR"),
                                        QStringLiteral("DIR"));
    const QCommandLineOption noCliOption(QStringLiteral("no-cli"),
                                         QStringLiteral("skip the tesseract command line"));
    const QCommandLineOption verboseOption(QStringLiteral("verbose"),
                                           QStringLiteral("show every misread image"));
    const QCommandLineOption windowsOption(
        QStringLiteral("windows"),
        QStringLiteral("also read the application-window regions in DIR (bench/ocr/appwindows/generate.py)"),
        QStringLiteral("DIR"));
    parser.addOptions({variantsOption, messyOption, seedOption, cleanOption, keepOption, noCliOption,
                       verboseOption, windowsOption});
    parser.process(app);

    const QVector<OcrBenchSample> clean =
        parser.isSet(cleanOption) ? QVector<OcrBenchSample>()
                                  : vontrelBenchOcrSamples(qMax(1, parser.value(variantsOption).toInt()));
    const int messyCount = parser.value(messyOption).toInt();
    const QVector<OcrBenchSample> messy =
        messyCount > 0 ? vontrelBenchOcrArtefactSamples(messyCount, parser.value(seedOption).toUInt())
                       : QVector<OcrBenchSample>();
    if (qEnvironmentVariableIsSet("VONTREL_BENCH_DUMP")) {
        // What the recogniser is handed, line by line, for looking at misreads.
        const QString dump = qEnvironmentVariable("VONTREL_BENCH_DUMP");
        QDir().mkpath(dump);
        for (const OcrBenchSample &sample : loadSamples(parser.value(windowsOption))) {
            const OcrPreparedImage prepared = vontrelPrepareImageForOcr(sample.image);
            prepared.image.save(dump + QLatin1Char('/') + sample.name + QStringLiteral(".page.png"));
            for (size_t i = 0; i < prepared.lines.size(); ++i)
                prepared.lines[i].image.save(dump + QStringLiteral("/%1.%2%3.png")
                                                        .arg(sample.name)
                                                        .arg(i, 2, 10, QLatin1Char('0'))
                                                        .arg(prepared.lines[i].block    ? "b"
                                                             : prepared.lines[i].atEdge ? "e"
                                                                                        : ""));
        }
        return 0;
    }
    const QString windowsDir = parser.value(windowsOption);
    const QVector<OcrBenchSample> windows =
        windowsDir.isEmpty() ? QVector<OcrBenchSample>() : loadSamples(windowsDir);
    QTemporaryDir temporary;
    const QString imageDir = parser.isSet(keepOption) ? parser.value(keepOption) : temporary.path();
    QDir().mkpath(imageDir);
    saveSamples(clean, imageDir);
    saveSamples(messy, imageDir);
    out << "OCR benchmark: " << clean.size() << " clean and " << messy.size() << " messy images in "
        << imageDir << "\n"
        << "ours: the Tesseract provider in process; cli: 'tesseract IMAGE stdout -l chi_sim+eng', one "
           "process per image\n";
    out.flush();

    // The first recognition loads the models and is reported on its own.
    const long rssBefore = residentKiB();
    std::unique_ptr<IOcrProvider> provider = Platform::create()->createOcrProvider();
    if (!provider->isAvailable()) {
        out << "Our recogniser is not available (no language data)\n";
        return 1;
    }
    QElapsedTimer timer;
    timer.start();
    provider->recognize(!clean.isEmpty()   ? clean.first().image
                        : !messy.isEmpty() ? messy.first().image
                                           : windows.value(0).image);
    const double coldMs = timer.nsecsElapsed() / 1e6;
    const long rssLoaded = residentKiB();
    const bool withCli =
        !parser.isSet(noCliOption) && !QStandardPaths::findExecutable(QStringLiteral("tesseract")).isEmpty();
    const bool verbose = parser.isSet(verboseOption);

    if (!clean.isEmpty()) {
        const Run run = evaluate(*provider, clean, imageDir, withCli, verbose);
        out << "\nClean, tightly dragged text: character error rate (%), lower is better; exact = images "
               "read "
               "without any error, empty = no text at all\n";
        QStringList categories = run.ours.byCategory.keys();
        categories.removeAll(QStringLiteral("all"));
        categories.prepend(QStringLiteral("all"));
        printTable(run, categories);
        printTimes(run);
        if (withCli) {
            const double smallOurs = run.ours.byCategory.value(QStringLiteral("11-14 px")).rate();
            const double smallCli = run.cli.byCategory.value(QStringLiteral("11-14 px")).rate();
            out << "Target: small text CER at most half the command line's: "
                << QString::number(smallOurs, 'f', 2) << "% vs " << QString::number(smallCli, 'f', 2)
                << "% -> " << (smallOurs <= smallCli / 2 ? "met" : "NOT met") << "\n";
            out << "Target: no image empty where the command line reads text: "
                << run.ours.byCategory.value(QStringLiteral("all")).emptyWhereOther << " -> "
                << (run.ours.byCategory.value(QStringLiteral("all")).emptyWhereOther == 0 ? "met" : "NOT met")
                << "\n";
        }
        out.flush();
    }
    if (!messy.isEmpty()) {
        const Run run = evaluate(*provider, messy, imageDir, withCli, verbose);
        out << "\nMessy captures (what a hand-dragged region catches besides the text), by kind\n";
        printTable(run, vontrelBenchOcrArtefactKinds() +
                            QStringList{QStringLiteral("messy light"), QStringLiteral("messy dark"),
                                        QStringLiteral("messy ratio 1"), QStringLiteral("messy ratio 2"),
                                        QStringLiteral("messy bold"), QStringLiteral("all messy")});
        printTimes(run);
        if (withCli) {
            QStringList worse;
            for (const QString &kind : vontrelBenchOcrArtefactKinds()) {
                if (run.ours.byCategory.value(kind).rate() > run.cli.byCategory.value(kind).rate())
                    worse << kind;
            }
            const Tally all = run.ours.byCategory.value(QStringLiteral("all messy"));
            const double cliAll = run.cli.byCategory.value(QStringLiteral("all messy")).rate();
            out << "Target: every kind at most the command line's CER: "
                << (worse.isEmpty() ? QStringLiteral("met")
                                    : QStringLiteral("NOT met (") + worse.join(", ") + ")")
                << "\n";
            out << "Target: overall at most half the command line's: " << QString::number(all.rate(), 'f', 2)
                << "% vs " << QString::number(cliAll, 'f', 2) << "% -> "
                << (all.rate() <= cliAll / 2 ? "met" : "NOT met") << "\n";
            out << "Target: no image empty where the command line reads text: " << all.emptyWhereOther
                << " -> " << (all.emptyWhereOther == 0 ? "met" : "NOT met") << "\n";
        }
    }

    if (!windows.isEmpty()) {
        const Run run = evaluate(*provider, windows, windowsDir, withCli, verbose);
        out << "\nApplication windows (real toolkits, regions dragged with slack), by kind\n";
        QStringList kinds = run.ours.byCategory.keys();
        kinds.removeAll(QStringLiteral("all windows"));
        printTable(run, kinds << QStringLiteral("all windows"));
        printTimes(run);
        out << "Images read empty: " << run.ours.byCategory.value(QStringLiteral("all windows")).empty
            << "\n";
    }

    out << "\nFirst recognition (loads the models): " << QString::number(coldMs, 'f', 1) << " ms\n"
        << "Memory: resident " << rssBefore / 1024 << " MiB before the models, " << rssLoaded / 1024
        << " MiB with them loaded\n";
    return 0;
}
