#pragma once

#include <QObject>

#include <memory>

// The native half of start at login: an XDG autostart entry on Linux, a LaunchAgent on macOS.
class IAutoStartBackend
{
public:
    virtual ~IAutoStartBackend() = default;
    // Whether an entry that starts this program at login is installed.
    virtual bool isEnabled() const = 0;
    // Installs the entry; false when it could not be installed (nothing half-written is left behind).
    virtual bool enable() = 0;
    // Removes the entry; false when it is still there afterwards.
    virtual bool disable() = 0;
};

// The platform's backend (defined by the backend folder that is compiled in).
std::unique_ptr<IAutoStartBackend> vontrelCreateAutoStartBackend();

// Starts the application at login. A process-wide singleton, created on first use and never destroyed.
class AutoStartManager final : public QObject
{
    Q_OBJECT

public:
    static AutoStartManager *instance();

    explicit AutoStartManager(QObject *parent = nullptr);
    // Uses the given backend (tests hand in a fake or a backend on a private directory).
    explicit AutoStartManager(std::unique_ptr<IAutoStartBackend> backend, QObject *parent = nullptr);
    ~AutoStartManager() override;

    // Whether this program is set to start at login, read from what is installed (not from the settings).
    bool isAutoStartEnabled() const;
    // Installs or removes the login entry. False when enabling failed; the caller then leaves the setting
    // off.
    bool setAutoStart(bool enabled);

private:
    std::unique_ptr<IAutoStartBackend> m_backend;
};
