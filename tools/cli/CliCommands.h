#pragma once

#include <QStringList>

// Each subcommand gets the arguments after its name and returns the process exit status.
int vontrelCliTranslate(const QStringList &arguments);
int vontrelCliOcr(const QStringList &arguments);
