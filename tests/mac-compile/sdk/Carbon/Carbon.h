// Declaration-only stand-in for Carbon (the HIToolbox event manager): what the Mac sources use, as Apple's
// headers declare it.
#pragma once

#include <CoreFoundation/CoreFoundation.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef struct OpaqueEventHandlerCallRef *EventHandlerCallRef;
typedef struct OpaqueEventRef *EventRef;
typedef struct OpaqueEventHandlerRef *EventHandlerRef;
typedef struct OpaqueEventTargetRef *EventTargetRef;
typedef struct OpaqueEventHotKeyRef *EventHotKeyRef;
typedef OSType EventParamName;
typedef OSType EventParamType;

typedef struct EventHotKeyID
{
    OSType signature;
    UInt32 id;
} EventHotKeyID;

typedef struct EventTypeSpec
{
    OSType eventClass;
    UInt32 eventKind;
} EventTypeSpec;

typedef OSStatus (*EventHandlerProcPtr)(EventHandlerCallRef inHandlerCallRef, EventRef inEvent,
                                        void *inUserData);
typedef EventHandlerProcPtr EventHandlerUPP;

enum { kEventClassKeyboard = 'keyb' };
enum { kEventHotKeyPressed = 5, kEventHotKeyReleased = 6 };
enum { kEventParamDirectObject = '----' };
enum { typeEventHotKeyID = 'hkid' };

EventTargetRef GetApplicationEventTarget(void);
OSStatus InstallEventHandler(EventTargetRef inTarget, EventHandlerUPP inHandler, ItemCount inNumTypes,
                             const EventTypeSpec *inList, void *inUserData, EventHandlerRef *outRef);
OSStatus RemoveEventHandler(EventHandlerRef inHandlerRef);
OSStatus GetEventParameter(EventRef inEvent, EventParamName inName, EventParamType inDesiredType,
                           EventParamType *outActualType, ByteCount inBufferSize, ByteCount *outActualSize,
                           void *outData);
OSStatus RegisterEventHotKey(UInt32 inHotKeyCode, UInt32 inHotKeyModifiers, EventHotKeyID inHotKeyID,
                             EventTargetRef inTarget, OptionBits inOptions, EventHotKeyRef *outRef);
OSStatus UnregisterEventHotKey(EventHotKeyRef inHotKey);

#ifdef __cplusplus
}
#endif
