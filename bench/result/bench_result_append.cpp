// Streams 2,000 chunks (about 40,000 characters, with line breaks) into a visible result window and prints
// the median and 99th-percentile cost of one append at about 1,000, 10,000 and 40,000 characters of text.
// The cost per append must not grow with the text already shown.
//
// usage: bench_result_append [-platform offscreen|xcb]
#include "ui/result/ResultWindow.h"

#include <QApplication>
#include <QElapsedTimer>
#include <QLoggingCategory>
#include <QWindow>

#include <algorithm>
#include <cstdio>
#include <vector>

namespace {

struct Sample
{
    int length; // characters shown before the append
    qint64 appendNs;
    qint64 eventsNs; // the layout and painting the append caused, done by the event loop afterwards
};

QString chunkFor(int i)
{
    static const QStringList words{QStringLiteral("stream "), QStringLiteral("result "),
                                   QStringLiteral("window "), QStringLiteral("翻译结果 "),
                                   QStringLiteral("chunk, "), QStringLiteral("text. ")};
    QString chunk;
    while (chunk.size() < 18)
        chunk += words.at((i + chunk.size()) % words.size());
    chunk.truncate(19);
    // A line break every fourth chunk, as in a paragraph-rich answer.
    chunk += (i % 4 == 3) ? QLatin1Char('\n') : QLatin1Char(' ');
    return chunk;
}

qint64 percentile(std::vector<qint64> values, double p)
{
    if (values.empty())
        return 0;
    std::sort(values.begin(), values.end());
    const size_t index = std::min(values.size() - 1, static_cast<size_t>(p * (values.size() - 1) + 0.5));
    return values[index];
}

// The appends (about 100) made while the text was within 2,000 characters of the given length.
void report(const std::vector<Sample> &samples, int around, int from, int to)
{
    std::vector<qint64> append;
    std::vector<qint64> events;
    for (const Sample &s : samples) {
        if (s.length >= from && s.length < to) {
            append.push_back(s.appendNs);
            events.push_back(s.eventsNs);
        }
    }
    std::printf("at %6d chars (%3zu appends): append median %7.3f ms  p99 %7.3f ms | "
                "event loop after it median %7.3f ms  p99 %7.3f ms\n",
                around, append.size(), percentile(append, 0.5) / 1e6, percentile(append, 0.99) / 1e6,
                percentile(events, 0.5) / 1e6, percentile(events, 0.99) / 1e6);
}

} // namespace

int main(int argc, char **argv)
{
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM") && qEnvironmentVariableIsEmpty("DISPLAY"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication app(argc, argv);
    // The window logs its sizing decisions at debug level; printing them would be what we measure.
    QLoggingCategory::setFilterRules(QStringLiteral("*.debug=false"));

    ResultWindow window;
    window.setMode(ResultWindow::TextMode);
    window.setSourceText(QStringLiteral("Ein kurzer Ausgangstext, der übersetzt wird."));
    window.show();
    QElapsedTimer waited;
    waited.start();
    while (!(window.windowHandle() && window.windowHandle()->isExposed()) && waited.elapsed() < 10000)
        QCoreApplication::processEvents(QEventLoop::AllEvents, 50);
    if (!window.windowHandle() || !window.windowHandle()->isExposed()) {
        std::fprintf(stderr, "bench_result_append: the window was not shown\n");
        return 1;
    }
    window.showTranslation(true);
    window.setProcessing(true);

    constexpr int kChunks = 2000;
    std::vector<Sample> samples;
    samples.reserve(kChunks);
    int length = 0;
    QElapsedTimer timer;
    QElapsedTimer total;
    total.start();
    for (int i = 0; i < kChunks; ++i) {
        const QString chunk = chunkFor(i);
        timer.start();
        window.appendTranslation(chunk);
        const qint64 appendNs = timer.nsecsElapsed();
        timer.start();
        QCoreApplication::processEvents();
        const qint64 eventsNs = timer.nsecsElapsed();
        samples.push_back({length, appendNs, eventsNs});
        length += chunk.size();
    }
    window.setProcessing(false);
    QCoreApplication::processEvents();

    std::printf("bench_result_append: %d chunks, %d characters, platform %s, %.0f ms in total\n", kChunks,
                static_cast<int>(window.getTranslation().size()), qPrintable(QGuiApplication::platformName()),
                total.nsecsElapsed() / 1e6);
    report(samples, 1000, 0, 2000);
    report(samples, 10000, 9000, 11000);
    report(samples, 40000, length - 2000, length);
    return window.getTranslation().size() == length ? 0 : 1;
}
