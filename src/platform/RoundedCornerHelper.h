#pragma once

class QWidget;

// Rounds the corners of a frameless top-level window whose style sheet draws a rounded border.
class RoundedCornerHelper final
{
public:
    RoundedCornerHelper() = delete;

    // Call before the window is first shown. Where the platform can show the style sheet's own rounded
    // border against a transparent background (a compositing window manager), the window is made
    // translucent so that nothing has to be clipped later; otherwise nothing changes.
    static void prepareWindow(QWidget *widget);

    // Clips the native window to corners of the given radius where the window would otherwise show square
    // corners; keeps the clip in step with later resizes. Does nothing (and cannot fail) while the widget
    // is null or has no native window yet. Calling it again re-applies the new radius.
    static void applyRoundedCorners(QWidget *widget, int radius);
};
