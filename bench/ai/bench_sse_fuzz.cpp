// The long run of the event-stream parser's fuzz (the tests run a short one): random damaged streams for a
// given number of seconds (default 180), each parsed whole and in random reads, which must agree. A crash
// ends the program; any disagreement is printed with its seed. Also prints the parser's speed on a clean
// stream beside a hostile one.
#include "EventStreamFuzz.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QLoggingCategory>

#include <cstdio>

namespace {

double parseMegabytesPerSecond(const QByteArray &bytes)
{
    QElapsedTimer timer;
    timer.start();
    int runs = 0;
    do {
        EventStreamParser parser;
        QStringList pieces;
        parser.feed(bytes, &pieces);
        ++runs;
    } while (timer.elapsed() < 1000);
    return double(bytes.size()) * runs / 1e6 / (double(timer.nsecsElapsed()) / 1e9);
}

} // namespace

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    // Damaged lines are logged as warnings; millions of them would only slow the run.
    QLoggingCategory::setFilterRules(QStringLiteral("*.warning=false"));
    const int seconds = argc > 1 ? QByteArray(argv[1]).toInt() : 180;

    QElapsedTimer timer;
    timer.start();
    quint64 cases = 0, bytes = 0, disagreements = 0;
    for (quint32 seed = 1; timer.elapsed() < qint64(seconds) * 1000; ++seed) {
        QRandomGenerator random(seed);
        const QByteArray stream = EventStreamFuzz::damaged(random);
        const EventStreamFuzz::Outcome whole = EventStreamFuzz::parse({stream});
        if (!(whole == EventStreamFuzz::parse(EventStreamFuzz::split(stream, random)))) {
            std::printf("bench_sse_fuzz: seed %u: split reads disagree with the whole stream\n", seed);
            ++disagreements;
        }
        ++cases;
        bytes += quint64(stream.size());
    }
    std::printf("bench_sse_fuzz: %llu damaged streams, %.1f MB, %lld s: %llu disagreements, 0 crashes\n",
                static_cast<unsigned long long>(cases), double(bytes) / 1e6, timer.elapsed() / 1000,
                static_cast<unsigned long long>(disagreements));

    // 4 MB of clean deltas, and 4 MB of deltas among lines a broken service sends (comments, garbage, JSON
    // nested too deep, bare CR endings), which the parser must skip without losing its pace.
    QByteArray clean, messy;
    QRandomGenerator random(7);
    while (clean.size() < 4000000)
        clean += EventStreamFuzz::wellFormed(random).bytes;
    const QByteArray junk = ": keep-alive\rdata: {not json\ndata: " + QByteArray(200, '[') +
                            "\r\ndata: " + QByteArray(60, '{') + "\n\nid: 1\rdata: \xff\xfe\n";
    while (messy.size() < 4000000)
        messy += EventStreamFuzz::wellFormed(random).bytes + junk;
    std::printf("  parser alone, clean stream: %.0f MB/s\n", parseMegabytesPerSecond(clean));
    std::printf("  parser alone, messy stream: %.0f MB/s\n", parseMegabytesPerSecond(messy));
    return disagreements == 0 ? 0 : 1;
}
