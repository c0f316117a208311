#pragma once

#include <CoreFoundation/CoreFoundation.h>

#include <QString>

#include <utility>

// Owns one reference from a Core Foundation Create or Copy call (also CGEventRef, CGImageRef, AXUIElementRef,
// which are CF types) and releases it exactly once: on destruction, on reset, or never when handed on with
// take().
template<typename Ref>
class CfRef
{
public:
    CfRef() = default;
    explicit CfRef(Ref ref)
        : m_ref(ref)
    {}
    ~CfRef() { reset(); }
    CfRef(CfRef &&other) noexcept
        : m_ref(std::exchange(other.m_ref, nullptr))
    {}
    CfRef &operator=(CfRef &&other) noexcept
    {
        if (this != &other) {
            reset();
            m_ref = std::exchange(other.m_ref, nullptr);
        }
        return *this;
    }
    CfRef(const CfRef &) = delete;
    CfRef &operator=(const CfRef &) = delete;

    Ref get() const { return m_ref; }
    explicit operator bool() const { return m_ref != nullptr; }
    // The out parameter of a Copy call; whatever was held before is released first.
    Ref *out()
    {
        reset();
        return &m_ref;
    }
    Ref take() { return std::exchange(m_ref, nullptr); }
    void reset()
    {
        if (m_ref)
            CFRelease(m_ref);
        m_ref = nullptr;
    }

private:
    Ref m_ref = nullptr;
};

// Copies the UTF-16 units of a CF string (or a toll-free bridged NSString); a null string for null.
inline QString macQStringFromCf(CFStringRef string)
{
    if (!string)
        return QString();
    const CFIndex length = CFStringGetLength(string);
    QString text(qsizetype(length), Qt::Uninitialized);
    CFStringGetCharacters(string, CFRangeMake(0, length), reinterpret_cast<UniChar *>(text.data()));
    return text;
}

// A CF string of UTF-8 text, owned by the caller.
inline CfRef<CFStringRef> macCfString(const char *utf8)
{
    return CfRef<CFStringRef>(CFStringCreateWithCString(kCFAllocatorDefault, utf8, kCFStringEncodingUTF8));
}
