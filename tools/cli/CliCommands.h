#pragma once

#include <QStringList>

// Each subcommand gets the arguments after its name and returns the process exit status.
int vontrelCliTranslate(const QStringList &arguments);
int vontrelCliOcr(const QStringList &arguments);

// Exit statuses shared by the subcommands (0 is success).
constexpr int kCliExitFailed = 1;
constexpr int kCliExitUsage = 2;

// Writes to standard output and flushes at once, so a pipe reader sees each piece as it is produced.
void vontrelCliWriteOut(const QString &text);
// Writes "vontrel-cli: MESSAGE" and a line feed to standard error.
void vontrelCliWriteError(const QString &message);
