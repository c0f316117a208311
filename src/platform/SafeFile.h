#pragma once

#include <QByteArray>
#include <QByteArrayView>
#include <QFileDevice>
#include <QString>

// Files the user would lose something by: written whole or not at all, and read without blocking on whatever
// else may sit at their path.

// Writes the bytes into a new file beside path and renames it over path only when every write, the flush to
// the disk and the close succeeded; the new file has the permissions from the start. False with *error set
// to the system's reason when anything failed: the old file is then untouched and nothing is left beside it.
bool vontrelWriteFileWhole(const QString &path, QByteArrayView bytes, QFileDevice::Permissions permissions,
                           QString *error);

enum class FileRead {
    Read,    // *bytes holds the whole file
    Missing, // nothing at the path
    Refused, // something at the path that is not a regular file, or larger than maxBytes; *error says what
    Failed,  // a regular file that could not be read; *error has the system's reason
};
// Reads a regular file whole. A FIFO, a device, a socket or a directory at the path is refused without
// opening it for long (a FIFO without a writer would block a plain open for ever). Symbolic links are
// followed.
FileRead vontrelReadRegularFile(const QString &path, qsizetype maxBytes, QByteArray *bytes, QString *error);

// Test hook: from now on vontrelWriteFileWhole fails at this step with the system error code (ENOSPC, EIO
// ...), as a full or failing disk would make it; an error code of 0 ends that.
enum class WriteStep { Write, Flush, Close, Rename };
void vontrelFailWritesForTesting(WriteStep step, int errorCode);
