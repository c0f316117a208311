#pragma once

#include "platform/Platform.h"

#include <QByteArray>
#include <QString>
#include <QStringList>

#include <memory>

struct LaunchctlResult
{
    int exitCode = 0;
    QByteArray standardOutput;
    QByteArray standardError;
};

// Runs the launchctl tool; tests hand in a runner that records the command lines.
class ILaunchctlRunner
{
public:
    virtual ~ILaunchctlRunner() = default;
    // Runs launchctl with the arguments until it exits (no time limit).
    virtual LaunchctlResult run(const QStringList &arguments) = 0;
};

// launchctl found through the search path, run with QProcess.
class ProcessLaunchctlRunner final : public ILaunchctlRunner
{
public:
    LaunchctlResult run(const QStringList &arguments) override;
};

// Start at login through a per-user LaunchAgent that opens the application bundle, driven with launchctl.
// Written over an injected runner and environment, so the whole plan is testable away from macOS.
class LaunchAgentAutoStart final : public IAutoStartBackend
{
public:
    static constexpr const char *CurrentLabel = "app.vontrel.Vontrel";
    static constexpr const char *FormerLabel = "com.vontrel.Vontrel";
    static constexpr const char *FormerMarker = "com.vontrel.app";

    struct Environment
    {
        QString homeDir;        // the user's home
        uint uid = 0;           // numeric user id for the gui/<uid> domain
        QString executablePath; // QCoreApplication::applicationFilePath()
    };

    // The real environment (home, getuid(), this executable).
    static Environment systemEnvironment();

    LaunchAgentAutoStart(std::unique_ptr<ILaunchctlRunner> runner, Environment environment);

    bool isEnabled() const override { return isLaunchAgentEnabled(); }
    bool enable() override { return enableLaunchAgent(); }
    bool disable() override { return disableLaunchAgent(); }

    // Installed when the current or the former label's file mentions its label and this program.
    bool isLaunchAgentEnabled() const;
    // Writes the property list and loads it; false when the file cannot be written or launchd refuses it.
    bool enableLaunchAgent();
    // Unloads and deletes both labels' agents; always true.
    bool disableLaunchAgent();

    QString launchAgentPlistPath(const QString &label) const;
    QString domain() const;
    QString serviceTarget(const QString &label) const;

    static QByteArray propertyList();
    static QString normalizedPath(const QString &path);
    static QString bundlePathForExecutable(const QString &executablePath);
    static bool plistMentions(const QString &bundlePath, const QString &executablePath, const QString &file,
                              const QString &label, const QString &alternative);

private:
    LaunchctlResult launchctl(const QStringList &arguments) { return m_runner->run(arguments); }

    std::unique_ptr<ILaunchctlRunner> m_runner;
    Environment m_env;
};
