#include "platform/DockIcon.h"

// X11 desktops have no Dock whose icon depends on the process: nothing to do.
void setDockIconVisible(bool) {}
