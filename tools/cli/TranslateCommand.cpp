#include "CliCommands.h"

#include <QTextStream>

int vontrelCliTranslate(const QStringList &)
{
    QTextStream(stderr) << "vontrel-cli: this command is not available yet\n";
    return 1;
}
