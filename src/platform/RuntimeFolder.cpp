#include "platform/RuntimeFolder.h"

#include "log/LogCategories.h"

#include <QDebug>
#include <QDir>
#include <QFile>
#include <QStandardPaths>

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr mode_t kPrivateFolder = S_IRWXU;

// Whether the path is a folder only this user can enter, making it so when it is the user's own.
bool isPrivateFolder(const QString &path, QString *why)
{
    const QByteArray name = QFile::encodeName(path);
    struct stat info
    {};
    if (::lstat(name.constData(), &info) != 0) {
        *why = qt_error_string(errno);
        return false;
    }
    if (!S_ISDIR(info.st_mode)) {
        *why =
            S_ISLNK(info.st_mode) ? QStringLiteral("it is a symbolic link") : QStringLiteral("not a folder");
        return false;
    }
    if (info.st_uid != ::geteuid()) {
        *why = QStringLiteral("it belongs to user %1").arg(info.st_uid);
        return false;
    }
    if ((info.st_mode & 077) != 0) {
        if (::chmod(name.constData(), kPrivateFolder) != 0) {
            *why =
                QStringLiteral("others may enter it and it cannot be closed: %1").arg(qt_error_string(errno));
            return false;
        }
        qCWarning(lcPlatform).noquote() << "RuntimeFolder: closed" << path << "to other users";
    }
    return true;
}

} // namespace

QString vontrelRuntimeFolder(QString *problem)
{
    QString why;
    const QString fromEnvironment = qEnvironmentVariable("XDG_RUNTIME_DIR");
    if (!fromEnvironment.isEmpty()) {
        if (QDir::isAbsolutePath(fromEnvironment) && isPrivateFolder(fromEnvironment, &why))
            return QDir::cleanPath(fromEnvironment);
        qCWarning(lcPlatform).noquote()
            << QStringLiteral("RuntimeFolder: XDG_RUNTIME_DIR %1 is not private (%2); not using it")
                   .arg(fromEnvironment, why);
    }
    // The shared temporary folder first (short paths suit sockets, and it is emptied at boot); when someone
    // else took the name there, a folder in the user's own cache, where nobody else can.
    const QString candidates[] = {
        QDir(QDir::tempPath()).filePath(QStringLiteral("vontrel-%1").arg(::geteuid())),
        QStandardPaths::writableLocation(QStandardPaths::GenericCacheLocation) +
            QStringLiteral("/vontrel-runtime"),
    };
    QStringList problems;
    for (const QString &own : candidates) {
        if (QDir::isRelativePath(own))
            continue;
        if (::mkdir(QFile::encodeName(own).constData(), kPrivateFolder) != 0 && errno != EEXIST)
            why = qt_error_string(errno);
        else if (isPrivateFolder(own, &why))
            return own;
        qCWarning(lcPlatform).noquote() << "RuntimeFolder: cannot use" << own << "-" << why;
        problems << QStringLiteral("%1: %2").arg(own, why);
    }
    if (problem)
        *problem = problems.join(QStringLiteral("; "));
    return QString();
}

bool vontrelOpenPrivateFileForAppend(QFile &file, const QString &path, QString *error)
{
    const int fd = ::open(QFile::encodeName(path).constData(),
                          O_WRONLY | O_APPEND | O_CREAT | O_NOFOLLOW | O_CLOEXEC | O_NOCTTY | O_NONBLOCK,
                          S_IRUSR | S_IWUSR);
    if (fd < 0) {
        *error = errno == ELOOP ? QStringLiteral("it is a symbolic link") : qt_error_string(errno);
        return false;
    }
    struct stat info
    {};
    if (::fstat(fd, &info) != 0 || !S_ISREG(info.st_mode) || info.st_uid != ::geteuid()) {
        ::close(fd);
        *error = QStringLiteral("it is not a regular file of this user's");
        return false;
    }
    // Whatever mode an older version left, the file is the user's alone; changed through the open file, so
    // no link can redirect it.
    ::fchmod(fd, S_IRUSR | S_IWUSR);
    if (!file.open(fd, QIODevice::WriteOnly | QIODevice::Append, QFileDevice::AutoCloseHandle)) {
        ::close(fd);
        *error = file.errorString();
        return false;
    }
    return true;
}
