#pragma once

#include <QString>

class QFile;

// The folder for this user's runtime files (the debug log, the single-instance lock and socket): a folder
// nobody else can enter, so nobody else can plant a file or a link under the names Vontrel uses there.
// XDG_RUNTIME_DIR when it is such a folder; otherwise "vontrel-<uid>" in the temporary folder, or when
// someone else holds that name, "vontrel-runtime" in the user's cache folder, each created 0700. A folder is
// used only when it is a real folder (not a link) owned by the user; one that is the user's own but open to
// others is closed first. Empty, with *problem set, when there is none.
QString vontrelRuntimeFolder(QString *problem = nullptr);

// Opens the file for appending, creating it readable and writable by the user alone. Refuses a symbolic link
// at the name and anything but a regular file of the user's own. False with *error set when it cannot.
bool vontrelOpenPrivateFileForAppend(QFile &file, const QString &path, QString *error);
