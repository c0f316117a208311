#include "LoopbackChatProvider.h"

#include <QHostAddress>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTcpSocket>

LoopbackChatProvider::LoopbackChatProvider(QObject *parent)
    : QObject(parent)
{
    connect(&m_server, &QTcpServer::newConnection, this, &LoopbackChatProvider::onNewConnection);
}

LoopbackChatProvider::~LoopbackChatProvider()
{
    for (QTcpSocket *socket : m_buffers.keys())
        socket->disconnect(this);
}

bool LoopbackChatProvider::listen()
{
    return m_server.listen(QHostAddress::LocalHost, 0);
}

QString LoopbackChatProvider::apiUrl() const
{
    return QStringLiteral("http://127.0.0.1:%1/v1").arg(m_server.serverPort());
}

int LoopbackChatProvider::openStreamCount() const
{
    int count = 0;
    for (const QPointer<QTcpSocket> &socket : m_held) {
        if (socket && socket->state() == QAbstractSocket::ConnectedState)
            ++count;
    }
    return count;
}

void LoopbackChatProvider::releaseHeld()
{
    const QList<QPointer<QTcpSocket>> held = std::exchange(m_held, {});
    for (const QPointer<QTcpSocket> &socket : held) {
        if (socket)
            socket->disconnectFromHost();
    }
}

void LoopbackChatProvider::onNewConnection()
{
    while (QTcpSocket *socket = m_server.nextPendingConnection()) {
        socket->setParent(this);
        m_buffers.insert(socket, QByteArray());
        connect(socket, &QTcpSocket::readyRead, this, [this, socket]() { onReadyRead(socket); });
        connect(socket, &QTcpSocket::disconnected, this, [this, socket]() {
            m_buffers.remove(socket);
            socket->deleteLater();
        });
    }
}

void LoopbackChatProvider::onReadyRead(QTcpSocket *socket)
{
    QByteArray &buffer = m_buffers[socket];
    buffer += socket->readAll();
    const int headerEnd = buffer.indexOf("\r\n\r\n");
    if (headerEnd < 0)
        return;
    qsizetype contentLength = 0;
    for (const QByteArray &line : buffer.left(headerEnd).split('\n')) {
        const QByteArray trimmed = line.trimmed();
        if (trimmed.toLower().startsWith("content-length:"))
            contentLength = trimmed.mid(15).trimmed().toLongLong();
    }
    if (buffer.size() < headerEnd + 4 + contentLength)
        return;

    const QByteArray body = buffer.mid(headerEnd + 4, contentLength);
    buffer.clear();
    const QJsonArray messages =
        QJsonDocument::fromJson(body).object().value(QStringLiteral("messages")).toArray();
    const QString prompt = messages.isEmpty()
                               ? QString()
                               : messages.last().toObject().value(QStringLiteral("content")).toString();
    m_prompts.append(prompt);
    answer(socket);
    emit requestReceived(prompt);
}

void LoopbackChatProvider::answer(QTcpSocket *socket)
{
    socket->write("HTTP/1.1 200 OK\r\nContent-Type: text/event-stream\r\nCache-Control: no-cache\r\n"
                  "Connection: close\r\n\r\n");
    auto event = [socket](const QJsonObject &object) {
        socket->write("data: " + QJsonDocument(object).toJson(QJsonDocument::Compact) + "\n\n");
    };
    if (!m_errorMessage.isEmpty()) {
        event(
            QJsonObject{{QStringLiteral("error"), QJsonObject{{QStringLiteral("message"), m_errorMessage}}}});
    } else {
        for (const QString &chunk : std::as_const(m_chunks)) {
            const QJsonObject delta{{QStringLiteral("content"), chunk}};
            event(QJsonObject{
                {QStringLiteral("choices"), QJsonArray{QJsonObject{{QStringLiteral("delta"), delta}}}}});
        }
    }
    socket->flush();
    if (m_hold) {
        m_held.append(socket);
        return;
    }
    socket->write("data: [DONE]\n\n");
    socket->disconnectFromHost();
}
