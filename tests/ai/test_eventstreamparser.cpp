// A short seeded fuzz of the event-stream parser (the long run is bench_sse_fuzz). The parser must give the
// same result however the network splits the bytes, and never crash on damaged input (this runs under ASan).
#include "EventStreamFuzz.h"

#include <QTest>

class TestEventStreamParser final : public QObject
{
    Q_OBJECT

private slots:
    // CR LF split between two reads is one line ending: taken as two, the empty line between would end the
    // event and lose its type.
    void crLfSplitBetweenReads()
    {
        EventStreamParser parser;
        QStringList pieces;
        parser.feed("event: error\r", &pieces);
        parser.feed("\ndata: {\"message\":\"boom\"}\n", &pieces);
        QVERIFY(parser.failed());
        QCOMPARE(parser.errorMessage(), QStringLiteral("boom"));
    }

    void wellFormedStreamsInAnySplit()
    {
        for (quint32 seed = 1; seed <= 1000; ++seed) {
            QRandomGenerator random(seed);
            const EventStreamFuzz::WellFormed stream = EventStreamFuzz::wellFormed(random);
            const EventStreamFuzz::Outcome outcome =
                EventStreamFuzz::parse(EventStreamFuzz::split(stream.bytes, random));
            QVERIFY2(outcome.pieces == stream.pieces && !outcome.failed, qPrintable(QString::number(seed)));
        }
    }

    void damagedStreamsAreSplitInvariant()
    {
        for (quint32 seed = 1; seed <= 1000; ++seed) {
            QRandomGenerator random(seed);
            const QByteArray bytes = EventStreamFuzz::damaged(random);
            const EventStreamFuzz::Outcome whole = EventStreamFuzz::parse({bytes});
            const EventStreamFuzz::Outcome split =
                EventStreamFuzz::parse(EventStreamFuzz::split(bytes, random));
            QVERIFY2(whole == split, qPrintable(QString::number(seed)));
            // Nothing is made up: the pieces together are never longer than the bytes they came from.
            QVERIFY(whole.pieces.join(QString()).size() <= bytes.size());
        }
    }
};

QTEST_GUILESS_MAIN(TestEventStreamParser)
#include "test_eventstreamparser.moc"
