// Definitions of the C functions and constants declared in this directory's headers, and of the few
// Objective-C runtime entry points that clang calls for Apple's ABI, so that the compile check can link.
// Most do nothing; those the behaviour tests look at record their calls in the StubRecorder. Nothing here
// runs as the real thing.
#include "StubRecorder.h"

#include <ApplicationServices/ApplicationServices.h>
#include <Carbon/Carbon.h>
#include <CoreFoundation/CoreFoundation.h>
#include <CoreGraphics/CoreGraphics.h>

#include <cstring>

StubRecorder &stubRecorder()
{
    static StubRecorder recorder;
    return recorder;
}

namespace {

// A distinct address per created object.
void *newToken()
{
    static char tokens[4096];
    static std::size_t next = 0;
    return &tokens[next++ % sizeof tokens];
}

} // namespace

extern "C" {

// Core Foundation
const CFAllocatorRef kCFAllocatorDefault = nullptr;
const CFBooleanRef kCFBooleanTrue = nullptr;
const CFDictionaryKeyCallBacks kCFTypeDictionaryKeyCallBacks = {};
const CFDictionaryValueCallBacks kCFTypeDictionaryValueCallBacks = {};
CFTypeRef CFRetain(CFTypeRef cf)
{
    return cf;
}
void CFRelease(CFTypeRef cf)
{
    ++stubRecorder().releases[cf];
}
CFTypeID CFGetTypeID(CFTypeRef)
{
    return 0;
}
CFTypeID CFStringGetTypeID(void)
{
    return 1;
}
CFStringRef CFStringCreateWithCString(CFAllocatorRef, const char *, CFStringEncoding)
{
    return nullptr;
}
CFIndex CFStringGetLength(CFStringRef)
{
    return 0;
}
void CFStringGetCharacters(CFStringRef, CFRange, UniChar *) {}
CFTypeID CFAttributedStringGetTypeID(void)
{
    return 2;
}
CFStringRef CFAttributedStringGetString(CFAttributedStringRef)
{
    return nullptr;
}
CFTypeID CFArrayGetTypeID(void)
{
    return 3;
}
CFIndex CFArrayGetCount(CFArrayRef)
{
    return 0;
}
const void *CFArrayGetValueAtIndex(CFArrayRef, CFIndex)
{
    return nullptr;
}
CFDictionaryRef CFDictionaryCreate(CFAllocatorRef, const void **, const void **, CFIndex,
                                   const CFDictionaryKeyCallBacks *, const CFDictionaryValueCallBacks *)
{
    return nullptr;
}

// Core Graphics
CGColorSpaceRef CGColorSpaceCreateDeviceRGB(void)
{
    return nullptr;
}
CGContextRef CGBitmapContextCreate(void *, size_t, size_t, size_t, size_t, CGColorSpaceRef, uint32_t)
{
    return nullptr;
}
CGImageRef CGBitmapContextCreateImage(CGContextRef)
{
    return nullptr;
}
CGEventRef CGEventCreateKeyboardEvent(CGEventSourceRef, CGKeyCode virtualKey, bool keyDown)
{
    StubRecorder &recorder = stubRecorder();
    if (recorder.keyEventsToCreate-- <= 0)
        return nullptr;
    auto event = static_cast<CGEventRef>(newToken());
    recorder.keyEvents[event] = {virtualKey, keyDown, CGEventFlags(0)};
    return event;
}
void CGEventSetFlags(CGEventRef event, CGEventFlags flags)
{
    stubRecorder().keyEvents[event].flags = flags;
}
void CGEventPost(CGEventTapLocation tap, CGEventRef event)
{
    stubRecorder().posted.emplace_back(tap, event);
}
bool CGPreflightScreenCaptureAccess(void)
{
    return false;
}
bool CGRequestScreenCaptureAccess(void)
{
    return false;
}

// Accessibility
CFStringRef kAXTrustedCheckOptionPrompt = nullptr;
Boolean AXIsProcessTrusted(void)
{
    return stubRecorder().accessibilityTrusted;
}
Boolean AXIsProcessTrustedWithOptions(CFDictionaryRef)
{
    return false;
}
CFTypeID AXUIElementGetTypeID(void)
{
    return 4;
}
AXUIElementRef AXUIElementCreateSystemWide(void)
{
    return nullptr;
}
AXUIElementRef AXUIElementCreateApplication(pid_t)
{
    return nullptr;
}
AXError AXUIElementCopyAttributeValue(AXUIElementRef, CFStringRef, CFTypeRef *)
{
    return kAXErrorFailure;
}
AXError AXUIElementCopyParameterizedAttributeValue(AXUIElementRef, CFStringRef, CFTypeRef, CFTypeRef *)
{
    return kAXErrorFailure;
}
CFTypeID AXValueGetTypeID(void)
{
    return 5;
}
AXValueRef AXValueCreate(AXValueType, const void *)
{
    return nullptr;
}
Boolean AXValueGetValue(AXValueRef, AXValueType, void *)
{
    return false;
}

// Carbon event manager
EventTargetRef GetApplicationEventTarget(void)
{
    return static_cast<EventTargetRef>(newToken());
}
OSStatus InstallEventHandler(EventTargetRef, EventHandlerUPP inHandler, ItemCount inNumTypes,
                             const EventTypeSpec *inList, void *inUserData, EventHandlerRef *outRef)
{
    StubRecorder &recorder = stubRecorder();
    recorder.handler = inHandler;
    recorder.handlerUserData = inUserData;
    recorder.handledTypes.assign(inList, inList + inNumTypes);
    ++recorder.handlersInstalled;
    *outRef = static_cast<EventHandlerRef>(newToken());
    return noErr;
}
OSStatus RemoveEventHandler(EventHandlerRef)
{
    --stubRecorder().handlersInstalled;
    return noErr;
}
OSStatus GetEventParameter(EventRef, EventParamName inName, EventParamType inDesiredType, EventParamType *,
                           ByteCount inBufferSize, ByteCount *, void *outData)
{
    if (inName != kEventParamDirectObject || inDesiredType != typeEventHotKeyID ||
        inBufferSize != sizeof(EventHotKeyID))
        return -50; // paramErr
    if (stubRecorder().pressedStatus != noErr)
        return stubRecorder().pressedStatus;
    std::memcpy(outData, &stubRecorder().pressedId, sizeof(EventHotKeyID));
    return noErr;
}
OSStatus RegisterEventHotKey(UInt32 inHotKeyCode, UInt32 inHotKeyModifiers, EventHotKeyID inHotKeyID,
                             EventTargetRef, OptionBits, EventHotKeyRef *outRef)
{
    StubRecorder &recorder = stubRecorder();
    OSStatus status = noErr;
    if (!recorder.registerStatuses.empty()) {
        status = recorder.registerStatuses.front();
        recorder.registerStatuses.erase(recorder.registerStatuses.begin());
    }
    if (status != noErr)
        return status;
    *outRef = static_cast<EventHotKeyRef>(newToken());
    recorder.hotKeys[*outRef] = {inHotKeyCode, inHotKeyModifiers, inHotKeyID, true};
    return noErr;
}
OSStatus UnregisterEventHotKey(EventHotKeyRef inHotKey)
{
    stubRecorder().hotKeys[inHotKey].registered = false;
    return noErr;
}

// The Objective-C runtime and blocks entry points clang emits calls to (ARC, autorelease pools, fast
// enumeration, block copies, synthesized properties).
void *objc_msgSend(void *, void *, ...)
{
    return nullptr;
}
void *objc_alloc(void *)
{
    return nullptr;
}
void *objc_retain(void *object)
{
    return object;
}
void objc_release(void *) {}
void *objc_retainAutoreleasedReturnValue(void *object)
{
    return object;
}
void objc_storeStrong(void **location, void *object)
{
    *location = object;
}
void *objc_autoreleasePoolPush(void)
{
    return nullptr;
}
void objc_autoreleasePoolPop(void *) {}
void objc_enumerationMutation(void *) {}
void *_NSConcreteStackBlock[32] = {};
void _Block_object_assign(void *, const void *, const int) {}
void _Block_object_dispose(const void *, const int) {}
void *_objc_empty_cache = nullptr;
// The accessors synthesized for the stub classes of stubs.mm.
void *objc_getProperty(void *, void *, long, bool)
{
    return nullptr;
}
void objc_setProperty_atomic_copy(void *, void *, void *, long) {}

} // extern "C"
