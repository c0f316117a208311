// Declaration-only stand-in for Core Graphics: what the Mac sources use, as Apple's headers declare it.
#pragma once

#include <CoreFoundation/CoreFoundation.h>

#include <stdbool.h>
#include <stddef.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef double CGFloat;

typedef struct CGColorSpace *CGColorSpaceRef;
typedef struct CGContext *CGContextRef;
typedef struct CGImage *CGImageRef;

typedef enum : uint32_t {
    kCGImageAlphaNone,
    kCGImageAlphaPremultipliedLast,
    kCGImageAlphaPremultipliedFirst,
    kCGImageAlphaLast,
    kCGImageAlphaFirst,
    kCGImageAlphaNoneSkipLast,
    kCGImageAlphaNoneSkipFirst,
    kCGImageAlphaOnly
} CGImageAlphaInfo;

typedef uint32_t CGBitmapInfo;
enum : uint32_t { kCGBitmapByteOrder32Big = (4 << 12) };

CGColorSpaceRef CGColorSpaceCreateDeviceRGB(void);
CGContextRef CGBitmapContextCreate(void *data, size_t width, size_t height, size_t bitsPerComponent,
                                   size_t bytesPerRow, CGColorSpaceRef space, uint32_t bitmapInfo);
CGImageRef CGBitmapContextCreateImage(CGContextRef context);

typedef struct __CGEvent *CGEventRef;
typedef struct __CGEventSource *CGEventSourceRef;
typedef uint16_t CGKeyCode;

typedef enum : uint64_t {
    kCGEventFlagMaskAlphaShift = 0x00010000,
    kCGEventFlagMaskShift = 0x00020000,
    kCGEventFlagMaskControl = 0x00040000,
    kCGEventFlagMaskAlternate = 0x00080000,
    kCGEventFlagMaskCommand = 0x00100000
} CGEventFlags;

typedef enum : uint32_t {
    kCGHIDEventTap = 0,
    kCGSessionEventTap,
    kCGAnnotatedSessionEventTap
} CGEventTapLocation;

CGEventRef CGEventCreateKeyboardEvent(CGEventSourceRef source, CGKeyCode virtualKey, bool keyDown);
void CGEventSetFlags(CGEventRef event, CGEventFlags flags);
void CGEventPost(CGEventTapLocation tap, CGEventRef event);

bool CGPreflightScreenCaptureAccess(void);
bool CGRequestScreenCaptureAccess(void);

#ifdef __cplusplus
}
#endif
