// What the stubs of stubs.cpp were asked to do, for the behaviour tests of the Mac files; the contract link
// ignores it. Every object a stub "creates" is the address of a token, so releases can be counted per object.
#pragma once

#include <ApplicationServices/ApplicationServices.h>
#include <Carbon/Carbon.h>

#include <map>
#include <vector>

struct StubKeyEvent
{
    CGKeyCode key = 0;
    bool down = false;
    CGEventFlags flags = CGEventFlags(0);
};

struct StubHotKey
{
    UInt32 keyCode = 0;
    UInt32 modifiers = 0;
    EventHotKeyID id = {0, 0};
    bool registered = true;
};

struct StubRecorder
{
    bool accessibilityTrusted = true;
    std::map<CFTypeRef, int> releases;
    std::map<CFTypeRef, StubKeyEvent> keyEvents;
    int keyEventsToCreate = 1000; // later creations return null
    std::vector<std::pair<CGEventTapLocation, CGEventRef>> posted;

    EventHandlerUPP handler = nullptr;
    void *handlerUserData = nullptr;
    std::vector<EventTypeSpec> handledTypes;
    int handlersInstalled = 0;
    std::map<EventHotKeyRef, StubHotKey> hotKeys;
    std::vector<OSStatus> registerStatuses; // consumed one per RegisterEventHotKey; noErr when empty
    EventHotKeyID pressedId = {0, 0};       // what GetEventParameter reports
    OSStatus pressedStatus = noErr;         // and its status

    void reset() { *this = StubRecorder(); }
};

StubRecorder &stubRecorder();
