#include "platform/LaunchAgentAutoStart.h"

std::unique_ptr<IAutoStartBackend> vontrelCreateAutoStartBackend()
{
    return std::make_unique<LaunchAgentAutoStart>(std::make_unique<ProcessLaunchctlRunner>(),
                                                  LaunchAgentAutoStart::systemEnvironment());
}
