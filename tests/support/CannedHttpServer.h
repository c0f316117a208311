#pragma once

#include <QByteArray>
#include <QHash>
#include <QList>
#include <QObject>
#include <QTcpServer>
#include <QUrl>

#include <functional>

class QTcpSocket;

// A loopback HTTP/1.1 server that answers each request with a response chosen by the test. Listens on
// 127.0.0.1 only; closes the connection after each answer.
class CannedHttpServer final : public QObject
{
    Q_OBJECT

public:
    struct Request
    {
        QByteArray method;
        QByteArray target;                     // path and query as sent
        QHash<QByteArray, QByteArray> headers; // names in lower case
        QByteArray body;
    };

    struct Response
    {
        int status = 200;
        QByteArray reason = "OK";
        QByteArray contentType = "application/json";
        QByteArray body;
        // True: keep the connection open and never answer (for time-out tests).
        bool stall = false;
    };

    explicit CannedHttpServer(QObject *parent = nullptr);

    // False when no loopback port could be opened.
    bool listen();
    // "http://127.0.0.1:<port>".
    QUrl baseUrl() const;

    // Answers every following request with this response.
    void setResponse(const Response &response);
    // Lets the test compute the response from the request.
    void setHandler(std::function<Response(const Request &)> handler) { m_handler = std::move(handler); }

    QList<Request> requests() const { return m_requests; }

signals:
    void requestReceived();

private:
    void onNewConnection();
    void onReadyRead(QTcpSocket *socket);

    QTcpServer m_server;
    std::function<Response(const Request &)> m_handler;
    QList<Request> m_requests;
    QHash<QTcpSocket *, QByteArray> m_buffers;
};
