#include "LoopbackHttpServer.h"

#include <QHash>
#include <QHostAddress>
#include <QMutexLocker>
#include <QRandomGenerator>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTimer>

#include <chrono>

#ifdef Q_OS_UNIX
#include <sys/socket.h>
#endif

QByteArray RecordedRequest::header(const QByteArray &name) const
{
    for (const auto &[key, value] : headers) {
        if (key.compare(name, Qt::CaseInsensitive) == 0)
            return value.isNull() ? QByteArray("") : value;
    }
    return {};
}

ScriptedResponse ScriptedResponse::sse(int status)
{
    ScriptedResponse response;
    response.m_status = status;
    return response.setHeader("Content-Type", "text/event-stream").setHeader("Cache-Control", "no-cache");
}

ScriptedResponse ScriptedResponse::json(int status, const QByteArray &body)
{
    ScriptedResponse response;
    response.m_status = status;
    response.m_chunked = false;
    return response.setHeader("Content-Type", "application/json").send(body);
}

ScriptedResponse &ScriptedResponse::setHeader(const QByteArray &name, const QByteArray &value)
{
    for (auto &entry : m_headers) {
        if (entry.first.compare(name, Qt::CaseInsensitive) == 0)
            return entry.second = value, *this;
    }
    m_headers.append({name, value});
    return *this;
}

ScriptedResponse &ScriptedResponse::sendInPieces(const QByteArray &bytes, int minPiece, int maxPiece,
                                                 quint32 seed, int pauseMs)
{
    QRandomGenerator random(seed);
    for (qsizetype offset = 0; offset < bytes.size();) {
        const int size = random.bounded(qMax(1, minPiece), qMax(minPiece, maxPiece) + 1);
        send(bytes.mid(offset, size));
        offset += size;
        if (offset < bytes.size() && pauseMs >= 0)
            pause(pauseMs);
    }
    return *this;
}

// One accepted connection: parses requests one after another and plays the script of each answer.
class LoopbackConnection final : public QObject
{
public:
    LoopbackConnection(QTcpSocket *socket, LoopbackHttpServer *server)
        : QObject(server)
        , m_socket(socket)
        , m_server(server)
    {
        socket->setParent(this);
        connect(socket, &QTcpSocket::readyRead, this, [this] {
            m_buffer += m_socket->readAll();
            if (!m_responding)
                handleNextRequest();
        });
        connect(socket, &QTcpSocket::disconnected, this, [this] {
            m_closed = true;
            deleteLater();
        });
        connect(socket, &QTcpSocket::bytesWritten, this, [this] {
            if (std::exchange(m_waitingForDrain, false))
                advance();
        });
        connect(server, &LoopbackHttpServer::released, this, [this] {
            if (std::exchange(m_held, false))
                advance();
        });
    }

private:
    void handleNextRequest()
    {
        const qsizetype headerEnd = m_buffer.indexOf("\r\n\r\n");
        if (headerEnd < 0)
            return;
        RecordedRequest request;
        const QList<QByteArray> lines = m_buffer.left(headerEnd).split('\n');
        const QList<QByteArray> requestLine = lines.value(0).trimmed().split(' ');
        request.method = requestLine.value(0);
        request.target = requestLine.value(1);
        request.version = requestLine.value(2);
        for (const QByteArray &line : lines.mid(1)) {
            const qsizetype colon = line.indexOf(':');
            if (colon > 0)
                request.headers.append({line.left(colon).trimmed(), line.mid(colon + 1).trimmed()});
        }
        const qsizetype length = request.header("Content-Length").toLongLong(), bodyStart = headerEnd + 4;
        if (m_buffer.size() < bodyStart + length)
            return;
        request.body = m_buffer.mid(bodyStart, length);
        m_buffer.remove(0, bodyStart + length);

        int index;
        {
            QMutexLocker locker(&m_server->m_mutex);
            m_server->m_requests.append(request);
            index = int(m_server->m_requests.size()) - 1;
            m_response = m_server->m_handler           ? m_server->m_handler(request)
                         : m_server->m_queue.isEmpty() ? m_server->m_fallback
                                                       : m_server->m_queue.takeFirst();
        }
        emit m_server->requestReceived(index);
        m_step = 0;
        m_repeatLeft = 0;
        m_firstPieceMarked = false;
        m_responding = true;
        if (m_response.m_status == 0)
            return; // silent: the connection stays open until the client gives up
        writeHead();
        advance();
    }

    void writeHead()
    {
        // Clients show the reason phrase in their error texts; any other status gets a neutral one.
        static const QHash<int, QByteArray> reasons{{200, "OK"}, {404, "Not Found"}};
        QByteArray head = "HTTP/1.1 " + QByteArray::number(m_response.m_status) + ' ' +
                          reasons.value(m_response.m_status, "Status") + "\r\n";
        for (const auto &[name, value] : m_response.m_headers)
            head += name + ": " + value + "\r\n";
        if (m_response.m_chunked) {
            head += "Transfer-Encoding: chunked\r\n";
        } else if (!m_response.m_framed) {
            head += "Connection: close\r\n";
        } else {
            qsizetype length = 0;
            for (const ScriptedResponse::Step &step : m_response.m_steps)
                length += step.kind == ScriptedResponse::Write ? step.bytes.size()
                          : step.kind == ScriptedResponse::Repeat
                              ? step.bytes.size() * qMax<qint64>(0, step.count)
                              : 0;
            head += "Content-Length: " + QByteArray::number(length) + "\r\n";
        }
        m_socket->write(head + "\r\n");
        m_socket->flush();
    }

    void advance()
    {
        while (!m_closed && m_step < m_response.m_steps.size()) {
            const ScriptedResponse::Step &step = m_response.m_steps.at(m_step++);
            switch (step.kind) {
            case ScriptedResponse::Write:
                writeBody(step.bytes);
                break;
            case ScriptedResponse::Repeat:
                if (!writeRepeated(step)) {
                    --m_step; // the same step again once the client has read what is buffered
                    m_waitingForDrain = true;
                    return;
                }
                break;
            case ScriptedResponse::Raw:
                m_socket->write(step.bytes);
                m_socket->flush();
                break;
            case ScriptedResponse::Close:
                m_socket->disconnectFromHost();
                m_closed = true;
                return;
            case ScriptedResponse::Reset:
                reset();
                return;
            case ScriptedResponse::Pause:
                QTimer::singleShot(step.ms, this, [this] { advance(); });
                return;
            case ScriptedResponse::Hold:
                m_held = true;
                return;
            }
        }
        if (m_closed)
            return;
        if (!m_response.m_framed) {
            m_socket->disconnectFromHost(); // the only way such a body ends
            m_closed = true;
            return;
        }
        m_socket->write(m_response.m_chunked ? "0\r\n\r\n" : "");
        m_socket->flush();
        m_responding = false;
        if (!m_buffer.isEmpty()) // keep-alive: the next request
            handleNextRequest();
    }

    void writeBody(const QByteArray &bytes)
    {
        m_socket->write(m_response.m_chunked ? QByteArray::number(bytes.size(), 16) + "\r\n" + bytes + "\r\n"
                                             : bytes);
        m_socket->flush();
        if (!std::exchange(m_firstPieceMarked, true))
            m_server->m_firstBodyWriteNs =
                std::chrono::nanoseconds(std::chrono::steady_clock::now().time_since_epoch()).count();
    }

    // What is written reaches the client first; then the connection is dropped with a RST instead of a FIN.
    void reset()
    {
        m_socket->waitForBytesWritten(1000);
#ifdef Q_OS_UNIX
        const linger dropAtOnce{1, 0};
        ::setsockopt(int(m_socket->socketDescriptor()), SOL_SOCKET, SO_LINGER, &dropAtOnce,
                     sizeof dropAtOnce);
#endif
        m_socket->abort();
        m_closed = true;
        deleteLater();
    }

    // Writes batches while the socket's buffer is low; false while copies remain.
    bool writeRepeated(const ScriptedResponse::Step &step)
    {
        constexpr qint64 kBatchBytes = 64 * 1024, kBufferedBytes = 256 * 1024;
        if (step.bytes.isEmpty())
            return true;
        if (m_repeatLeft == 0)
            m_repeatLeft = step.count < 0 ? -1 : step.count;
        while (m_repeatLeft != 0 && m_socket->state() == QAbstractSocket::ConnectedState &&
               m_socket->bytesToWrite() < kBufferedBytes) {
            const qint64 copies = qMax<qint64>(1, kBatchBytes / step.bytes.size());
            const qint64 now = m_repeatLeft < 0 ? copies : qMin(copies, m_repeatLeft);
            writeBody(step.bytes.repeated(now));
            if (m_repeatLeft > 0)
                m_repeatLeft -= now;
        }
        if (m_socket->state() != QAbstractSocket::ConnectedState)
            m_closed = true; // the client gave up; disconnected() follows
        return m_repeatLeft == 0 || m_closed;
    }

    QTcpSocket *m_socket;
    LoopbackHttpServer *m_server;
    QByteArray m_buffer;
    ScriptedResponse m_response;
    qsizetype m_step = 0;
    qint64 m_repeatLeft = 0; // copies of the current repeat step still to write; negative: endless
    bool m_responding = false, m_held = false, m_closed = false, m_firstPieceMarked = false;
    bool m_waitingForDrain = false;
};

LoopbackHttpServer::LoopbackHttpServer(QObject *parent)
    : QObject(parent)
    , m_server(new QTcpServer(this))
    , m_fallback(ScriptedResponse::json(
          500, R"({"error":{"message":"the loopback server has no scripted response for this request"}})"))
{
    connect(m_server, &QTcpServer::newConnection, this, [this] {
        while (QTcpSocket *socket = m_server->nextPendingConnection())
            new LoopbackConnection(socket, this);
    });
}

LoopbackHttpServer::~LoopbackHttpServer() = default;

bool LoopbackHttpServer::listen()
{
    return m_server->listen(QHostAddress::LocalHost, 0);
}

QString LoopbackHttpServer::baseUrl(const QString &path) const
{
    return QStringLiteral("http://127.0.0.1:%1%2").arg(m_server->serverPort()).arg(path);
}

void LoopbackHttpServer::enqueue(const ScriptedResponse &response)
{
    const QMutexLocker locker(&m_mutex);
    m_queue.append(response);
}

void LoopbackHttpServer::setFallback(const ScriptedResponse &response)
{
    const QMutexLocker locker(&m_mutex);
    m_fallback = response;
}

void LoopbackHttpServer::setHandler(Handler handler)
{
    const QMutexLocker locker(&m_mutex);
    m_handler = std::move(handler);
}

QList<RecordedRequest> LoopbackHttpServer::requests() const
{
    const QMutexLocker locker(&m_mutex);
    return m_requests;
}

void LoopbackHttpServer::releaseHeld()
{
    // Queued, so that another thread may call it; the connections resume on the server's thread.
    QMetaObject::invokeMethod(this, &LoopbackHttpServer::released, Qt::QueuedConnection);
}

LoopbackServerThread::LoopbackServerThread(const std::function<void(LoopbackHttpServer &)> &setup)
{
    m_thread.start();
    m_context.moveToThread(&m_thread);
    QMetaObject::invokeMethod(
        &m_context,
        [&] {
            m_server = new LoopbackHttpServer;
            if (setup)
                setup(*m_server);
            m_listening = m_server->listen();
        },
        Qt::BlockingQueuedConnection);
}

LoopbackServerThread::~LoopbackServerThread()
{
    // The sockets belong to the server's thread and are closed there; the context comes home to be destroyed.
    QThread *const home = QThread::currentThread();
    QMetaObject::invokeMethod(
        &m_context,
        [this, home] {
            delete m_server;
            m_context.moveToThread(home);
        },
        Qt::BlockingQueuedConnection);
    m_thread.quit();
    m_thread.wait();
}
