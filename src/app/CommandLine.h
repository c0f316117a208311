#pragma once

#include <QString>
#include <QStringList>

// What a start of vontrel was asked to do besides running.
enum class CommandLineAction {
    None,
    // Start a text capture in the running Vontrel (this start becomes it when none runs).
    Capture,
    // Translate the selected or clipboard text in the running Vontrel.
    Selection,
};

// The command line, read before any display is opened: --help and --version must work on a plain terminal.
// Qt's own options (-platform, -style, ...) are let through for QApplication to take.
struct CommandLine
{
    CommandLineAction action = CommandLineAction::None;
    // True when this start ends here (help, version, bad options): print output/error and exit with exitCode.
    bool exitNow = false;
    int exitCode = 0;
    QString output; // for stdout
    QString error;  // for stderr

    static CommandLine parse(const QStringList &arguments);
    static CommandLine parse(int argc, char *argv[]);
};
