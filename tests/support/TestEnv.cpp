#include "TestEnv.h"

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
