#include "platform/AutoStartManager.h"

AutoStartManager *AutoStartManager::instance()
{
    // Never destroyed: start-up and the General page may ask it until the very end of the process.
    static AutoStartManager *manager = new AutoStartManager(Platform::create()->createAutoStartBackend());
    return manager;
}

AutoStartManager::AutoStartManager(std::unique_ptr<IAutoStartBackend> backend, QObject *parent)
    : QObject(parent)
    , m_backend(std::move(backend))
{}

AutoStartManager::~AutoStartManager() = default;

bool AutoStartManager::isAutoStartEnabled() const
{
    return m_backend->isEnabled();
}

bool AutoStartManager::setAutoStart(bool enabled)
{
    return enabled ? m_backend->enable() : m_backend->disable();
}
