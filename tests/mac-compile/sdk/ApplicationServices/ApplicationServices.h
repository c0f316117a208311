// Declaration-only stand-in for ApplicationServices (Accessibility; Core Graphics comes along, as in Apple's
// umbrella header): what the Mac sources use, as Apple's headers declare it.
#pragma once

#include <CoreFoundation/CoreFoundation.h>
#include <CoreGraphics/CoreGraphics.h>

#include <sys/types.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef const struct __AXUIElement *AXUIElementRef;
typedef const struct __AXValue *AXValueRef;

typedef enum : int32_t {
    kAXErrorSuccess = 0,
    kAXErrorFailure = -25200,
    kAXErrorIllegalArgument = -25201,
    kAXErrorInvalidUIElement = -25202,
    kAXErrorInvalidUIElementObserver = -25203,
    kAXErrorCannotComplete = -25204,
    kAXErrorAttributeUnsupported = -25205,
    kAXErrorActionUnsupported = -25206,
    kAXErrorNotificationUnsupported = -25207,
    kAXErrorNotImplemented = -25208,
    kAXErrorNotificationAlreadyRegistered = -25209,
    kAXErrorNotificationNotRegistered = -25210,
    kAXErrorAPIDisabled = -25211,
    kAXErrorNoValue = -25212,
    kAXErrorParameterizedAttributeUnsupported = -25213,
    kAXErrorNotEnoughPrecision = -25214
} AXError;

typedef enum : uint32_t {
    kAXValueTypeCGPoint = 1,
    kAXValueTypeCGSize = 2,
    kAXValueTypeCGRect = 3,
    kAXValueTypeCFRange = 4,
    kAXValueTypeAXError = 5,
    kAXValueTypeIllegal = 0
} AXValueType;

extern CFStringRef kAXTrustedCheckOptionPrompt;

Boolean AXIsProcessTrusted(void);
Boolean AXIsProcessTrustedWithOptions(CFDictionaryRef options);

CFTypeID AXUIElementGetTypeID(void);
AXUIElementRef AXUIElementCreateSystemWide(void);
AXUIElementRef AXUIElementCreateApplication(pid_t pid);
AXError AXUIElementCopyAttributeValue(AXUIElementRef element, CFStringRef attribute, CFTypeRef *value);
AXError AXUIElementCopyParameterizedAttributeValue(AXUIElementRef element, CFStringRef parameterizedAttribute,
                                                   CFTypeRef parameter, CFTypeRef *result);

CFTypeID AXValueGetTypeID(void);
AXValueRef AXValueCreate(AXValueType theType, const void *valuePtr);
Boolean AXValueGetValue(AXValueRef value, AXValueType theType, void *valuePtr);

#ifdef __cplusplus
}
#endif
