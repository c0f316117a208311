#include "TestEnv.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <QtGlobal>

namespace TestEnv {

QString sourceDir()
{
    return qEnvironmentVariable("VONTREL_SOURCE_DIR");
}

QString binaryDir()
{
    return qEnvironmentVariable("VONTREL_BINARY_DIR");
}

} // namespace TestEnv

bool TestEnv::writeFile(const QString &path, const QByteArray &bytes)
{
    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size();
}

QByteArray TestEnv::readFile(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}
