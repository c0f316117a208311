#pragma once

#include <QByteArray>
#include <QByteArrayView>
#include <QString>
#include <QStringList>

#include <functional>

// Reads the body of a chat-completions event stream: splits it into lines (LF, CRLF or a bare CR), takes the
// "data:" lines and hands on their content pieces. Knows nothing of the network, so tests and benchmarks can
// drive it byte by byte.
class EventStreamParser
{
public:
    // Called for each non-empty piece. Returning false stops the parser at once without touching its state
    // again, so the receiver may have reset the parser (a new request) in the meantime.
    using PieceHandler = std::function<bool(const QString &piece)>;

    // Deeper payloads are skipped like any other unparsable line: a deep document would otherwise cost the
    // parser's recursion the thread's whole stack.
    static constexpr int kMaxJsonDepth = 64;

    // Consumes every complete line of the bytes seen so far. Returns false when the handler stopped it or the
    // stream carried an error (see failed()); after an error later calls consume nothing.
    bool feed(QByteArrayView bytes, const PieceHandler &onPiece);
    // The same, collecting the pieces.
    bool feed(QByteArrayView bytes, QStringList *pieces);
    void reset();

    bool failed() const { return m_failed; }
    // The service's own text for the error, possibly empty.
    QString errorMessage() const { return m_errorMessage; }
    // A "data:" line of any kind ("[DONE]" included) was seen.
    bool sawData() const { return m_sawData; }
    // The service marked the answer as complete: "[DONE]" or a finish reason.
    bool sawEnd() const { return m_sawEnd; }
    // Bytes after the last line ending: a stream that stops here was cut off mid-line.
    bool hasIncompleteLine() const { return !m_pending.isEmpty(); }
    qsizetype pendingBytes() const { return m_pending.size(); }

private:
    // False when the handler said stop.
    bool handleLine(const char *begin, const char *end, const PieceHandler &onPiece);
    bool handlePayload(const char *payload, size_t length, const PieceHandler &onPiece);

    QByteArray m_pending;
    qsizetype m_searchedBytes = 0; // leading bytes of m_pending known to hold no line ending
    QString m_errorMessage;
    bool m_skipLineFeed = false; // the last read ended on CR: a LF starting the next read belongs to it
    bool m_atStart = true;       // nothing of the stream consumed yet: a byte order mark may still come
    bool m_errorEvent = false;   // "event: error" announced the data of this event
    int m_parseFailures = 0;
    bool m_failed = false;
    bool m_sawData = false;
    bool m_sawEnd = false;
};
