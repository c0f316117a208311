#include "platform/mac/MacCf.h"
#include "platform/mac/MacNative.h"

#include <ApplicationServices/ApplicationServices.h>

// The probes only read the state macOS keeps per application; neither shows a system prompt.
bool macIsAccessibilityTrusted()
{
    return AXIsProcessTrusted();
}

bool macHasScreenCaptureAccess()
{
    return CGPreflightScreenCaptureAccess();
}

// The system shows its prompt once per application; later calls only report the state.
bool macRequestAccessibilityTrust()
{
    const void *keys[] = {kAXTrustedCheckOptionPrompt};
    const void *values[] = {kCFBooleanTrue};
    const CfRef<CFDictionaryRef> options(CFDictionaryCreate(kCFAllocatorDefault, keys, values, 1,
                                                            &kCFTypeDictionaryKeyCallBacks,
                                                            &kCFTypeDictionaryValueCallBacks));
    return AXIsProcessTrustedWithOptions(options.get());
}

bool macRequestScreenCaptureAccess()
{
    return CGRequestScreenCaptureAccess();
}
