#pragma once

#include <QByteArray>
#include <QByteArrayView>
#include <QString>
#include <QStringList>

// Reads the body of a chat-completions event stream: splits it into lines (LF, CRLF or a bare CR), takes the
// "data: " lines and collects their content pieces. Knows nothing of the network, so tests and benchmarks can
// drive it byte by byte. Pieces are returned rather than called back, so that a receiver which cancels or
// restarts the stream never runs while the parser is in the middle of its buffer.
class EventStreamParser
{
public:
    // Deeper payloads are skipped like any other unparsable line: a deep document would otherwise cost the
    // parser's recursion the thread's whole stack.
    static constexpr int kMaxJsonDepth = 64;

    // Consumes every complete line of the bytes seen so far and appends each non-empty content piece to
    // pieces. Returns false once the stream carried an error (see errorMessage()); later calls then consume
    // nothing.
    bool feed(QByteArrayView bytes, QStringList *pieces);
    void reset();

    bool failed() const { return m_failed; }
    // The service's own text for the error, possibly empty.
    QString errorMessage() const { return m_errorMessage; }
    // A "data: " line of any kind ("[DONE]" included) was seen.
    bool sawData() const { return m_sawData; }
    // The service marked the answer as complete: "[DONE]" or a finish reason.
    bool sawEnd() const { return m_sawEnd; }
    // Bytes after the last line ending: a stream that stops here was cut off mid-line.
    bool hasIncompleteLine() const { return !m_pending.isEmpty(); }
    qsizetype pendingBytes() const { return m_pending.size(); }

private:
    void handleLine(const char *begin, const char *end, QStringList *pieces);
    void handlePayload(const char *payload, size_t length, QStringList *pieces);

    QByteArray m_pending;
    QString m_errorMessage;
    bool m_skipLineFeed = false; // the last read ended on CR: a LF starting the next read belongs to it
    bool m_errorEvent = false;   // "event: error" announced the data of this event
    int m_parseFailures = 0;
    bool m_failed = false;
    bool m_sawData = false;
    bool m_sawEnd = false;
};
