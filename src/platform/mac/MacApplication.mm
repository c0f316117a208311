#include "platform/mac/MacNative.h"

#import <AppKit/AppKit.h>
#import <QuartzCore/QuartzCore.h>

#include <QWindow>

namespace {

void clipLayer(NSView *view, int radius)
{
    view.wantsLayer = YES;
    view.layer.cornerRadius = CGFloat(radius);
    view.layer.masksToBounds = YES;
}

} // namespace

void macActivateApplication()
{
    @autoreleasepool {
        [[NSRunningApplication currentApplication] activateWithOptions:NSApplicationActivateAllWindows];
    }
}

// The bundle starts as a menu-bar agent (LSUIElement); an open Preferences window gets a Dock icon and a
// menu bar of its own so that it can be found again behind other windows.
void macSetDockIconVisible(bool visible)
{
    @autoreleasepool {
        if (!NSApp)
            return;
        const NSApplicationActivationPolicy wanted =
            visible ? NSApplicationActivationPolicyRegular : NSApplicationActivationPolicyAccessory;
        if (NSApp.activationPolicy != wanted)
            [NSApp setActivationPolicy:wanted];
        if (visible)
            [NSApp activateIgnoringOtherApps:YES];
    }
}

void macRoundWindowCorners(QWindow *window, int radius)
{
    if (!window || window->winId() == 0)
        return;
    @autoreleasepool {
        // A Qt window id on macOS is its NSView.
        NSView *view = (__bridge NSView *)reinterpret_cast<void *>(window->winId());
        NSWindow *nativeWindow = view.window;
        if (!nativeWindow)
            return;
        clipLayer(nativeWindow.contentView, radius);
        // The frame view draws the window's own square background behind the content view.
        if (NSView *frameView = nativeWindow.contentView.superview)
            clipLayer(frameView, radius);
    }
}
