// Declaration-only stand-in for AppKit: what the Mac sources use, as Apple's headers declare it.
#pragma once

#include <CoreGraphics/CoreGraphics.h>
#import <Foundation/Foundation.h>

#include <sys/types.h>

@class CALayer;
@class NSWindow;

typedef enum : NSInteger {
    NSApplicationActivationPolicyRegular,
    NSApplicationActivationPolicyAccessory,
    NSApplicationActivationPolicyProhibited
} NSApplicationActivationPolicy;

typedef NSUInteger NSApplicationActivationOptions;
enum : NSUInteger { NSApplicationActivateAllWindows = 1 << 0 };

@interface NSResponder : NSObject
@end

@interface NSApplication : NSResponder
- (NSApplicationActivationPolicy)activationPolicy;
- (BOOL)setActivationPolicy:(NSApplicationActivationPolicy)activationPolicy;
- (void)activateIgnoringOtherApps:(BOOL)flag;
@end

extern __kindof NSApplication *NSApp;

@interface NSRunningApplication : NSObject
@property(class, readonly, strong) NSRunningApplication *currentApplication;
@property(readonly) pid_t processIdentifier;
@property(readonly, copy) NSString *localizedName;
@property(readonly, copy) NSString *bundleIdentifier;
- (BOOL)activateWithOptions:(NSApplicationActivationOptions)options;
@end

@interface NSWorkspace : NSObject
@property(class, readonly, strong) NSWorkspace *sharedWorkspace;
@property(readonly, strong) NSRunningApplication *frontmostApplication;
@end

@interface NSView : NSResponder
@property(readonly, assign) NSWindow *window;
@property(readonly, assign) NSView *superview;
@property BOOL wantsLayer;
@property(strong) CALayer *layer;
@end

@interface NSWindow : NSResponder
@property(strong) __kindof NSView *contentView;
@end
