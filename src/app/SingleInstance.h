#pragma once

#include <QByteArray>
#include <QObject>
#include <QString>

#include <chrono>
#include <memory>
#include <optional>

class QLocalServer;
class QLocalSocket;
class QLockFile;

// What a later start asks of the running instance: an action, with the activation token the desktop gave the
// launched command, so the window the action opens may take the focus.
struct InstanceRequest
{
    enum Action { ShowPreferences, Capture, Selection };
    Action action = ShowPreferences;
    QByteArray activationToken; // XDG_ACTIVATION_TOKEN (Wayland)
    QByteArray startupId;       // DESKTOP_STARTUP_ID (X11 startup notification)

    // The tokens this process was started with.
    static InstanceRequest fromEnvironment(Action action);
    // The X server time in a startup id ("..._TIME<n>"); 0 when it carries none.
    static quint64 startupTime(const QByteArray &startupId);

    // One line on the socket; the tokens are percent-encoded, so a space or a newline cannot end a field.
    QByteArray encode() const;
    static std::optional<InstanceRequest> decode(const QByteArray &line);

    bool operator==(const InstanceRequest &other) const
    {
        return action == other.action && activationToken == other.activationToken &&
               startupId == other.startupId;
    }
};

// One Vontrel per user and display: two would each save their own idea of the settings over the other's. The
// first start holds a lock and listens on a local socket; a later start hands it its request (show the
// Preferences, or start an action) and exits.
class SingleInstance final : public QObject
{
    Q_OBJECT

public:
    // A request is one short line; anything longer, or a connection that goes quiet before its line ends, is
    // dropped, so a stray client can neither grow this process nor hold a connection open.
    static constexpr qint64 MaxRequestBytes = 4096;

    explicit SingleInstance(QObject *parent = nullptr);
    ~SingleInstance() override;

    // The lock and the socket for this user (the per-user runtime folder) and this display.
    static QString lockFilePath();
    static QString socketPath();

    // True when this process is now the instance for the display (also when the lock cannot be made at all:
    // running twice is better than not running). False when another one holds it; it has then been handed
    // `request`, and otherInstanceAnswered() says whether it confirmed.
    bool claim(const InstanceRequest &request = InstanceRequest());
    bool otherInstanceAnswered() const { return m_otherAnswered; }
    // After a refused claim: says on the terminal what became of this start, and gives its exit status.
    int reportHandOver() const;

    // How long a connection may stay silent before its request is complete.
    void setIdleLimit(std::chrono::milliseconds limit) { m_idleLimit = limit; }

signals:
    // A later start asked this instance for something.
    void requested(const InstanceRequest &request);

private:
    void onNewConnection();
    void readRequest(QLocalSocket *socket);
    bool askRunningInstance(const InstanceRequest &request);

    std::unique_ptr<QLockFile> m_lock;
    QLocalServer *m_server = nullptr;
    InstanceRequest m_request;
    bool m_otherAnswered = false;
    std::chrono::milliseconds m_idleLimit{5000};
};
