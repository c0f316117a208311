#include "platform/mac/AccessibilitySelectedTextProvider.h"

#include <QDebug>

#include <deque>

namespace {

bool g_promptRequested = false;

const char AXFocusedUIElement[] = "AXFocusedUIElement";
const char AXFocusedApplication[] = "AXFocusedApplication";
const char AXFocusedWindow[] = "AXFocusedWindow";
const char AXParent[] = "AXParent";
const char AXChildren[] = "AXChildren";
const char AXChildrenInNavigationOrder[] = "AXChildrenInNavigationOrder";
const char AXSelectedText[] = "AXSelectedText";
const char AXSelectedTextRange[] = "AXSelectedTextRange";
const char AXValue[] = "AXValue";

struct QueueEntry
{
    IAccessibilityApi::Element element;
    int depth = 0;
};

QString errorText(int code)
{
    return QStringLiteral("%1 (%2)").arg(AccessibilitySelectedTextProvider::axErrorName(code)).arg(code);
}

} // namespace

AccessibilitySelectedTextProvider::AccessibilitySelectedTextProvider(std::unique_ptr<IAccessibilityApi> api,
                                                                     QString logName)
    : m_api(std::move(api))
    , m_logName(std::move(logName))
{}

QString AccessibilitySelectedTextProvider::prefix() const
{
    return m_logName + u':';
}

void AccessibilitySelectedTextProvider::resetPromptFlagForTesting()
{
    g_promptRequested = false;
}

QString AccessibilitySelectedTextProvider::axErrorName(int code)
{
    static const char *const names[] = {
        "kAXErrorFailure",                           // -25200
        "kAXErrorIllegalArgument",                   // -25201
        "kAXErrorInvalidUIElement",                  // -25202
        "kAXErrorInvalidUIElementObserver",          // -25203
        "kAXErrorCannotComplete",                    // -25204
        "kAXErrorAttributeUnsupported",              // -25205
        "kAXErrorActionUnsupported",                 // -25206
        "kAXErrorNotificationUnsupported",           // -25207
        "kAXErrorNotImplemented",                    // -25208
        "kAXErrorNotificationAlreadyRegistered",     // -25209
        "kAXErrorNotificationNotRegistered",         // -25210
        "kAXErrorAPIDisabled",                       // -25211
        "kAXErrorNoValue",                           // -25212
        "kAXErrorParameterizedAttributeUnsupported", // -25213
        "kAXErrorNotEnoughPrecision",                // -25214
    };
    if (code == 0)
        return QStringLiteral("kAXErrorSuccess");
    if (code <= -25200 && code >= -25214)
        return QString::fromLatin1(names[-25200 - code]);
    return QStringLiteral("kAXError(unknown)");
}

QString AccessibilitySelectedTextProvider::logPreview(const QString &text)
{
    QString preview = text;
    for (QChar &ch : preview) {
        if (ch == u'\n' || ch == u'\r' || ch == u'\t')
            ch = u' ';
    }
    if (preview.size() > LogPreviewLength)
        preview = preview.left(LogPreviewLength) + QChar(0x2026);
    return preview;
}

AccessibilitySelectedTextProvider::ReadResult
AccessibilitySelectedTextProvider::selectedTextFromElement(const IAccessibilityApi::Element &element)
{
    if (!element)
        return {};

    QString text;
    bool hasValue = false;
    // A selected-text value, even an empty one, is the element's final answer: the range methods would only
    // find the same selection by a slower way.
    if (m_api->copyTextAttribute(element, AXSelectedText, &text, &hasValue) == 0 && hasValue) {
        const QString trimmed = text.trimmed();
        return {trimmed, trimmed.isEmpty() ? QString() : QStringLiteral("kAXSelectedTextAttribute")};
    }

    IAccessibilityApi::Range range;
    bool isRange = false;
    if (m_api->copyRangeAttribute(element, AXSelectedTextRange, &range, &isRange) != 0 || !isRange ||
        range.length <= 0)
        return {};

    QString forRange;
    if (m_api->copyStringForRange(element, range, &forRange) == 0) {
        const QString trimmed = forRange.trimmed();
        if (!trimmed.isEmpty())
            return {trimmed, QStringLiteral("kAXStringForRangeParameterizedAttribute")};
    }

    QString value;
    bool valuePresent = false;
    if (m_api->copyTextAttribute(element, AXValue, &value, &valuePresent) != 0 || value.isEmpty())
        return {};
    if (range.location < 0 || range.length < 0 || range.location >= value.size())
        return {};
    const QString trimmed = value.mid(range.location, range.length).trimmed();
    if (trimmed.isEmpty())
        return {};
    return {trimmed, QStringLiteral("kAXSelectedTextRangeAttribute + kAXValueAttribute")};
}

AccessibilitySelectedTextProvider::ReadResult
AccessibilitySelectedTextProvider::searchSubtree(const IAccessibilityApi::Element &window)
{
    std::deque<QueueEntry> queue;
    queue.push_back({window, 0});

    const auto enqueueChildren = [&](const QueueEntry &entry, const char *attribute) {
        if (entry.depth >= SubtreeDepthLimit || int(queue.size()) >= SubtreeElementLimit)
            return 0;
        QList<IAccessibilityApi::Element> children;
        bool isArray = false;
        if (m_api->copyElementArrayAttribute(entry.element, attribute, &children, &isArray) != 0 || !isArray)
            return 0;
        int added = 0;
        for (const IAccessibilityApi::Element &child : std::as_const(children)) {
            if (int(queue.size()) >= SubtreeElementLimit)
                break;
            if (!child)
                continue;
            queue.push_back({child, entry.depth + 1});
            ++added;
        }
        return added;
    };

    // Bounded in breadth and depth: a web page's tree can hold tens of thousands of elements.
    for (size_t index = 0; index < queue.size() && int(index) < SubtreeElementLimit; ++index) {
        const QueueEntry entry = queue[index];
        const ReadResult result = selectedTextFromElement(entry.element);
        if (!result.text.isEmpty())
            return {result.text, QStringLiteral("subtree: ") + result.method};
        if (enqueueChildren(entry, AXChildren) == 0)
            enqueueChildren(entry, AXChildrenInNavigationOrder);
    }
    return {};
}

QString AccessibilitySelectedTextProvider::fallbackByPid(qint64 pid)
{
    for (int attempt = 0; attempt < FallbackAttempts; ++attempt) {
        QString reason;
        QString hit;
        ReadResult result;

        const IAccessibilityApi::Element app = m_api->createApplication(pid);
        if (!app) {
            reason = QStringLiteral("AXUIElementCreateApplication failed");
        } else {
            IAccessibilityApi::Element focused;
            const int focusedError = m_api->copyElementAttribute(app, AXFocusedUIElement, &focused);
            if (focusedError == 0 && focused) {
                result = selectedTextFromElement(focused);
                if (!result.text.isEmpty())
                    hit = QStringLiteral("app kAXFocusedUIElementAttribute");
                else
                    reason = QStringLiteral("app kAXFocusedUIElementAttribute (no selection)");
            } else {
                reason = QStringLiteral("app kAXFocusedUIElementAttribute failed: %1")
                             .arg(errorText(focusedError));
            }

            if (hit.isEmpty()) {
                IAccessibilityApi::Element window;
                const int windowError = m_api->copyElementAttribute(app, AXFocusedWindow, &window);
                if (windowError != 0 || !window) {
                    reason = QStringLiteral("app kAXFocusedWindowAttribute failed: %1")
                                 .arg(errorText(windowError));
                } else {
                    result = selectedTextFromElement(window);
                    if (!result.text.isEmpty())
                        hit = QStringLiteral("app kAXFocusedWindowAttribute");
                    if (hit.isEmpty()) {
                        IAccessibilityApi::Element windowFocused;
                        const int error =
                            m_api->copyElementAttribute(window, AXFocusedUIElement, &windowFocused);
                        if (error == 0 && windowFocused) {
                            result = selectedTextFromElement(windowFocused);
                            if (!result.text.isEmpty())
                                hit = QStringLiteral("app kAXFocusedWindowAttribute -> window "
                                                     "kAXFocusedUIElementAttribute");
                        } else {
                            reason = QStringLiteral("window kAXFocusedUIElementAttribute failed: %1")
                                         .arg(errorText(error));
                        }
                    }
                    if (hit.isEmpty()) {
                        result = searchSubtree(window);
                        if (!result.text.isEmpty())
                            hit = QStringLiteral("app kAXFocusedWindowAttribute subtree");
                        else
                            reason = QStringLiteral("app kAXFocusedWindowAttribute subtree empty");
                    }
                }
            }
        }

        const QString text = result.text.trimmed();
        if (!hit.isEmpty() && !text.isEmpty()) {
            qDebug().noquote() << prefix() << "selectedText hit via frontmost pid fallback, attempt"
                               << attempt << hit << result.method << "len =" << text.size()
                               << "preview =" << logPreview(text);
            return text;
        }
        qWarning().noquote() << prefix() << "frontmost pid fallback empty, attempt" << attempt << reason;
        // The application may still be updating its focus after the hotkey; give it a moment.
        m_api->sleepMicroseconds(FallbackPauseMicroseconds);
    }
    return QString();
}

QString AccessibilitySelectedTextProvider::selectedText()
{
    qint64 pid = 0;
    if (const std::optional<IAccessibilityApi::Application> app = m_api->frontmostApplication()) {
        pid = app->pid;
        qDebug().noquote() << prefix() << "frontmost app =" << app->name << "bundleId =" << app->bundleId
                           << "pid =" << app->pid;
    } else {
        qDebug().noquote() << prefix() << "frontmost app = (null)";
    }

    if (!m_api->isProcessTrusted()) {
        qWarning().noquote() << prefix() << "AXIsProcessTrusted = false (need Accessibility permission)";
        // Ask once per process: a prompt at every press would be unbearable.
        if (!g_promptRequested) {
            g_promptRequested = true;
            const bool trustedNow = m_api->requestTrustPrompt();
            qWarning().noquote() << prefix() << "Requested Accessibility permission prompt, trustedNow ="
                                 << (trustedNow ? "true" : "false");
        }
        return QString();
    }
    qDebug().noquote() << prefix() << "AXIsProcessTrusted = true";

    const IAccessibilityApi::Element systemWide = m_api->createSystemWide();
    if (!systemWide) {
        qWarning().noquote() << prefix() << "AXUIElementCreateSystemWide failed";
        return QString();
    }

    IAccessibilityApi::Element focused;
    const int focusedError = m_api->copyElementAttribute(systemWide, AXFocusedUIElement, &focused);
    if (focusedError != 0 || !focused) {
        qWarning().noquote() << prefix()
                             << "Copy kAXFocusedUIElementAttribute failed:" << axErrorName(focusedError)
                             << QStringLiteral("(%1)").arg(focusedError);
    } else {
        const ReadResult direct = selectedTextFromElement(focused);
        if (!direct.text.isEmpty()) {
            qDebug().noquote() << prefix() << "selectedText hit via" << direct.method
                               << "len =" << direct.text.size() << "preview =" << logPreview(direct.text);
            return direct.text;
        }
        // Some applications report the selection on a container rather than on the focused leaf.
        IAccessibilityApi::Element current = focused;
        for (int depth = 1; depth <= ParentWalkLimit; ++depth) {
            IAccessibilityApi::Element parent;
            if (m_api->copyElementAttribute(current, AXParent, &parent) != 0 || !parent)
                break;
            const ReadResult result = selectedTextFromElement(parent);
            if (!result.text.isEmpty()) {
                qDebug().noquote() << prefix() << "selectedText hit via parent depth" << depth
                                   << result.method << "len =" << result.text.size()
                                   << "preview =" << logPreview(result.text);
                return result.text;
            }
            current = parent;
        }
    }

    IAccessibilityApi::Element focusedApp;
    const int appError = m_api->copyElementAttribute(systemWide, AXFocusedApplication, &focusedApp);
    if (appError != 0 || !focusedApp) {
        qWarning().noquote() << prefix()
                             << "Copy kAXFocusedApplicationAttribute failed:" << axErrorName(appError)
                             << QStringLiteral("(%1)").arg(appError);
    } else {
        IAccessibilityApi::Element appFocused;
        const int error = m_api->copyElementAttribute(focusedApp, AXFocusedUIElement, &appFocused);
        if (error != 0 || !appFocused) {
            qWarning().noquote() << prefix()
                                 << "Copy app kAXFocusedUIElementAttribute failed:" << axErrorName(error)
                                 << QStringLiteral("(%1)").arg(error);
        } else {
            const ReadResult result = selectedTextFromElement(appFocused);
            if (!result.text.isEmpty()) {
                qDebug().noquote() << prefix() << "selectedText hit via app focused element" << result.method
                                   << "len =" << result.text.size() << "preview =" << logPreview(result.text);
                return result.text;
            }
        }
    }

    if (pid <= 0)
        return QString();
    return fallbackByPid(pid);
}
