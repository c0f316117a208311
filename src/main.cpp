#include "app/CommandLine.h"
#include "app/GraphicalSession.h"
#include "app/VontrelApp.h"

#include <QtGlobal>

#include <cstdio>

int main(int argc, char *argv[])
{
    const CommandLine commandLine = CommandLine::parse(argc, argv);
    if (commandLine.exitNow) {
        std::fputs(commandLine.output.toLocal8Bit().constData(), stdout);
        std::fputs(commandLine.error.toLocal8Bit().constData(), stderr);
        return commandLine.exitCode;
    }
#if defined(Q_OS_UNIX) && !defined(Q_OS_MACOS)
    // Without an X11 or Wayland display QApplication would abort with a message about platform plugins that
    // tells the user nothing they can act on.
    const QString missing = vontrelMissingDisplayMessage(argc, argv);
    if (!missing.isEmpty()) {
        std::fprintf(stderr, "%s\n", missing.toLocal8Bit().constData());
        return 1;
    }
#endif
    return vontrelMain(argc, argv, commandLine.action);
}
