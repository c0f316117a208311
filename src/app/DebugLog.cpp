#include "app/DebugLog.h"

#include "log/LogCategories.h"
#include "platform/RuntimeFolder.h"

#include <QDateTime>
#include <QDebug>
#include <QDir>
#include <QFile>
#include <QTextStream>

QString debugLogPath()
{
    const QString dir = vontrelRuntimeFolder();
    if (dir.isEmpty())
        return {};
    return QDir(dir).filePath(QStringLiteral("vontrel-debug.log"));
}

void appendDebugLog(const QString &message)
{
    const QString path = debugLogPath();
    if (path.isEmpty())
        return;
    // Opened and closed for every line, so the file is complete even if the process dies right after.
    QFile file;
    QString error;
    if (!vontrelOpenPrivateFileForAppend(file, path, &error)) {
        qCWarning(lcApp).noquote() << "Failed to write debug log:" << path << "-" << error;
        return;
    }
    QTextStream out(&file);
    out << QDateTime::currentDateTime().toString(Qt::ISODate) << ' ' << message << '\n';
}
