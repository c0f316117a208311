#pragma once

#include <QString>

// Path of "vontrel-debug.log" in the user's private runtime folder; empty when there is no such folder.
QString debugLogPath();
// Appends one time-stamped line; does nothing when there is no path.
void appendDebugLog(const QString &message);
