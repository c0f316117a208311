#pragma once

#include <QString>

// Where the test runs from: the source and build trees (set by CTest), for test data and built tools.
namespace TestEnv {
QString sourceDir();
QString binaryDir();
} // namespace TestEnv
