#include "platform/Platform.h"

#include <QPixmap>
#include <QScreen>

ScreenGrab vontrelGrabScreenNow(QScreen *screen)
{
    ScreenGrab grab;
    if (!screen) {
        grab.error = QStringLiteral("No screen to capture");
        return grab;
    }
    grab.image = screen->grabWindow(0).toImage();
    grab.image.setDevicePixelRatio(screen->devicePixelRatio());
    if (grab.image.isNull())
        grab.error = QStringLiteral("Grabbing the screen failed");
    return grab;
}
