#pragma once

#include <QByteArray>
#include <QHash>
#include <QList>
#include <QObject>
#include <QPointer>
#include <QString>
#include <QStringList>
#include <QTcpServer>

class QTcpSocket;

// A chat-completions service on 127.0.0.1 that answers every request with a server-sent event stream. The
// answer is streamed at once and the response ended, or held open (for tests that interrupt a running
// request) until the test releases it. Real HTTP/1.1 over a real socket, so the program's client is exercised
// as it is against a real provider.
class LoopbackChatProvider final : public QObject
{
    Q_OBJECT

public:
    explicit LoopbackChatProvider(QObject *parent = nullptr);
    ~LoopbackChatProvider() override;

    // False when no loopback port could be opened.
    bool listen();
    // Base URL to configure: "http://127.0.0.1:<port>/v1".
    QString apiUrl() const;

    // The pieces of the answer, one "data: " event each.
    void setChunks(const QStringList &chunks) { m_chunks = chunks; }
    // Held: the pieces are sent but the response stays open until releaseHeld().
    void setHold(bool hold) { m_hold = hold; }
    // Non-empty: the stream carries one error object with this message instead of the answer.
    void setErrorMessage(const QString &message) { m_errorMessage = message; }
    // Ends every held response (the client sees the end of the stream).
    void releaseHeld();

    int requestCount() const { return static_cast<int>(m_prompts.size()); }
    // The user message of each request, in arrival order.
    QStringList prompts() const { return m_prompts; }
    // Connections whose request arrived and whose response is still open.
    int openStreamCount() const;

signals:
    void requestReceived(const QString &prompt);

private:
    void onNewConnection();
    void onReadyRead(QTcpSocket *socket);
    void answer(QTcpSocket *socket);

    QTcpServer m_server;
    QStringList m_chunks;
    bool m_hold = false;
    QString m_errorMessage;
    QStringList m_prompts;
    QHash<QTcpSocket *, QByteArray> m_buffers;
    QList<QPointer<QTcpSocket>> m_held;
};
