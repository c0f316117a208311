#pragma once

class QWindow;

// Whether the X screen has a compositing manager, so translucent windows show the desktop through them.
bool x11ComposesTranslucentWindows();
// Shapes the window to rounded corners unless it is translucent on a compositing desktop (it draws its own
// antialiased corners then); follows later resizes.
void x11RoundWindowCorners(QWindow *window, int radius);
