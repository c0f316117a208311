#include "platform/DockIcon.h"

// X11 desktops have no Dock whose icon depends on the process: nothing to do.
void setDockIconVisible(bool) {}

// Tray hosts on X11 (XEmbed and status-notifier panels) draw the icon as it is, on light or dark panels
// alike.
bool vontrelTrayRecoloursIcons()
{
    return false;
}
