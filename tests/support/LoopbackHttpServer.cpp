#include "LoopbackHttpServer.h"

#include <QHostAddress>
#include <QMutexLocker>
#include <QPointer>
#include <QRandomGenerator>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTimer>

#include <chrono>

#include <sys/socket.h>

namespace {

QByteArray reasonFor(int status)
{
    switch (status) {
    case 200:
        return "OK";
    case 400:
        return "Bad Request";
    case 401:
        return "Unauthorized";
    case 403:
        return "Forbidden";
    case 404:
        return "Not Found";
    case 429:
        return "Too Many Requests";
    case 500:
        return "Internal Server Error";
    case 502:
        return "Bad Gateway";
    case 503:
        return "Service Unavailable";
    default:
        return "Status";
    }
}

qint64 steadyNowNs()
{
    return std::chrono::duration_cast<std::chrono::nanoseconds>(
               std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

} // namespace

QByteArray RecordedRequest::header(const QByteArray &name) const
{
    for (const auto &entry : headers) {
        if (entry.first.compare(name, Qt::CaseInsensitive) == 0)
            return entry.second.isNull() ? QByteArray("") : entry.second;
    }
    return QByteArray();
}

QByteArray RecordedRequest::path() const
{
    const qsizetype query = target.indexOf('?');
    return query < 0 ? target : target.left(query);
}

ScriptedResponse ScriptedResponse::sse(int status)
{
    ScriptedResponse response;
    response.m_status = status;
    response.setHeader("Content-Type", "text/event-stream");
    response.setHeader("Cache-Control", "no-cache");
    return response;
}

ScriptedResponse ScriptedResponse::json(int status, const QByteArray &body)
{
    ScriptedResponse response;
    response.m_status = status;
    response.m_framing = Framing::ContentLength;
    response.setHeader("Content-Type", "application/json");
    response.send(body);
    return response;
}

ScriptedResponse &ScriptedResponse::setStatus(int status, const QByteArray &reason)
{
    m_status = status;
    m_reason = reason;
    return *this;
}

ScriptedResponse &ScriptedResponse::setHeader(const QByteArray &name, const QByteArray &value)
{
    for (auto &entry : m_headers) {
        if (entry.first.compare(name, Qt::CaseInsensitive) == 0) {
            entry.second = value;
            return *this;
        }
    }
    m_headers.append({name, value});
    return *this;
}

ScriptedResponse &ScriptedResponse::setFraming(Framing framing)
{
    m_framing = framing;
    return *this;
}

ScriptedResponse &ScriptedResponse::send(const QByteArray &bytes)
{
    if (!bytes.isEmpty())
        m_steps.append({StepKind::Write, bytes, 0});
    return *this;
}

ScriptedResponse &ScriptedResponse::sendInPieces(const QByteArray &bytes, int minPiece, int maxPiece,
                                                 quint32 seed, int pauseMs)
{
    QRandomGenerator random(seed);
    minPiece = qMax(1, minPiece);
    maxPiece = qMax(minPiece, maxPiece);
    qsizetype offset = 0;
    while (offset < bytes.size()) {
        const int size = random.bounded(minPiece, maxPiece + 1);
        send(bytes.mid(offset, size));
        offset += size;
        if (offset < bytes.size() && pauseMs >= 0)
            pause(pauseMs);
    }
    return *this;
}

ScriptedResponse &ScriptedResponse::pause(int ms)
{
    m_steps.append({StepKind::Pause, QByteArray(), ms});
    return *this;
}

ScriptedResponse &ScriptedResponse::holdUntilReleased()
{
    m_steps.append({StepKind::Hold, QByteArray(), 0});
    return *this;
}

ScriptedResponse &ScriptedResponse::resetConnection()
{
    m_steps.append({StepKind::Reset, QByteArray(), 0});
    return *this;
}

QByteArray ScriptedResponse::bodyBytes() const
{
    QByteArray body;
    for (const Step &step : m_steps) {
        if (step.kind == StepKind::Write)
            body += step.bytes;
    }
    return body;
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
        connect(socket, &QTcpSocket::readyRead, this, &LoopbackConnection::onReadyRead);
        connect(socket, &QTcpSocket::disconnected, this, &LoopbackConnection::onDisconnected);
        connect(server, &LoopbackHttpServer::released, this, &LoopbackConnection::onReleased);
    }

private:
    void onReadyRead()
    {
        m_buffer += m_socket->readAll();
        if (!m_responding)
            handleNextRequest();
    }

    void onDisconnected()
    {
        m_closed = true;
        deleteLater();
    }

    void onReleased()
    {
        if (m_held) {
            m_held = false;
            advance();
        }
    }

    // Takes one complete request from the buffer, records it and starts its answer.
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
        qsizetype contentLength = 0;
        for (qsizetype i = 1; i < lines.size(); ++i) {
            const QByteArray line = lines.at(i).trimmed();
            const qsizetype colon = line.indexOf(':');
            if (colon <= 0)
                continue;
            const QByteArray name = line.left(colon).trimmed();
            const QByteArray value = line.mid(colon + 1).trimmed();
            request.headers.append({name, value});
            if (name.compare("Content-Length", Qt::CaseInsensitive) == 0)
                contentLength = value.toLongLong();
        }
        const qsizetype bodyStart = headerEnd + 4;
        if (m_buffer.size() < bodyStart + contentLength)
            return;
        request.body = m_buffer.mid(bodyStart, contentLength);
        m_buffer.remove(0, bodyStart + contentLength);
        m_keepAlive = request.version != "HTTP/1.0" &&
                      request.header("Connection").compare("close", Qt::CaseInsensitive) != 0;

        m_requestIndex = m_server->recordRequest(request);
        m_response = m_server->takeResponse(request);
        m_step = 0;
        m_firstPieceMarked = false;
        m_responding = true;
        writeHead();
        advance();
    }

    void writeHead()
    {
        QByteArray head =
            "HTTP/1.1 " + QByteArray::number(m_response.m_status) + ' ' +
            (m_response.m_reason.isEmpty() ? reasonFor(m_response.m_status) : m_response.m_reason) + "\r\n";
        for (const auto &entry : m_response.m_headers)
            head += entry.first + ": " + entry.second + "\r\n";
        switch (m_response.m_framing) {
        case ScriptedResponse::Framing::Chunked:
            head += "Transfer-Encoding: chunked\r\n";
            break;
        case ScriptedResponse::Framing::ContentLength:
            head += "Content-Length: " + QByteArray::number(m_response.bodyBytes().size()) + "\r\n";
            break;
        case ScriptedResponse::Framing::CloseDelimited:
            head += "Connection: close\r\n";
            break;
        }
        if (!m_keepAlive && m_response.m_framing != ScriptedResponse::Framing::CloseDelimited)
            head += "Connection: close\r\n";
        head += "\r\n";
        m_socket->write(head);
        m_socket->flush();
    }

    void advance()
    {
        while (!m_closed && m_step < m_response.m_steps.size()) {
            const ScriptedResponse::Step &step = m_response.m_steps.at(m_step++);
            switch (step.kind) {
            case ScriptedResponse::StepKind::Write:
                if (m_response.m_framing == ScriptedResponse::Framing::Chunked)
                    m_socket->write(QByteArray::number(step.bytes.size(), 16) + "\r\n" + step.bytes + "\r\n");
                else
                    m_socket->write(step.bytes);
                m_socket->flush();
                if (!m_firstPieceMarked) {
                    m_firstPieceMarked = true;
                    m_server->m_firstBodyWriteNs.store(steadyNowNs());
                }
                break;
            case ScriptedResponse::StepKind::Pause:
                QTimer::singleShot(step.ms, this, [this] { advance(); });
                return;
            case ScriptedResponse::StepKind::Hold:
                m_held = true;
                return;
            case ScriptedResponse::StepKind::Reset: {
                // A zero linger time makes close() send RST instead of an orderly FIN.
                const linger noLinger{1, 0};
                ::setsockopt(int(m_socket->socketDescriptor()), SOL_SOCKET, SO_LINGER, &noLinger,
                             sizeof noLinger);
                m_socket->abort();
                m_closed = true;
                deleteLater();
                return;
            }
            }
        }
        if (m_closed)
            return;
        finishResponse();
    }

    void finishResponse()
    {
        if (m_response.m_framing == ScriptedResponse::Framing::Chunked)
            m_socket->write("0\r\n\r\n");
        m_socket->flush();
        m_responding = false;
        emit m_server->responseCompleted(m_requestIndex);
        if (m_response.m_framing == ScriptedResponse::Framing::CloseDelimited || !m_keepAlive) {
            m_socket->disconnectFromHost();
            return;
        }
        if (!m_buffer.isEmpty())
            handleNextRequest();
    }

    QTcpSocket *m_socket;
    LoopbackHttpServer *m_server;
    QByteArray m_buffer;
    ScriptedResponse m_response;
    qsizetype m_step = 0;
    int m_requestIndex = -1;
    bool m_responding = false;
    bool m_held = false;
    bool m_closed = false;
    bool m_keepAlive = true;
    bool m_firstPieceMarked = false;
};

LoopbackHttpServer::LoopbackHttpServer(QObject *parent)
    : QObject(parent)
    , m_server(new QTcpServer(this))
    , m_fallback(ScriptedResponse::json(
          500, R"({"error":{"message":"the loopback server has no scripted response for this request"}})"))
{
    connect(m_server, &QTcpServer::newConnection, this, &LoopbackHttpServer::onNewConnection);
}

LoopbackHttpServer::~LoopbackHttpServer() = default;

bool LoopbackHttpServer::listen()
{
    if (!m_server->listen(QHostAddress::LocalHost, 0))
        return false;
    m_port = m_server->serverPort();
    return true;
}

QString LoopbackHttpServer::baseUrl(const QString &path) const
{
    return QStringLiteral("http://127.0.0.1:%1%2").arg(m_port).arg(path);
}

void LoopbackHttpServer::enqueue(const ScriptedResponse &response)
{
    QMutexLocker locker(&m_mutex);
    m_queue.append(response);
}

void LoopbackHttpServer::setFallback(const ScriptedResponse &response)
{
    QMutexLocker locker(&m_mutex);
    m_fallback = response;
}

void LoopbackHttpServer::setHandler(Handler handler)
{
    QMutexLocker locker(&m_mutex);
    m_handler = std::move(handler);
}

QList<RecordedRequest> LoopbackHttpServer::requests() const
{
    QMutexLocker locker(&m_mutex);
    return m_requests;
}

int LoopbackHttpServer::requestCount() const
{
    QMutexLocker locker(&m_mutex);
    return int(m_requests.size());
}

int LoopbackHttpServer::connectionCount() const
{
    QMutexLocker locker(&m_mutex);
    return m_connections;
}

void LoopbackHttpServer::releaseHeld()
{
    // Queued, so a test on another thread may call it; the connections resume on the server's thread.
    QMetaObject::invokeMethod(
        this, [this] { emit released(); }, Qt::QueuedConnection);
}

void LoopbackHttpServer::onNewConnection()
{
    while (QTcpSocket *socket = m_server->nextPendingConnection()) {
        {
            QMutexLocker locker(&m_mutex);
            ++m_connections;
        }
        new LoopbackConnection(socket, this);
        emit connectionAccepted();
    }
}

int LoopbackHttpServer::recordRequest(const RecordedRequest &request)
{
    int index;
    {
        QMutexLocker locker(&m_mutex);
        m_requests.append(request);
        index = int(m_requests.size()) - 1;
    }
    emit requestReceived(index);
    return index;
}

ScriptedResponse LoopbackHttpServer::takeResponse(const RecordedRequest &request)
{
    QMutexLocker locker(&m_mutex);
    if (m_handler)
        return m_handler(request);
    return m_queue.isEmpty() ? m_fallback : m_queue.takeFirst();
}
