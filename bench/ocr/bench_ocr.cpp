// Character error rate and time per image of our recogniser and of the tesseract command line, on the same
// generated screen-text images. Run through bench/ocr/run.sh.
#include "OcrBenchCorpus.h"

#include "ocr/IOcrProvider.h"

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
    double rate() const { return characters ? 100.0 * errors / characters : 0.0; }
};

struct Score
{
    QMap<QString, Tally> byCategory;
    std::vector<double> times;
};

QStringList categoriesOf(const OcrBenchSample &sample)
{
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

void count(Score &score, const OcrBenchSample &sample, const QString &recognised)
{
    const QString truth = normalised(sample.truth);
    const int errors = editDistance(normalised(recognised), truth);
    for (const QString &category : categoriesOf(sample)) {
        Tally &tally = score.byCategory[category];
        tally.errors += errors;
        tally.characters += truth.size();
        tally.images += 1;
        tally.exact += errors == 0 ? 1 : 0;
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

} // namespace

int main(int argc, char *argv[])
{
    QGuiApplication app(argc, argv);
    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral("OCR accuracy and speed on generated screen text"));
    parser.addHelpOption();
    const QCommandLineOption variantsOption(QStringLiteral("variants"),
                                            QStringLiteral("images per category combination (default 2)"),
                                            QStringLiteral("N"), QStringLiteral("2"));
    const QCommandLineOption keepOption(QStringLiteral("keep"), QStringLiteral("write the images to DIR"),
                                        QStringLiteral("DIR"));
    const QCommandLineOption noCliOption(QStringLiteral("no-cli"),
                                         QStringLiteral("skip the tesseract command line"));
    const QCommandLineOption verboseOption(QStringLiteral("verbose"),
                                           QStringLiteral("show every misread image"));
    parser.addOptions({variantsOption, keepOption, noCliOption, verboseOption});
    parser.process(app);

    const QVector<OcrBenchSample> samples =
        vontrelBenchOcrSamples(qMax(1, parser.value(variantsOption).toInt()));
    QTemporaryDir temporary;
    const QString imageDir = parser.isSet(keepOption) ? parser.value(keepOption) : temporary.path();
    QDir().mkpath(imageDir);
    for (const OcrBenchSample &sample : samples) {
        sample.image.save(imageDir + QLatin1Char('/') + sample.name + QStringLiteral(".png"));
        QFile truth(imageDir + QLatin1Char('/') + sample.name + QStringLiteral(".gt.txt"));
        if (truth.open(QIODevice::WriteOnly))
            truth.write(sample.truth.toUtf8() + '\n');
    }
    out << "OCR benchmark: " << samples.size() << " images in " << imageDir << "\n"
        << "ours: the Tesseract provider in process; cli: 'tesseract IMAGE stdout -l chi_sim+eng', one "
           "process per image\n";

    const bool verbose = parser.isSet(verboseOption);
    auto report = [verbose](const char *who, const OcrBenchSample &sample, const QString &text) {
        if (verbose && normalised(text) != normalised(sample.truth))
            out << "--- " << who << " " << sample.name
                << "\n  truth: " << QString(sample.truth).replace('\n', " | ")
                << "\n  got:   " << QString(text).replace('\n', " | ") << "\n";
    };

    // Ours, in process: the first recognition loads the models and is reported on its own.
    const long rssBefore = residentKiB();
    std::unique_ptr<IOcrProvider> provider = vontrelCreateOcrProvider();
    if (!provider->isAvailable()) {
        out << "Our recogniser is not available (no language data)\n";
        return 1;
    }
    QElapsedTimer timer;
    timer.start();
    provider->recognize(samples.first().image);
    const double coldMs = timer.nsecsElapsed() / 1e6;
    const long rssLoaded = residentKiB();
    Score ours;
    Score cli;
    const bool runCli =
        !parser.isSet(noCliOption) && !QStandardPaths::findExecutable(QStringLiteral("tesseract")).isEmpty();
    // Alternating between the two keeps a busy machine from favouring either side.
    for (const OcrBenchSample &sample : samples) {
        timer.restart();
        const QString text = provider->recognize(sample.image);
        ours.times.push_back(timer.nsecsElapsed() / 1e6);
        count(ours, sample, text);
        report("ours", sample, text);
        if (!runCli)
            continue;
        // The command line keeps all its defaults (page segmentation, OpenMP threads, dictionaries) but is
        // given the same languages: its default, English alone, cannot read the Chinese half of the set at
        // all.
        QProcess process;
        timer.restart();
        process.start(QStringLiteral("tesseract"),
                      {imageDir + QLatin1Char('/') + sample.name + QStringLiteral(".png"),
                       QStringLiteral("stdout"), QStringLiteral("-l"), QStringLiteral("chi_sim+eng")});
        process.waitForFinished(120000);
        cli.times.push_back(timer.nsecsElapsed() / 1e6);
        const QString cliText = QString::fromUtf8(process.readAllStandardOutput());
        count(cli, sample, cliText);
        report("cli", sample, cliText);
    }

    out << "\nCharacter error rate (%), lower is better; exact = images read without any error\n";
    out << QStringLiteral("%1 %2 %3 %4 %5 %6\n")
               .arg(QStringLiteral("category"), -26)
               .arg(QStringLiteral("images"), 7)
               .arg(QStringLiteral("ours"), 8)
               .arg(QStringLiteral("exact"), 7)
               .arg(QStringLiteral("cli"), 8)
               .arg(QStringLiteral("exact"), 7);
    for (auto it = ours.byCategory.cbegin(); it != ours.byCategory.cend(); ++it) {
        const Tally &mine = it.value();
        const Tally theirs = cli.byCategory.value(it.key());
        out << QStringLiteral("%1 %2 %3 %4 %5 %6\n")
                   .arg(it.key(), -26)
                   .arg(mine.images, 7)
                   .arg(mine.rate(), 8, 'f', 2)
                   .arg(mine.exact, 7)
                   .arg(runCli ? QString::number(theirs.rate(), 'f', 2) : QStringLiteral("-"), 8)
                   .arg(runCli ? QString::number(theirs.exact) : QStringLiteral("-"), 7);
    }

    out << "\nTime per image (ms): ours first (loads the models) " << QString::number(coldMs, 'f', 1)
        << ", ours median warm " << QString::number(median(ours.times), 'f', 1);
    if (runCli)
        out << ", cli median " << QString::number(median(cli.times), 'f', 1);
    out << "\nMemory: resident " << rssBefore / 1024 << " MiB before the models, " << rssLoaded / 1024
        << " MiB with them loaded\n";

    if (runCli) {
        const double smallOurs = ours.byCategory.value(QStringLiteral("11-14 px")).rate();
        const double smallCli = cli.byCategory.value(QStringLiteral("11-14 px")).rate();
        const bool accuracyMet = smallOurs <= smallCli / 2;
        const bool speedMet = median(ours.times) <= median(cli.times);
        out << "\nTarget: small text CER at most half the command line's: "
            << QString::number(smallOurs, 'f', 2) << "% vs " << QString::number(smallCli, 'f', 2) << "% -> "
            << (accuracyMet ? "met" : "NOT met") << "\n";
        out << "Target: no slower per image than the command line: " << (speedMet ? "met" : "NOT met")
            << "\n";
    }
    return 0;
}
