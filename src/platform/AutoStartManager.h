#pragma once

#include "platform/Platform.h"

#include <QObject>

#include <memory>

// Starts the application at login. instance() is a process-wide manager over the compiled-in backend,
// created on first use and never destroyed.
class AutoStartManager final : public QObject
{
    Q_OBJECT

public:
    static AutoStartManager *instance();

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
