#pragma once

#include <QByteArray>
#include <QString>

// Where the test runs from: the source and build trees (set by CTest), for test data and built tools.
namespace TestEnv {
QString sourceDir();
QString binaryDir();
// Writes `bytes` to `path`, making its folder; false when that failed.
bool writeFile(const QString &path, const QByteArray &bytes);
// The file's bytes, or empty when it cannot be read.
QByteArray readFile(const QString &path);
} // namespace TestEnv
