#pragma once

#include <QByteArray>
#include <QList>
#include <QMutex>
#include <QMutexLocker>
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
    QList<QPair<QByteArray, QByteArray>> headers; // in the order sent
    QByteArray body;

    // First header of this name (case-insensitive); null when absent.
    QByteArray header(const QByteArray &name) const;
    bool hasHeader(const QByteArray &name) const { return !header(name).isNull(); }
    QByteArray path() const; // the target without its query
};

// The answer to one request: status, headers and a script of body steps.
class ScriptedResponse
{
public:
    enum class Framing { Chunked, ContentLength, CloseDelimited };

    static ScriptedResponse sse(int status = 200);                    // text/event-stream, chunked
    static ScriptedResponse json(int status, const QByteArray &body); // with Content-Length

    ScriptedResponse &setStatus(int status, const QByteArray &reason = QByteArray())
    {
        m_status = status;
        m_reason = reason;
        return *this;
    }
    ScriptedResponse &setHeader(const QByteArray &name, const QByteArray &value);
    ScriptedResponse &setFraming(Framing framing) { return m_framing = framing, *this; }
    // One piece written at once (one HTTP chunk when chunked); empty pieces are skipped.
    ScriptedResponse &send(const QByteArray &bytes)
    {
        return bytes.isEmpty() ? *this : add(StepKind::Write, bytes);
    }
    // Pieces of random size in [minPiece, maxPiece] with pauseMs between them; same seed, same split.
    ScriptedResponse &sendInPieces(const QByteArray &bytes, int minPiece, int maxPiece, quint32 seed,
                                   int pauseMs = 1);
    ScriptedResponse &pause(int ms) { return add(StepKind::Pause, {}, ms); }
    ScriptedResponse &holdUntilReleased()
    {
        return add(StepKind::Hold);
    } // until LoopbackHttpServer::releaseHeld()
    ScriptedResponse &resetConnection() { return add(StepKind::Reset); } // TCP RST; nothing after it is sent

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
    ScriptedResponse &add(StepKind kind, const QByteArray &bytes = {}, int ms = 0)
    {
        m_steps.append({kind, bytes, ms});
        return *this;
    }

    int m_status = 200;
    QByteArray m_reason;
    QList<QPair<QByteArray, QByteArray>> m_headers;
    Framing m_framing = Framing::Chunked;
    QList<Step> m_steps;
};

// An HTTP/1.1 server on 127.0.0.1 that records every request and answers with the handler's response, else
// the queued ones in order, else the fallback (a 500 by default). Keep-alive connections are served request
// after request. Recorded data, queue and counters may be used from any thread.
class LoopbackHttpServer final : public QObject
{
    Q_OBJECT

public:
    explicit LoopbackHttpServer(QObject *parent = nullptr);
    ~LoopbackHttpServer() override;

    bool listen(); // on a free port; call on the server's thread
    quint16 port() const { return m_port; }
    QString baseUrl(const QString &path = QStringLiteral("/v1")) const; // "http://127.0.0.1:<port><path>"

    void enqueue(const ScriptedResponse &response)
    {
        const QMutexLocker locker(&m_mutex);
        m_queue.append(response);
    }
    void setFallback(const ScriptedResponse &response)
    {
        const QMutexLocker locker(&m_mutex);
        m_fallback = response;
    }
    using Handler = std::function<ScriptedResponse(const RecordedRequest &request)>;
    // Called on the server's thread; takes precedence over the queue.
    void setHandler(Handler handler)
    {
        const QMutexLocker locker(&m_mutex);
        m_handler = std::move(handler);
    }

    QList<RecordedRequest> requests() const
    {
        const QMutexLocker locker(&m_mutex);
        return m_requests;
    }
    int requestCount() const
    {
        const QMutexLocker locker(&m_mutex);
        return int(m_requests.size());
    }
    // Including connections that never sent a request.
    int connectionCount() const
    {
        const QMutexLocker locker(&m_mutex);
        return m_connections;
    }
    // Steady-clock nanoseconds of the last response's first body write; 0 before.
    qint64 firstBodyWriteNs() const { return m_firstBodyWriteNs.load(); }
    void releaseHeld(); // every response in holdUntilReleased() goes on

signals:
    void connectionAccepted();
    void requestReceived(int index);
    void responseCompleted(int index);
    void released();

private:
    friend class LoopbackConnection;
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
