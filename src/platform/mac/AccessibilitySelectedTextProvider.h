#pragma once

#include "platform/Platform.h"

#include <QList>
#include <QString>

#include <memory>
#include <optional>

// The calls the Accessibility reader needs from the platform, over opaque element references. A reference is
// released when its last copy goes, so each native value is released exactly once.
class IAccessibilityApi
{
public:
    using Element = std::shared_ptr<void>;
    struct Application
    {
        qint64 pid = 0;
        QString name;
        QString bundleId;
    };
    struct Range
    {
        qint64 location = 0;
        qint64 length = 0;
    };

    virtual ~IAccessibilityApi() = default;

    // The frontmost application; empty when there is none.
    virtual std::optional<Application> frontmostApplication() = 0;
    // Whether this process is trusted for Accessibility; never prompts.
    virtual bool isProcessTrusted() = 0;
    // Brings this application to the front and asks the system to show its trust prompt; the trust now.
    virtual bool requestTrustPrompt() = 0;
    // The system-wide element; null on failure.
    virtual Element createSystemWide() = 0;
    // The element of an application by process id; null on failure.
    virtual Element createApplication(qint64 pid) = 0;
    // Copies an element-valued attribute: 0 on success (*out may still be null), else the error code.
    virtual int copyElementAttribute(const Element &element, const char *attribute, Element *out) = 0;
    // Copies an array attribute: 0 on success; *isArray false when the value is not an array (entries may
    // be null).
    virtual int copyElementArrayAttribute(const Element &element, const char *attribute, QList<Element> *out,
                                          bool *isArray) = 0;
    // Copies a text attribute: 0 on success; *hasValue true when there was a value, *text its string (a null
    // string when the value is neither a string nor an attributed string).
    virtual int copyTextAttribute(const Element &element, const char *attribute, QString *text,
                                  bool *hasValue) = 0;
    // Copies a range attribute: 0 on success; *isRange false when the value is not a range.
    virtual int copyRangeAttribute(const Element &element, const char *attribute, Range *range,
                                   bool *isRange) = 0;
    // The parameterised "AXStringForRange": 0 on success with *text (null when not a string).
    virtual int copyStringForRange(const Element &element, const Range &range, QString *text) = 0;
    // Blocks the calling thread.
    virtual void sleepMicroseconds(int microseconds) = 0;
};

// Reads the frontmost application's selection through Accessibility, from the most direct to the most
// exhaustive strategy: the focused element and its parents, the focused application, then a bounded search of
// the frontmost process's focused window. Blocking, GUI thread.
class AccessibilitySelectedTextProvider final : public ISelectedTextProvider
{
public:
    static constexpr int ParentWalkLimit = 6;
    static constexpr int FallbackAttempts = 5;
    static constexpr int FallbackPauseMicroseconds = 30000;
    static constexpr int SubtreeElementLimit = 400;
    static constexpr int SubtreeDepthLimit = 6;
    static constexpr int LogPreviewLength = 120;

    // logName starts every log line ("MacSelectedTextProvider").
    explicit AccessibilitySelectedTextProvider(std::unique_ptr<IAccessibilityApi> api,
                                               QString logName = QStringLiteral("MacSelectedTextProvider"));

    QString selectedText() override;

    // The name of an Accessibility error code as the platform headers define it.
    static QString axErrorName(int code);
    // The text for a log line: line breaks and tabs as blanks, cut at 120 characters with an ellipsis.
    static QString logPreview(const QString &text);
    // Forgets that the trust prompt was requested in this process.
    static void resetPromptFlagForTesting();

private:
    struct ReadResult
    {
        QString text;
        QString method;
    };
    ReadResult selectedTextFromElement(const IAccessibilityApi::Element &element);
    ReadResult searchSubtree(const IAccessibilityApi::Element &window);
    QString fallbackByPid(qint64 pid);
    QString prefix() const;

    std::unique_ptr<IAccessibilityApi> m_api;
    QString m_logName;
};
