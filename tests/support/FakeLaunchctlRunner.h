#pragma once

#include "platform/mac/LaunchAgentAutoStart.h"

#include <QMap>

#include <memory>

// Records launchctl command lines and answers with scripted exit codes (0 unless told otherwise).
class FakeLaunchctlRunner final : public ILaunchctlRunner
{
public:
    struct State
    {
        QList<QStringList> commands;
        QMap<QString, int> exitCodeBySubcommand; // "bootstrap" -> 5
    };
    std::shared_ptr<State> state() const { return m_state; }
    LaunchctlResult run(const QStringList &arguments) override
    {
        m_state->commands << arguments;
        return {m_state->exitCodeBySubcommand.value(arguments.value(0), 0), {}, {}};
    }

private:
    std::shared_ptr<State> m_state = std::make_shared<State>();
};
