#include "CannedHttpServer.h"

#include <QHostAddress>
#include <QTcpSocket>

CannedHttpServer::CannedHttpServer(QObject *parent)
    : QObject(parent)
{
    connect(&m_server, &QTcpServer::newConnection, this, &CannedHttpServer::onNewConnection);
    m_handler = [](const Request &) {
        return Response();
    };
}

bool CannedHttpServer::listen()
{
    return m_server.listen(QHostAddress::LocalHost, 0);
}

QUrl CannedHttpServer::baseUrl() const
{
    return QUrl(QStringLiteral("http://127.0.0.1:%1").arg(m_server.serverPort()));
}

void CannedHttpServer::setResponse(const Response &response)
{
    m_handler = [response](const Request &) {
        return response;
    };
}

void CannedHttpServer::onNewConnection()
{
    while (QTcpSocket *socket = m_server.nextPendingConnection()) {
        socket->setParent(this);
        connect(socket, &QTcpSocket::readyRead, this, [this, socket] { onReadyRead(socket); });
        connect(socket, &QTcpSocket::disconnected, this, [this, socket] {
            m_buffers.remove(socket);
            socket->deleteLater();
        });
    }
}

void CannedHttpServer::onReadyRead(QTcpSocket *socket)
{
    QByteArray &buffer = m_buffers[socket];
    buffer += socket->readAll();
    const int headerEnd = buffer.indexOf("\r\n\r\n");
    if (headerEnd < 0)
        return;

    Request request;
    const QList<QByteArray> lines = buffer.left(headerEnd).split('\n');
    const QList<QByteArray> requestLine = lines.value(0).trimmed().split(' ');
    request.method = requestLine.value(0);
    request.target = requestLine.value(1);
    for (int i = 1; i < lines.size(); ++i) {
        const int colon = lines.at(i).indexOf(':');
        if (colon > 0)
            request.headers.insert(lines.at(i).left(colon).trimmed().toLower(),
                                   lines.at(i).mid(colon + 1).trimmed());
    }
    const int length = request.headers.value("content-length", "0").toInt();
    if (buffer.size() < headerEnd + 4 + length)
        return;
    request.body = buffer.mid(headerEnd + 4, length);
    buffer.clear();

    m_requests.append(request);
    const Response response = m_handler(request);
    emit requestReceived();
    if (response.stall)
        return;

    QByteArray answer = "HTTP/1.1 " + QByteArray::number(response.status) + ' ' + response.reason + "\r\n";
    answer += "Content-Type: " + response.contentType + "\r\n";
    answer += "Content-Length: " + QByteArray::number(response.body.size()) + "\r\n";
    answer += "Connection: close\r\n\r\n";
    answer += response.body;
    socket->write(answer);
    socket->disconnectFromHost();
}
