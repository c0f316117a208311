#include "platform/RoundedCornerHelper.h"

#import <AppKit/AppKit.h>
#import <QuartzCore/QuartzCore.h>

#include <QWidget>
#include <QWindow>

namespace {

void clipLayer(NSView *view, int radius)
{
    view.wantsLayer = YES;
    view.layer.cornerRadius = CGFloat(radius);
    view.layer.masksToBounds = YES;
}

} // namespace

// The layer clip of applyRoundedCorners() needs no translucent window.
void RoundedCornerHelper::prepareWindow(QWidget *) {}

void RoundedCornerHelper::applyRoundedCorners(QWidget *widget, int radius)
{
    QWindow *handle = widget ? widget->windowHandle() : nullptr;
    if (!handle || handle->winId() == 0)
        return;
    @autoreleasepool {
        // A Qt window id on macOS is its NSView.
        NSView *view = (__bridge NSView *)reinterpret_cast<void *>(handle->winId());
        NSWindow *window = view.window;
        if (!window)
            return;
        clipLayer(window.contentView, radius);
        // The frame view draws the window's own square shadow and background behind the content view.
        if (NSView *frameView = window.contentView.superview)
            clipLayer(frameView, radius);
    }
}
