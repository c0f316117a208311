// Streams a large answer of small deltas from a loopback server through OpenAIClient and prints how fast the
// pieces come out of the client, and how long the first piece takes from the server's first byte. Then the
// messy cases beside it: an endless stream and a 512 MiB blocking answer, with the memory they cost.
#include "LoopbackHttpServer.h"
#include "ai/OpenAIClient.h"

#include <QCoreApplication>
#include <QEventLoop>
#include <QFile>
#include <QLoggingCategory>
#include <QTimer>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <vector>

namespace {

constexpr qsizetype kBodyBytes = 4 * 1024 * 1024;
constexpr int kThroughputRuns = 5;
constexpr int kLatencyRuns = 30;

qint64 nowNs()
{
    return std::chrono::duration_cast<std::chrono::nanoseconds>(
               std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

QByteArray event(int index)
{
    // Short pieces as a model streams them: a word or part of one per event.
    static const char *const words[] = {"the ", "qu", "ick ", "brown ", "fox ", "jum", "ps ", "ov", "er "};
    return QByteArray("data: {\"choices\":[{\"delta\":{\"content\":\"") + words[index % 9] + "\"}}]}\n\n";
}

struct StreamFigures
{
    qint64 firstByteNs = 0;
    qint64 firstChunkNs = 0;
    qint64 lastChunkNs = 0;
    int chunks = 0;
    bool ok = false;
};

StreamFigures streamOnce(LoopbackHttpServer *server, const ScriptedResponse &response)
{
    server->enqueue(response);
    OpenAIClient client(server->baseUrl(), QStringLiteral("bench-key"), QStringLiteral("bench-model"));
    StreamFigures figures;
    QEventLoop loop;
    QObject::connect(&client, &OpenAIClient::streamingChunk, &loop, [&figures](const QString &) {
        const qint64 now = nowNs();
        if (figures.chunks++ == 0)
            figures.firstChunkNs = now;
        figures.lastChunkNs = now;
    });
    QObject::connect(&client, &OpenAIClient::streamingFinished, &loop, [&] {
        figures.ok = true;
        loop.quit();
    });
    QObject::connect(&client, &OpenAIClient::streamingError, &loop, [&](const QString &error) {
        std::fprintf(stderr, "bench_streaming: %s\n", qPrintable(error));
        loop.quit();
    });
    client.completeStreaming(QStringLiteral("bench"));
    loop.exec();
    figures.firstByteNs = server->firstBodyWriteNs();
    return figures;
}

// Peak resident memory of this process so far, in MiB.
double peakResidentMiB()
{
    QFile status(QStringLiteral("/proc/self/status"));
    if (!status.open(QIODevice::ReadOnly))
        return 0;
    for (const QByteArray &line : status.readAll().split('\n')) {
        if (line.startsWith("VmHWM:"))
            return line.mid(6).trimmed().split(' ').value(0).toDouble() / 1024;
    }
    return 0;
}

double median(std::vector<double> values)
{
    std::sort(values.begin(), values.end());
    return values.empty() ? 0.0 : values[values.size() / 2];
}

} // namespace

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationVersion(QStringLiteral(VONTREL_VERSION));
    QLoggingCategory::setFilterRules(QStringLiteral("*.debug=false"));

    // The server runs on a thread of its own, so its writing does not share the client's event loop.
    const LoopbackServerThread serverThread;
    LoopbackHttpServer *const server = serverThread.server();
    if (!serverThread.isListening()) {
        std::fprintf(stderr, "bench_streaming: cannot listen on 127.0.0.1\n");
        return 1;
    }

    QByteArray body;
    int events = 0;
    while (body.size() < kBodyBytes)
        body += event(events++);
    body += "data: [DONE]\n\n";

    // --serve SECONDS: only serve this stream to every request for that long, so that another client (the
    // official OpenAI Node SDK, bench/ai/node_sdk_baseline.mjs) can be measured against the same bytes.
    if (const qsizetype serve = QCoreApplication::arguments().indexOf(QStringLiteral("--serve")); serve > 0) {
        server->setFallback(ScriptedResponse::sse().sendInPieces(body, 16384, 16384, 1, -1));
        std::printf("%s %lld %d\n", qPrintable(server->baseUrl()), static_cast<long long>(body.size()),
                    events);
        std::fflush(stdout);
        QTimer::singleShot(QCoreApplication::arguments().value(serve + 1).toInt() * 1000, &app,
                           &QCoreApplication::quit);
        QCoreApplication::exec();
        return 0;
    }

    std::vector<double> mbPerSecond;
    std::vector<double> usPerChunk;
    for (int run = 0; run < kThroughputRuns; ++run) {
        // 16 KiB pieces, about what one socket read brings on a fast link.
        const StreamFigures figures =
            streamOnce(server, ScriptedResponse::sse().sendInPieces(body, 16384, 16384, 1, -1));
        if (!figures.ok || figures.chunks != events) {
            std::fprintf(stderr, "bench_streaming: stream incomplete (%d of %d pieces)\n", figures.chunks,
                         events);
            return 1;
        }
        const double seconds = double(figures.lastChunkNs - figures.firstByteNs) / 1e9;
        mbPerSecond.push_back(double(body.size()) / 1e6 / seconds);
        usPerChunk.push_back(seconds * 1e6 / figures.chunks);
    }

    std::vector<double> firstChunkUs;
    for (int run = 0; run < kLatencyRuns; ++run) {
        const StreamFigures figures = streamOnce(
            server, ScriptedResponse::sse().send(event(0)).pause(5).send(event(1) + "data: [DONE]\n\n"));
        if (!figures.ok) {
            std::fprintf(stderr, "bench_streaming: latency stream failed\n");
            return 1;
        }
        firstChunkUs.push_back(double(figures.firstChunkNs - figures.firstByteNs) / 1e3);
    }

    std::printf("bench_streaming: %lld bytes in %d pieces, %d runs (median)\n",
                static_cast<long long>(body.size()), events, kThroughputRuns);
    std::printf("  throughput first byte -> last piece: %.1f MB/s (target >= 50)\n", median(mbPerSecond));
    std::printf("  per piece:                            %.2f us (target < 20)\n", median(usPerChunk));
    std::printf("  first byte -> first piece, %d runs:   median %.0f us, best %.0f us\n", kLatencyRuns,
                median(firstChunkUs), *std::min_element(firstChunkUs.begin(), firstChunkUs.end()));

    // The messy cases: each must end with the client's message, the process staying near its size so far.
    const double before = peakResidentMiB();
    const qint64 endlessStart = nowNs();
    const StreamFigures endless = streamOnce(server, ScriptedResponse::sse().repeat(event(0)));
    const double endlessMs = double(nowNs() - endlessStart) / 1e6;
    const double afterEndless = peakResidentMiB();
    server->enqueue(ScriptedResponse::json(200, "{\"choices\":[{\"message\":{\"content\":\"")
                        .repeat("x", 512LL * 1024 * 1024)
                        .send("\"}}]}"));
    OpenAIClient blocking(server->baseUrl(), QStringLiteral("bench-key"), QStringLiteral("bench-model"));
    const qint64 hugeStart = nowNs();
    const bool hugeRefused = blocking.complete(QStringLiteral("bench")).isEmpty();
    const double hugeMs = double(nowNs() - hugeStart) / 1e6;
    std::printf(
        "  endless stream: stopped after %.0f ms, %d pieces shown, %s; peak memory %.0f -> %.0f MiB\n",
        endlessMs, endless.chunks, endless.ok ? "NOT STOPPED" : "stopped with a message", before,
        afterEndless);
    std::printf("  512 MiB blocking answer: %s after %.0f ms (\"%s\"); peak memory %.0f MiB\n",
                hugeRefused ? "refused" : "ACCEPTED", hugeMs, qPrintable(blocking.lastError()),
                peakResidentMiB());

    return 0;
}
