#pragma once

#include <QByteArray>
#include <QList>
#include <QMutex>
#include <QObject>
#include <QPair>
#include <QString>

#include <atomic>
#include <functional>

class QTcpServer;

// One HTTP/1.1 request as the loopback server received it.
struct RecordedRequest
{
    QByteArray method;
    QByteArray target; // path with query, as sent
    QByteArray version;
    QList<QPair<QByteArray, QByteArray>> headers; // in the order sent, names as sent
    QByteArray body;

    // Value of the first header with this name (compared without regard to case); null when absent.
    QByteArray header(const QByteArray &name) const;
    bool hasHeader(const QByteArray &name) const { return !header(name).isNull(); }
    // The target without its query.
    QByteArray path() const;
};

// What the server answers to one request: a status, headers and a script of body steps (pieces of bytes,
// pauses, a hold until the test releases it, a connection reset).
class ScriptedResponse
{
public:
    enum class Framing {
        Chunked,       // Transfer-Encoding: chunked, one HTTP chunk per piece
        ContentLength, // Content-Length of all pieces together
        CloseDelimited // no length; the server closes the connection at the end
    };

    // 200 text/event-stream, chunked.
    static ScriptedResponse sse(int status = 200);
    // A JSON document with a Content-Length.
    static ScriptedResponse json(int status, const QByteArray &body);

    ScriptedResponse &setStatus(int status, const QByteArray &reason = QByteArray());
    ScriptedResponse &setHeader(const QByteArray &name, const QByteArray &value);
    ScriptedResponse &setFraming(Framing framing);

    // One piece, written at once (one chunk in chunked framing). Empty pieces are skipped.
    ScriptedResponse &send(const QByteArray &bytes);
    // The bytes in pieces of random size in [minPiece, maxPiece] with a pause of pauseMs between pieces, so
    // that lines and UTF-8 sequences are split across the client's reads. Same seed, same split.
    ScriptedResponse &sendInPieces(const QByteArray &bytes, int minPiece, int maxPiece, quint32 seed,
                                   int pauseMs = 1);
    ScriptedResponse &pause(int ms);
    // Stops here until LoopbackHttpServer::releaseHeld() (or the client goes away).
    ScriptedResponse &holdUntilReleased();
    // Resets the connection (TCP RST) at this point; nothing after it is sent.
    ScriptedResponse &resetConnection();

    int status() const { return m_status; }
    QByteArray bodyBytes() const;

private:
    friend class LoopbackConnection;
    enum class StepKind { Write, Pause, Hold, Reset };
    struct Step
    {
        StepKind kind;
        QByteArray bytes;
        int ms = 0;
    };

    int m_status = 200;
    QByteArray m_reason;
    QList<QPair<QByteArray, QByteArray>> m_headers;
    Framing m_framing = Framing::Chunked;
    QList<Step> m_steps;
};

// An HTTP/1.1 server on 127.0.0.1 for tests and benchmarks. It records every request and answers them in
// order with the queued scripted responses (the fallback when the queue is empty). Keep-alive connections
// are served request after request. It may live on a thread of its own: the recorded data, the queue and the
// counters are safe to use from any thread.
class LoopbackHttpServer final : public QObject
{
    Q_OBJECT

public:
    explicit LoopbackHttpServer(QObject *parent = nullptr);
    ~LoopbackHttpServer() override;

    // Listens on 127.0.0.1 on a free port. Call on the server's thread.
    bool listen();
    quint16 port() const { return m_port; }
    // "http://127.0.0.1:<port>" followed by the path, e.g. baseUrl("/v1").
    QString baseUrl(const QString &path = QStringLiteral("/v1")) const;

    void enqueue(const ScriptedResponse &response);
    // Answer to requests when the queue is empty; by default a 500 with a JSON error body.
    void setFallback(const ScriptedResponse &response);
    // Chooses the answer from the request itself (for example by a word in the body); takes precedence over
    // the queue. Called on the server's thread.
    using Handler = std::function<ScriptedResponse(const RecordedRequest &request)>;
    void setHandler(Handler handler);

    QList<RecordedRequest> requests() const;
    int requestCount() const;
    // TCP connections accepted so far, including ones that never sent a request.
    int connectionCount() const;
    // Nanoseconds on the steady clock when the last response's first body piece was written; 0 before.
    qint64 firstBodyWriteNs() const { return m_firstBodyWriteNs.load(); }

    // Lets every response waiting in holdUntilReleased() go on.
    void releaseHeld();

signals:
    void connectionAccepted();
    void requestReceived(int index);
    void responseCompleted(int index);
    void released();

private:
    friend class LoopbackConnection;
    void onNewConnection();
    int recordRequest(const RecordedRequest &request);
    ScriptedResponse takeResponse(const RecordedRequest &request);

    QTcpServer *m_server = nullptr;
    quint16 m_port = 0;
    mutable QMutex m_mutex;
    QList<RecordedRequest> m_requests;
    QList<ScriptedResponse> m_queue;
    ScriptedResponse m_fallback;
    Handler m_handler;
    int m_connections = 0;
    std::atomic<qint64> m_firstBodyWriteNs{0};
};
