#pragma once

#include "platform/AccessibilitySelectedTextProvider.h"

#include <QList>
#include <QMap>
#include <QStringList>

#include <memory>
#include <optional>

// An Accessibility tree in memory. Nodes answer the attributes that are set on them and fail with
// kAXErrorAttributeUnsupported (-25205) otherwise. Every element handed out is counted, so a test can check
// that all of them were released by the end of a call.
class FakeAccessibilityTree final : public IAccessibilityApi
{
public:
    struct Node
    {
        QString name;
        std::optional<QString> selectedText;             // "AXSelectedText"
        bool selectedTextNotString = false;              // "AXSelectedText" present but of another type
        std::optional<Range> selectedRange;              // "AXSelectedTextRange"
        std::optional<QString> stringForRange;           // answer of "AXStringForRange"
        std::optional<QString> value;                    // "AXValue"
        std::weak_ptr<Node> parent;                      // "AXParent" (weak: the parent holds its children)
        QList<std::shared_ptr<Node>> children;           // "AXChildren" (null entries allowed)
        QList<std::shared_ptr<Node>> navigationChildren; // "AXChildrenInNavigationOrder"
        std::shared_ptr<Node> focusedElement;            // "AXFocusedUIElement"
        std::shared_ptr<Node> focusedApplication;        // "AXFocusedApplication"
        std::shared_ptr<Node> focusedWindow;             // "AXFocusedWindow"
    };
    using NodePtr = std::shared_ptr<Node>;

    struct State
    {
        std::optional<Application> frontmost;
        bool trusted = true;
        bool trustedAfterPrompt = false;
        int prompts = 0;
        NodePtr systemWide = std::make_shared<Node>();
        QMap<qint64, NodePtr> applications;
        QList<int> sleeps; // microseconds, in order
        QStringList reads; // node names, each time "AXSelectedText" was asked
        int handedOut = 0; // element references given to the reader
        int released = 0;  // ... and released again
    };

    FakeAccessibilityTree()
        : m_state(std::make_shared<State>())
    {}
    std::shared_ptr<State> state() const { return m_state; }

    static NodePtr node(const QString &name)
    {
        auto n = std::make_shared<Node>();
        n->name = name;
        return n;
    }

    std::optional<Application> frontmostApplication() override { return m_state->frontmost; }
    bool isProcessTrusted() override { return m_state->trusted; }
    bool requestTrustPrompt() override;
    Element createSystemWide() override { return hand(m_state->systemWide); }
    Element createApplication(qint64 pid) override { return hand(m_state->applications.value(pid)); }
    int copyElementAttribute(const Element &element, const char *attribute, Element *out) override;
    int copyElementArrayAttribute(const Element &element, const char *attribute, QList<Element> *out,
                                  bool *isArray) override;
    int copyTextAttribute(const Element &element, const char *attribute, QString *text,
                          bool *hasValue) override;
    int copyRangeAttribute(const Element &element, const char *attribute, Range *range,
                           bool *isRange) override;
    int copyStringForRange(const Element &element, const Range &range, QString *text) override;
    void sleepMicroseconds(int microseconds) override { m_state->sleeps << microseconds; }

private:
    Element hand(const NodePtr &node);
    static Node *nodeOf(const Element &element) { return static_cast<Node *>(element.get()); }

    std::shared_ptr<State> m_state;
};
