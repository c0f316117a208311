#include "platform/mac/AccessibilitySelectedTextProvider.h"
#include "platform/mac/MacCf.h"
#include "platform/mac/MacNative.h"

#import <AppKit/AppKit.h>
#include <ApplicationServices/ApplicationServices.h>

#include <unistd.h>

namespace {

QString qStringFromNs(NSString *string)
{
    return macQStringFromCf((__bridge CFStringRef)string);
}

// The reader's Element: the last copy releases the reference.
IAccessibilityApi::Element adopt(CFTypeRef owned)
{
    if (!owned)
        return nullptr;
    return IAccessibilityApi::Element(const_cast<void *>(owned), [](void *ref) { CFRelease(ref); });
}

AXUIElementRef axElement(const IAccessibilityApi::Element &element)
{
    return static_cast<AXUIElementRef>(element.get());
}

// A string value, or the plain string of an attributed one; null for anything else.
QString textOfValue(CFTypeRef value)
{
    if (!value)
        return QString();
    if (CFGetTypeID(value) == CFStringGetTypeID())
        return macQStringFromCf(static_cast<CFStringRef>(value));
    if (CFGetTypeID(value) == CFAttributedStringGetTypeID())
        return macQStringFromCf(CFAttributedStringGetString(static_cast<CFAttributedStringRef>(value)));
    return QString();
}

class MacAccessibilityApi final : public IAccessibilityApi
{
public:
    std::optional<Application> frontmostApplication() override
    {
        @autoreleasepool {
            NSRunningApplication *app = [[NSWorkspace sharedWorkspace] frontmostApplication];
            if (!app)
                return std::nullopt;
            return Application{app.processIdentifier, qStringFromNs(app.localizedName),
                               qStringFromNs(app.bundleIdentifier)};
        }
    }

    bool isProcessTrusted() override { return macIsAccessibilityTrusted(); }

    bool requestTrustPrompt() override
    {
        // The prompt opens above the frontmost application, which is rarely this menu-bar program.
        macActivateApplication();
        return macRequestAccessibilityTrust();
    }

    Element createSystemWide() override { return adopt(AXUIElementCreateSystemWide()); }

    Element createApplication(qint64 pid) override { return adopt(AXUIElementCreateApplication(pid_t(pid))); }

    int copyElementAttribute(const Element &element, const char *attribute, Element *out) override
    {
        CfRef<CFTypeRef> value;
        const AXError error = copy(element, attribute, value.out());
        // Anything but an element would only make the next Accessibility call fail.
        const bool isElement = value && CFGetTypeID(value.get()) == AXUIElementGetTypeID();
        *out = error == kAXErrorSuccess && isElement ? adopt(value.take()) : nullptr;
        return int(error);
    }

    int copyElementArrayAttribute(const Element &element, const char *attribute, QList<Element> *out,
                                  bool *isArray) override
    {
        out->clear();
        CfRef<CFTypeRef> value;
        const AXError error = copy(element, attribute, value.out());
        *isArray = value && CFGetTypeID(value.get()) == CFArrayGetTypeID();
        if (error != kAXErrorSuccess || !*isArray)
            return int(error);
        const auto array = static_cast<CFArrayRef>(value.get());
        for (CFIndex i = 0, count = CFArrayGetCount(array); i < count; ++i) {
            // Entries are borrowed from the array; each queued child holds its own reference.
            const CFTypeRef child = CFArrayGetValueAtIndex(array, i);
            out->append(child ? adopt(CFRetain(child)) : nullptr);
        }
        return int(error);
    }

    int copyTextAttribute(const Element &element, const char *attribute, QString *text,
                          bool *hasValue) override
    {
        CfRef<CFTypeRef> value;
        const AXError error = copy(element, attribute, value.out());
        *hasValue = error == kAXErrorSuccess && value;
        *text = *hasValue ? textOfValue(value.get()) : QString();
        return int(error);
    }

    int copyRangeAttribute(const Element &element, const char *attribute, Range *range,
                           bool *isRange) override
    {
        CfRef<CFTypeRef> value;
        const AXError error = copy(element, attribute, value.out());
        CFRange cfRange = {0, 0};
        *isRange = error == kAXErrorSuccess && value && CFGetTypeID(value.get()) == AXValueGetTypeID() &&
                   AXValueGetValue(static_cast<AXValueRef>(value.get()), kAXValueTypeCFRange, &cfRange);
        *range = *isRange ? Range{cfRange.location, cfRange.length} : Range{};
        return int(error);
    }

    int copyStringForRange(const Element &element, const Range &range, QString *text) override
    {
        const CFRange cfRange = CFRangeMake(CFIndex(range.location), CFIndex(range.length));
        const CfRef<AXValueRef> parameter(AXValueCreate(kAXValueTypeCFRange, &cfRange));
        const CfRef<CFStringRef> name = macCfString("AXStringForRange");
        CfRef<CFTypeRef> value;
        const AXError error = AXUIElementCopyParameterizedAttributeValue(axElement(element), name.get(),
                                                                         parameter.get(), value.out());
        *text = error == kAXErrorSuccess && value && CFGetTypeID(value.get()) == CFStringGetTypeID()
                    ? macQStringFromCf(static_cast<CFStringRef>(value.get()))
                    : QString();
        return int(error);
    }

    void sleepMicroseconds(int microseconds) override { usleep(useconds_t(microseconds)); }

private:
    static AXError copy(const Element &element, const char *attribute, CFTypeRef *value)
    {
        const CfRef<CFStringRef> name = macCfString(attribute);
        return AXUIElementCopyAttributeValue(axElement(element), name.get(), value);
    }
};

} // namespace

std::unique_ptr<IAccessibilityApi> macCreateAccessibilityApi()
{
    return std::make_unique<MacAccessibilityApi>();
}
