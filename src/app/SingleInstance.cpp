#include "app/SingleInstance.h"

#include "log/LogCategories.h"
#include "platform/RuntimeFolder.h"

#include <QDebug>
#include <QDir>
#include <QElapsedTimer>
#include <QLocalServer>
#include <QLocalSocket>
#include <QLockFile>
#include <QRegularExpression>
#include <QThread>
#include <QTimer>

#include <cstdio>

namespace {

const QByteArray kAnswer = "ok\n";

const char *actionName(InstanceRequest::Action action)
{
    switch (action) {
    case InstanceRequest::Capture:
        return "capture";
    case InstanceRequest::Selection:
        return "selection";
    case InstanceRequest::ShowPreferences:
        break;
    }
    return "show-preferences";
}

// The display the windows go to. ":0" and ":0.0" are the same X server, so the screen number is dropped.
QString displayKey()
{
    QString display = qEnvironmentVariable("DISPLAY");
    if (!display.isEmpty()) {
        display.remove(QRegularExpression(QStringLiteral("\\.\\d+$")));
        display = QStringLiteral("x11") + display;
    } else {
        display = qEnvironmentVariable("WAYLAND_DISPLAY");
        display = display.isEmpty() ? QStringLiteral("none") : QStringLiteral("wayland-") + display;
    }
    return display.replace(QRegularExpression(QStringLiteral("[^A-Za-z0-9_-]")), QStringLiteral("_"));
}

// The runtime folder belongs to the user alone, which makes the names below per user without putting the
// user's name into them, and keeps anyone else from taking them. Without one there is no path (and no check).
QString instancePath(const char *suffix)
{
    const QString dir = vontrelRuntimeFolder();
    if (dir.isEmpty())
        return QString();
    return QDir(dir).filePath(QStringLiteral("vontrel-%1.%2").arg(displayKey(), QLatin1String(suffix)));
}

} // namespace

InstanceRequest InstanceRequest::fromEnvironment(Action action)
{
    InstanceRequest request;
    request.action = action;
    request.activationToken = qgetenv("XDG_ACTIVATION_TOKEN");
    request.startupId = qgetenv("DESKTOP_STARTUP_ID");
    return request;
}

quint64 InstanceRequest::startupTime(const QByteArray &startupId)
{
    const int at = startupId.lastIndexOf("_TIME");
    if (at < 0)
        return 0;
    bool ok = false;
    const quint64 time = startupId.mid(at + 5).toULongLong(&ok);
    return ok ? time : 0;
}

QByteArray InstanceRequest::encode() const
{
    QByteArray line = actionName(action);
    if (!activationToken.isEmpty())
        line += " activation-token=" + activationToken.toPercentEncoding();
    if (!startupId.isEmpty())
        line += " startup-id=" + startupId.toPercentEncoding();
    return line + '\n';
}

std::optional<InstanceRequest> InstanceRequest::decode(const QByteArray &line)
{
    if (!line.endsWith('\n'))
        return std::nullopt;
    const QList<QByteArray> fields = line.chopped(1).split(' ');
    InstanceRequest request;
    bool known = false;
    for (const Action action : {ShowPreferences, Capture, Selection}) {
        if (fields.first() == actionName(action)) {
            request.action = action;
            known = true;
        }
    }
    if (!known)
        return std::nullopt;
    // Fields a later version may add are passed over.
    for (qsizetype i = 1; i < fields.size(); ++i) {
        const QByteArray &field = fields.at(i);
        if (field.startsWith("activation-token="))
            request.activationToken = QByteArray::fromPercentEncoding(field.mid(17));
        else if (field.startsWith("startup-id="))
            request.startupId = QByteArray::fromPercentEncoding(field.mid(11));
    }
    return request;
}

SingleInstance::SingleInstance(QObject *parent)
    : QObject(parent)
{}

SingleInstance::~SingleInstance() = default;

QString SingleInstance::lockFilePath()
{
    return instancePath("lock");
}

QString SingleInstance::socketPath()
{
    return instancePath("socket");
}

bool SingleInstance::claim(const InstanceRequest &request)
{
    m_request = request;
    m_lock = std::make_unique<QLockFile>(lockFilePath());
    // Held for the whole run; only a dead holder makes a lock stale, never its age.
    m_lock->setStaleLockTime(0);
    if (!m_lock->tryLock(0)) {
        if (m_lock->error() == QLockFile::LockFailedError) {
            m_lock.reset();
            m_otherAnswered = askRunningInstance(request);
            return false;
        }
        qCWarning(lcApp).noquote() << "SingleInstance: cannot create" << lockFilePath()
                                   << "- running without the one-instance check";
        m_lock.reset();
        return true;
    }

    // A socket file left by an instance that crashed would make listen() fail.
    const QString path = socketPath();
    QLocalServer::removeServer(path);
    m_server = new QLocalServer(this);
    m_server->setSocketOptions(QLocalServer::UserAccessOption);
    if (!m_server->listen(path)) {
        qCWarning(lcApp).noquote() << "SingleInstance: cannot listen on" << path << "-"
                                   << m_server->errorString();
        return true;
    }
    connect(m_server, &QLocalServer::newConnection, this, &SingleInstance::onNewConnection);
    return true;
}

bool SingleInstance::askRunningInstance(const InstanceRequest &request)
{
    // The holder may be between taking the lock and listening, so a refused connection is tried again
    // for a moment.
    QLocalSocket socket;
    QElapsedTimer clock;
    clock.start();
    do {
        socket.connectToServer(socketPath());
        if (socket.waitForConnected(1000))
            break;
        socket.abort();
        QThread::msleep(100);
    } while (clock.elapsed() < 3000);
    if (socket.state() != QLocalSocket::ConnectedState)
        return false;

    socket.write(request.encode());
    socket.waitForBytesWritten(1000);
    QByteArray answer;
    while (!answer.endsWith('\n') && answer.size() <= kAnswer.size() && socket.waitForReadyRead(3000))
        answer += socket.readAll();
    return answer == kAnswer;
}

int SingleInstance::reportHandOver() const
{
    if (m_otherAnswered) {
        switch (m_request.action) {
        case InstanceRequest::Capture:
            std::fputs("Vontrel is already running; it has been asked to start a text screenshot.\n", stdout);
            break;
        case InstanceRequest::Selection:
            std::fputs("Vontrel is already running; it has been asked to translate the selected or clipboard "
                       "text.\n",
                       stdout);
            break;
        case InstanceRequest::ShowPreferences:
            std::fputs("Vontrel is already running; its Preferences window has been opened.\n", stdout);
            break;
        }
        return 0;
    }
    std::fputs("Vontrel is already running on this display but does not answer.\n", stderr);
    return 1;
}

void SingleInstance::onNewConnection()
{
    while (QLocalSocket *socket = m_server->nextPendingConnection()) {
        // Qt stops reading from the socket once this much is buffered, so a client that sends without end
        // fills only its own side of the connection until it is dropped.
        socket->setReadBufferSize(MaxRequestBytes);
        connect(socket, &QLocalSocket::disconnected, socket, &QObject::deleteLater);
        auto *deadline = new QTimer(socket);
        deadline->setSingleShot(true);
        connect(deadline, &QTimer::timeout, socket, [socket] {
            qCWarning(lcApp).noquote() << "SingleInstance: dropped a connection that sent no request in time";
            socket->abort();
            socket->deleteLater();
        });
        deadline->start(m_idleLimit);
        connect(socket, &QLocalSocket::readyRead, this, [this, socket] { readRequest(socket); });
        readRequest(socket);
    }
}

void SingleInstance::readRequest(QLocalSocket *socket)
{
    const auto drop = [socket](const char *why) {
        qCWarning(lcApp).noquote() << "SingleInstance: dropped a connection:" << why;
        socket->disconnect();
        socket->abort();
        socket->deleteLater();
    };
    if (!socket->canReadLine()) {
        if (socket->bytesAvailable() >= MaxRequestBytes)
            drop("its request is too long");
        return;
    }
    const std::optional<InstanceRequest> request = InstanceRequest::decode(socket->readLine(MaxRequestBytes));
    if (!request) {
        drop("it is not a request");
        return;
    }
    // One request per connection; whatever follows it is not read.
    socket->disconnect(this);
    qDeleteAll(socket->findChildren<QTimer *>());
    socket->write(kAnswer);
    socket->flush();
    socket->disconnectFromServer();
    emit requested(*request);
}
