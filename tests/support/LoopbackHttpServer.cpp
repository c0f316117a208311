#include "LoopbackHttpServer.h"

#include <QHash>
#include <QHostAddress>
#include <QMutexLocker>
#include <QRandomGenerator>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTimer>

#include <chrono>

#include <sys/socket.h>

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
    return response.setHeader("Content-Type", "text/event-stream").setHeader("Cache-Control", "no-cache");
}

ScriptedResponse ScriptedResponse::json(int status, const QByteArray &body)
{
    ScriptedResponse response;
    response.m_status = status;
    response.m_framing = Framing::ContentLength;
    return response.setHeader("Content-Type", "application/json").send(body);
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

ScriptedResponse &ScriptedResponse::sendInPieces(const QByteArray &bytes, int minPiece, int maxPiece,
                                                 quint32 seed, int pauseMs)
{
    QRandomGenerator random(seed);
    minPiece = qMax(1, minPiece);
    maxPiece = qMax(minPiece, maxPiece);
    for (qsizetype offset = 0; offset < bytes.size();) {
        const int size = random.bounded(minPiece, maxPiece + 1);
        send(bytes.mid(offset, size));
        offset += size;
        if (offset < bytes.size() && pauseMs >= 0)
            pause(pauseMs);
    }
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
        connect(socket, &QTcpSocket::readyRead, this, [this] {
            m_buffer += m_socket->readAll();
            if (!m_responding)
                handleNextRequest();
        });
        connect(socket, &QTcpSocket::disconnected, this, [this] {
            m_closed = true;
            deleteLater();
        });
        connect(server, &LoopbackHttpServer::released, this, [this] {
            if (std::exchange(m_held, false))
                advance();
        });
    }

private:
    using Framing = ScriptedResponse::Framing;

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
        for (qsizetype i = 1; i < lines.size(); ++i) {
            const qsizetype colon = lines.at(i).indexOf(':');
            if (colon > 0)
                request.headers.append(
                    {lines.at(i).left(colon).trimmed(), lines.at(i).mid(colon + 1).trimmed()});
        }
        const qsizetype contentLength = request.header("Content-Length").toLongLong();
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
        static const QHash<int, QByteArray> reasons{{200, "OK"},
                                                    {400, "Bad Request"},
                                                    {401, "Unauthorized"},
                                                    {403, "Forbidden"},
                                                    {404, "Not Found"},
                                                    {429, "Too Many Requests"},
                                                    {500, "Internal Server Error"},
                                                    {502, "Bad Gateway"},
                                                    {503, "Service Unavailable"}};
        const int status = m_response.m_status;
        QByteArray head =
            "HTTP/1.1 " + QByteArray::number(status) + ' ' +
            (m_response.m_reason.isEmpty() ? reasons.value(status, "Status") : m_response.m_reason) + "\r\n";
        for (const auto &entry : m_response.m_headers)
            head += entry.first + ": " + entry.second + "\r\n";
        if (m_response.m_framing == Framing::Chunked)
            head += "Transfer-Encoding: chunked\r\n";
        else if (m_response.m_framing == Framing::ContentLength)
            head += "Content-Length: " + QByteArray::number(m_response.bodyBytes().size()) + "\r\n";
        if (!m_keepAlive || m_response.m_framing == Framing::CloseDelimited)
            head += "Connection: close\r\n";
        m_socket->write(head + "\r\n");
        m_socket->flush();
    }

    void advance()
    {
        while (!m_closed && m_step < m_response.m_steps.size()) {
            const ScriptedResponse::Step &step = m_response.m_steps.at(m_step++);
            switch (step.kind) {
            case ScriptedResponse::StepKind::Write:
                if (m_response.m_framing == Framing::Chunked)
                    m_socket->write(QByteArray::number(step.bytes.size(), 16) + "\r\n" + step.bytes + "\r\n");
                else
                    m_socket->write(step.bytes);
                m_socket->flush();
                if (!std::exchange(m_firstPieceMarked, true))
                    m_server->m_firstBodyWriteNs.store(
                        std::chrono::duration_cast<std::chrono::nanoseconds>(
                            std::chrono::steady_clock::now().time_since_epoch())
                            .count());
                break;
            case ScriptedResponse::StepKind::Pause:
                QTimer::singleShot(step.ms, this, [this] { advance(); });
                return;
            case ScriptedResponse::StepKind::Hold:
                m_held = true;
                return;
            case ScriptedResponse::StepKind::Reset: {
                const linger noLinger{1, 0}; // makes close() send RST instead of FIN
                ::setsockopt(int(m_socket->socketDescriptor()), SOL_SOCKET, SO_LINGER, &noLinger,
                             sizeof noLinger);
                m_socket->abort();
                m_closed = true;
                deleteLater();
                return;
            }
            }
        }
        if (!m_closed)
            finishResponse();
    }

    void finishResponse()
    {
        if (m_response.m_framing == Framing::Chunked)
            m_socket->write("0\r\n\r\n");
        m_socket->flush();
        m_responding = false;
        emit m_server->responseCompleted(m_requestIndex);
        if (m_response.m_framing == Framing::CloseDelimited || !m_keepAlive)
            m_socket->disconnectFromHost();
        else if (!m_buffer.isEmpty())
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
    connect(m_server, &QTcpServer::newConnection, this, [this] {
        while (QTcpSocket *socket = m_server->nextPendingConnection()) {
            {
                QMutexLocker locker(&m_mutex);
                ++m_connections;
            }
            new LoopbackConnection(socket, this);
            emit connectionAccepted();
        }
    });
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

void LoopbackHttpServer::releaseHeld()
{
    // Queued, so that another thread may call it; the connections resume on the server's thread.
    QMetaObject::invokeMethod(
        this, [this] { emit released(); }, Qt::QueuedConnection);
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
