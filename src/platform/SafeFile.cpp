#include "platform/SafeFile.h"

#include <QCoreApplication>
#include <QFile>
#include <QFileInfo>

#include <cerrno>
#include <fcntl.h>
#include <optional>
#include <sys/stat.h>
#include <unistd.h>

namespace {

std::optional<std::pair<WriteStep, int>> g_fault;

// -1 with errno set when the step is to fail for the test hook (which then does not make the call, except a
// close); otherwise the result of the call.
template<typename Call>
auto step(WriteStep which, Call call) -> decltype(call())
{
    if (g_fault && g_fault->first == which) {
        // A close that fails has still released the descriptor.
        if (which == WriteStep::Close)
            call();
        errno = g_fault->second;
        return -1;
    }
    return call();
}

QString systemError(int code)
{
    return qt_error_string(code);
}

mode_t modeOf(QFileDevice::Permissions permissions)
{
    mode_t mode = 0;
    const std::pair<QFileDevice::Permission, mode_t> bits[] = {
        {QFileDevice::ReadOwner, S_IRUSR},  {QFileDevice::WriteOwner, S_IWUSR},
        {QFileDevice::ExeOwner, S_IXUSR},   {QFileDevice::ReadGroup, S_IRGRP},
        {QFileDevice::WriteGroup, S_IWGRP}, {QFileDevice::ExeGroup, S_IXGRP},
        {QFileDevice::ReadOther, S_IROTH},  {QFileDevice::WriteOther, S_IWOTH},
        {QFileDevice::ExeOther, S_IXOTH},
    };
    for (const auto &[permission, bit] : bits) {
        if (permissions.testFlag(permission))
            mode |= bit;
    }
    return mode;
}

QString notRegularText(mode_t mode)
{
    if (S_ISDIR(mode))
        return QCoreApplication::translate("SafeFile", "it is a folder, not a file");
    if (S_ISFIFO(mode))
        return QCoreApplication::translate("SafeFile", "it is a named pipe, not a regular file");
    if (S_ISSOCK(mode))
        return QCoreApplication::translate("SafeFile", "it is a socket, not a regular file");
    if (S_ISCHR(mode) || S_ISBLK(mode))
        return QCoreApplication::translate("SafeFile", "it is a device, not a regular file");
    return QCoreApplication::translate("SafeFile", "it is not a regular file");
}

QString tooLargeText(qsizetype maxBytes)
{
    return QCoreApplication::translate("SafeFile", "it is larger than %1 KiB").arg(maxBytes / 1024);
}

} // namespace

void vontrelFailWritesForTesting(WriteStep step, int errorCode)
{
    if (errorCode == 0)
        g_fault.reset();
    else
        g_fault = std::make_pair(step, errorCode);
}

bool vontrelWriteFileWhole(const QString &path, QByteArrayView bytes, QFileDevice::Permissions permissions,
                           QString *error)
{
    // Beside the target, so that the rename stays on one file system and is atomic.
    QByteArray temporary = QFile::encodeName(path) + ".XXXXXX";
    const int fd = ::mkostemp(temporary.data(), O_CLOEXEC);
    if (fd < 0) {
        *error = systemError(errno);
        return false;
    }
    const auto fail = [&](bool open) {
        const int code = errno;
        if (open)
            ::close(fd);
        ::unlink(temporary.constData());
        *error = systemError(code);
        return false;
    };
    if (::fchmod(fd, modeOf(permissions)) != 0)
        return fail(true);
    for (qsizetype written = 0; written < bytes.size();) {
        const ssize_t n = step(WriteStep::Write, [&] {
            return ::write(fd, bytes.data() + written, size_t(bytes.size() - written));
        });
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            return fail(true);
        written += n;
    }
    // A full disk or a failing device may only show here; until this succeeds the old file is the one kept.
    if (step(WriteStep::Flush, [&] { return ::fsync(fd); }) != 0 && errno != EINVAL && errno != ENOTSUP)
        return fail(true);
    if (step(WriteStep::Close, [&] { return ::close(fd); }) != 0)
        return fail(false);
    if (step(WriteStep::Rename, [&] { return ::rename(temporary.constData(), QFile::encodeName(path)); }) !=
        0)
        return fail(false);
    // The rename itself is durable once the folder is; a failure here loses nothing the rename did not keep.
    const int dir = ::open(QFile::encodeName(QFileInfo(path).absolutePath()).constData(),
                           O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (dir >= 0) {
        ::fsync(dir);
        ::close(dir);
    }
    return true;
}

FileRead vontrelReadRegularFile(const QString &path, qsizetype maxBytes, QByteArray *bytes, QString *error)
{
    bytes->clear();
    const QByteArray name = QFile::encodeName(path);
    struct stat info
    {};
    if (::stat(name.constData(), &info) != 0) {
        if (errno == ENOENT)
            return FileRead::Missing;
        *error = systemError(errno);
        return FileRead::Failed;
    }
    if (!S_ISREG(info.st_mode)) {
        *error = notRegularText(info.st_mode);
        return FileRead::Refused;
    }
    // Non-blocking, and checked again once open: the path may have been replaced in between.
    const int fd = ::open(name.constData(), O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY);
    if (fd < 0) {
        *error = systemError(errno);
        return FileRead::Failed;
    }
    const auto finish = [fd](FileRead result) {
        ::close(fd);
        return result;
    };
    if (::fstat(fd, &info) != 0 || !S_ISREG(info.st_mode)) {
        *error = notRegularText(info.st_mode);
        return finish(FileRead::Refused);
    }
    if (info.st_size > maxBytes) {
        *error = tooLargeText(maxBytes);
        return finish(FileRead::Refused);
    }
    QByteArray data(qsizetype(info.st_size) + 1, Qt::Uninitialized);
    qsizetype filled = 0;
    for (;;) {
        if (filled == data.size()) {
            if (filled > maxBytes) {
                *error = tooLargeText(maxBytes);
                return finish(FileRead::Refused);
            }
            data.resize(qMin(maxBytes + 1, filled * 2 + 4096));
        }
        const ssize_t n = ::read(fd, data.data() + filled, size_t(data.size() - filled));
        if (n < 0 && errno == EINTR)
            continue;
        if (n < 0) {
            *error = systemError(errno);
            return finish(FileRead::Failed);
        }
        if (n == 0)
            break;
        filled += n;
    }
    data.truncate(filled);
    *bytes = data;
    return finish(FileRead::Read);
}
