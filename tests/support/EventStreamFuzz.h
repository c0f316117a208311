#pragma once

#include "SseBuilder.h"
#include "ai/EventStreamParser.h"

#include <QList>
#include <QRandomGenerator>
#include <QStringList>

#include <tuple>

// Random event streams for the parser: well-formed ones whose pieces are known, and damaged ones that mix in
// what hostile or broken services send. Shared by the short run in the tests and the long one in bench/ai.
namespace EventStreamFuzz {

inline QByteArray lineEnd(QRandomGenerator &random)
{
    static const char *const ends[] = {"\n", "\r\n", "\r"};
    return ends[random.bounded(3)];
}

inline QString randomText(QRandomGenerator &random)
{
    static const QList<uint> alphabet = QStringLiteral("abc xyz\"\\/\n\t{}[]:,üß你好🙂\u2028").toUcs4();
    QList<uint> text;
    const int length = 1 + random.bounded(12);
    for (int i = 0; i < length; ++i)
        text << alphabet.at(random.bounded(int(alphabet.size())));
    return QString::fromUcs4(reinterpret_cast<const char32_t *>(text.constData()), text.size());
}

struct WellFormed
{
    QByteArray bytes;
    QStringList pieces;
};

// Deltas among the lines services send besides them, each line with a random ending.
inline WellFormed wellFormed(QRandomGenerator &random)
{
    static const QList<QByteArray> others =
        QByteArrayLiteral(
            ": keep-alive||event: message|id: 12|retry: 100|data: {\"choices\":[{\"delta\":{\"role\":"
            "\"assistant\"}}]}|data: {\"choices\":[]}|data: [DONE]|data: {\"usage\":null}")
            .split('|');
    WellFormed stream;
    const int lines = random.bounded(40);
    for (int i = 0; i < lines; ++i) {
        if (random.bounded(3) == 0) {
            stream.bytes += others[random.bounded(int(others.size()))];
        } else {
            const QString piece = randomText(random);
            stream.bytes += Sse::delta(piece, {});
            stream.pieces << piece;
        }
        stream.bytes += lineEnd(random);
    }
    return stream;
}

// A well-formed stream with random bytes changed, cut out or put in, among them fragments of hostile input.
inline QByteArray damaged(QRandomGenerator &random)
{
    // Split at '|'; the NUL byte is one of them.
    static const QList<QByteArray> fragments =
        QByteArrayLiteral(
            "data: |data: [DONE]|event: error|\r|\n|\0|\xff\xfe|\xc3|\\u|\\ud83d|1e999999|{\"error\":null}|"
            "{\"error\":{}}|\"|[|{\"a\":|:|data:|finish_reason|\"content\":")
            .split('|');
    QByteArray bytes = wellFormed(random).bytes;
    const int damages = 1 + random.bounded(8);
    for (int i = 0; i < damages; ++i) {
        const int at = bytes.isEmpty() ? 0 : random.bounded(int(bytes.size()));
        switch (random.bounded(5)) {
        case 0:
            if (!bytes.isEmpty())
                bytes[at] = char(random.bounded(256));
            break;
        case 1:
            bytes.remove(at, random.bounded(16));
            break;
        case 2:
            bytes.insert(at, fragments[random.bounded(int(fragments.size()))]);
            break;
        case 3: {
            // Deep nesting, now and then deep enough to overflow a recursive parser's stack.
            const int depth = random.bounded(8) == 0 ? 100000 + random.bounded(100000) : random.bounded(200);
            bytes.insert(at, "\ndata: " + QByteArray(depth, random.bounded(2) ? '[' : '{') + lineEnd(random));
            break;
        }
        default:
            bytes.insert(at, "\ndata: " + QByteArray(random.bounded(4096), char(' ' + random.bounded(95))) +
                                 lineEnd(random));
        }
    }
    return bytes;
}

// Random read sizes, from single bytes up to whole kilobytes.
inline QList<QByteArrayView> split(QByteArrayView bytes, QRandomGenerator &random)
{
    QList<QByteArrayView> reads;
    const int maxRead = random.bounded(2) ? 8 : 2048;
    for (qsizetype offset = 0; offset < bytes.size();) {
        const qsizetype size = qMin<qsizetype>(1 + random.bounded(maxRead), bytes.size() - offset);
        reads << bytes.sliced(offset, size);
        offset += size;
    }
    return reads;
}

// Everything a parser reports about a stream.
struct Outcome
{
    QStringList pieces;
    bool failed = false;
    QString error;
    bool sawData = false, sawEnd = false, incomplete = false;

    bool operator==(const Outcome &o) const
    {
        return std::tie(pieces, failed, error, sawData, sawEnd, incomplete) ==
               std::tie(o.pieces, o.failed, o.error, o.sawData, o.sawEnd, o.incomplete);
    }
};

inline Outcome parse(const QList<QByteArrayView> &reads)
{
    EventStreamParser parser;
    QStringList pieces;
    for (const QByteArrayView read : reads)
        parser.feed(read, &pieces);
    return {pieces,           parser.failed(), parser.errorMessage(),
            parser.sawData(), parser.sawEnd(), parser.hasIncompleteLine()};
}

} // namespace EventStreamFuzz
