#pragma once

#include <QByteArray>
#include <QList>
#include <QMutex>
#include <QObject>
#include <QPair>
#include <QString>
#include <QThread>

#include <atomic>
#include <functional>

class QTcpServer;

// One HTTP/1.1 request as the loopback server received it.
struct RecordedRequest
{
    QByteArray method, target, version; // target: path with query, as sent
    QList<QPair<QByteArray, QByteArray>> headers;
    QByteArray body;

    QByteArray header(const QByteArray &name) const; // first of this name, any case; null when absent
    QByteArray path() const
    {
        return target.first(target.contains('?') ? target.indexOf('?') : target.size());
    }
};

// The answer to one request: status, headers and a script of body steps.
class ScriptedResponse
{
public:
    static ScriptedResponse sse(int status = 200);                    // text/event-stream, chunked
    static ScriptedResponse json(int status, const QByteArray &body); // with Content-Length
    // Takes the request and never answers, not even a status line.
    static ScriptedResponse silent() { return sse(0); }

    ScriptedResponse &setHeader(const QByteArray &name, const QByteArray &value);
    // Neither chunked nor with a length: the body ends where the connection does.
    ScriptedResponse &withoutFraming()
    {
        m_chunked = false;
        m_framed = false;
        return *this;
    }
    // One piece written at once (one HTTP chunk when chunked); empty pieces are skipped.
    ScriptedResponse &send(const QByteArray &bytes) { return bytes.isEmpty() ? *this : add(Write, bytes); }
    // Pieces of random size in [minPiece, maxPiece], pauseMs apart (none when negative); same seed, same
    // split.
    ScriptedResponse &sendInPieces(const QByteArray &bytes, int minPiece, int maxPiece, quint32 seed,
                                   int pauseMs = 1);
    ScriptedResponse &pause(int ms) { return add(Pause, {}, ms); }
    ScriptedResponse &holdUntilReleased() { return add(Hold); } // until LoopbackHttpServer::releaseHeld()
    ScriptedResponse &closeConnection() { return add(Close); }  // FIN, as a server that ends too early
    ScriptedResponse &resetConnection() { return add(Reset); }  // RST, as a dropped connection
    // Written as they are, outside any chunk: a broken chunk-size line, say.
    ScriptedResponse &sendRaw(const QByteArray &bytes) { return add(Raw, bytes); }
    // The bytes count times (forever when negative), written only as fast as the client reads them.
    ScriptedResponse &repeat(const QByteArray &bytes, qint64 count = -1)
    {
        return add(Repeat, bytes, 0, count);
    }

private:
    friend class LoopbackConnection;
    enum StepKind { Write, Pause, Hold, Close, Reset, Raw, Repeat };
    struct Step
    {
        StepKind kind;
        QByteArray bytes;
        int ms;
        qint64 count;
    };
    ScriptedResponse &add(StepKind kind, const QByteArray &bytes = {}, int ms = 0, qint64 count = 0)
    {
        m_steps.append({kind, bytes, ms, count});
        return *this;
    }

    int m_status = 200; // 0: no answer at all
    bool m_chunked = true;
    bool m_framed = true;
    QList<QPair<QByteArray, QByteArray>> m_headers;
    QList<Step> m_steps;
};
Q_DECLARE_METATYPE(ScriptedResponse)

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
    QString baseUrl(const QString &path = QStringLiteral("/v1")) const; // "http://127.0.0.1:<port><path>"

    using Handler = std::function<ScriptedResponse(const RecordedRequest &request)>;
    void enqueue(const ScriptedResponse &response);
    void setFallback(const ScriptedResponse &response);
    void setHandler(Handler handler); // called on the server's thread; takes precedence over the queue

    QList<RecordedRequest> requests() const;
    int requestCount() const { return int(requests().size()); }
    // Steady-clock nanoseconds of the last response's first body write; 0 before.
    qint64 firstBodyWriteNs() const { return m_firstBodyWriteNs.load(); }
    void releaseHeld(); // every response in holdUntilReleased() goes on

signals:
    void requestReceived(int index);
    void released();

private:
    friend class LoopbackConnection;

    QTcpServer *m_server = nullptr;
    mutable QMutex m_mutex;
    QList<RecordedRequest> m_requests;
    QList<ScriptedResponse> m_queue;
    ScriptedResponse m_fallback;
    Handler m_handler;
    std::atomic<qint64> m_firstBodyWriteNs{0};
};

// A LoopbackHttpServer listening on a thread of its own, as a real provider answers from another process: its
// writing then never waits for the client's event loop, nor the client's timers for its writing. `setup` runs
// on the server's thread before it listens; afterwards the test uses only the server's thread-safe calls.
class LoopbackServerThread final
{
public:
    explicit LoopbackServerThread(const std::function<void(LoopbackHttpServer &)> &setup = {});
    ~LoopbackServerThread();
    LoopbackServerThread(const LoopbackServerThread &) = delete;
    LoopbackServerThread &operator=(const LoopbackServerThread &) = delete;

    bool isListening() const { return m_listening; }
    LoopbackHttpServer *server() const { return m_server; }

private:
    QThread m_thread;
    QObject m_context; // lives on m_thread, so that work can be queued there before the server exists
    LoopbackHttpServer *m_server = nullptr;
    bool m_listening = false;
};
