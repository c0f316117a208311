#include "app/SingleInstance.h"

#include "log/LogCategories.h"

#include <QDebug>
#include <QDir>
#include <QElapsedTimer>
#include <QLocalServer>
#include <QLocalSocket>
#include <QLockFile>
#include <QRegularExpression>
#include <QStandardPaths>
#include <QThread>

#include <cstdio>

namespace {

const QByteArray kShowRequest = "show-preferences\n";
const QByteArray kShowAnswer = "ok\n";

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

// The runtime folder belongs to the user alone (Qt checks its owner and mode), which makes the names below
// per user without putting the user's name into them.
QString instancePath(const char *suffix)
{
    QString dir = QStandardPaths::writableLocation(QStandardPaths::RuntimeLocation);
    if (dir.isEmpty())
        dir = QDir::tempPath();
    return QDir(dir).filePath(QStringLiteral("vontrel-%1.%2").arg(displayKey(), QLatin1String(suffix)));
}

} // namespace

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

bool SingleInstance::claim()
{
    m_lock = std::make_unique<QLockFile>(lockFilePath());
    // Held for the whole run; only a dead holder makes a lock stale, never its age.
    m_lock->setStaleLockTime(0);
    if (!m_lock->tryLock(0)) {
        if (m_lock->error() == QLockFile::LockFailedError) {
            m_lock.reset();
            m_otherAnswered = askRunningInstance();
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

bool SingleInstance::askRunningInstance()
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

    socket.write(kShowRequest);
    socket.waitForBytesWritten(1000);
    QByteArray answer;
    while (!answer.endsWith('\n') && socket.waitForReadyRead(3000))
        answer += socket.readAll();
    return answer == kShowAnswer;
}

int SingleInstance::reportHandOver() const
{
    if (m_otherAnswered) {
        std::fputs("Vontrel is already running; its Preferences window has been opened.\n", stdout);
        return 0;
    }
    std::fputs("Vontrel is already running on this display but does not answer.\n", stderr);
    return 1;
}

void SingleInstance::onNewConnection()
{
    while (QLocalSocket *socket = m_server->nextPendingConnection()) {
        connect(socket, &QLocalSocket::disconnected, socket, &QObject::deleteLater);
        connect(socket, &QLocalSocket::readyRead, this, [this, socket] {
            if (!socket->canReadLine())
                return;
            if (socket->readLine() != kShowRequest) {
                socket->disconnectFromServer();
                return;
            }
            socket->write(kShowAnswer);
            socket->flush();
            emit activationRequested();
        });
    }
}
