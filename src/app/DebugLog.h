#pragma once

#include <QString>

// Path of "vontrel-debug.log" in the temporary directory; empty when the system reports none.
QString debugLogPath();
// Appends one time-stamped line; does nothing when there is no path.
void appendDebugLog(const QString &message);
