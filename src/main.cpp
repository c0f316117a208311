#include "app/GraphicalSession.h"
#include "app/VontrelApp.h"

#include <QtGlobal>

#include <cstdio>

int main(int argc, char *argv[])
{
#if defined(Q_OS_UNIX) && !defined(Q_OS_MACOS)
    // Without an X11 or Wayland display QApplication would abort with a message about platform plugins that
    // tells the user nothing they can act on.
    const QString missing = vontrelMissingDisplayMessage(argc, argv);
    if (!missing.isEmpty()) {
        std::fprintf(stderr, "%s\n", missing.toLocal8Bit().constData());
        return 1;
    }
#endif
    return vontrelMain(argc, argv);
}
