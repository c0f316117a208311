#pragma once

#include <QByteArray>
#include <QByteArrayView>
#include <QCoreApplication>
#include <QString>

class EventStreamParser;
class ProviderErrors;
class QNetworkReply;

// The body of one streaming reply apart from the network: how much of it came, its first bytes (to say what
// came back when it was not an event stream), and what its end means. The end is judged by what the provider
// said, not by how the connection closed: a connection reset in a body without length or chunked framing, or
// a broken chunk-size line, looks to the network layer like a proper end.
class StreamBody final
{
    // The user reads these as the client's texts; sharing its context keeps their translations.
    Q_DECLARE_TR_FUNCTIONS(OpenAIClient)

public:
    void reset() { *this = StreamBody(); }

    // Counts bytes of the body.
    void count(qsizetype bytes) { m_bytes += bytes; }
    qsizetype bytes() const { return m_bytes; }
    // Keeps the bytes while fewer than ProviderErrors::kMaxKeptBodyBytes are kept.
    void keepHead(QByteArrayView bytes);
    const QByteArray &head() const { return m_head; }
    // Takes the media type from the reply's headers the first time it names one.
    void noteContentType(const QNetworkReply *reply);

    // Why the ended body is not a complete answer; empty when it is. *whole receives the answer of a service
    // that sent the whole completion at once instead of a stream.
    QString endProblem(const EventStreamParser &parser, const ProviderErrors &errors, QString *whole) const;

    static QString cutOffText();

private:
    qsizetype m_bytes = 0;
    QByteArray m_head;
    QString m_contentType;
};
