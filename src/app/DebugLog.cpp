#include "app/DebugLog.h"

#include "log/LogCategories.h"

#include <QDateTime>
#include <QDebug>
#include <QDir>
#include <QFile>
#include <QStandardPaths>
#include <QTextStream>

QString debugLogPath()
{
    const QString dir = QStandardPaths::writableLocation(QStandardPaths::TempLocation);
    if (dir.isEmpty())
        return {};
    QDir().mkpath(dir);
    return QDir(dir).filePath(QStringLiteral("vontrel-debug.log"));
}

void appendDebugLog(const QString &message)
{
    const QString path = debugLogPath();
    if (path.isEmpty())
        return;
    // Opened and closed for every line, so the file is complete even if the process dies right after.
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Append | QIODevice::Text)) {
        qCWarning(lcApp).noquote() << "Failed to write debug log:" << path;
        return;
    }
    // Whatever mode an older run left, the log is the user's alone.
    file.setPermissions(QFileDevice::ReadOwner | QFileDevice::WriteOwner);
    QTextStream out(&file);
    out << QDateTime::currentDateTime().toString(Qt::ISODate) << ' ' << message << '\n';
}
