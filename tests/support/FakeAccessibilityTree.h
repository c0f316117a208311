#pragma once

#include "platform/mac/AccessibilitySelectedTextProvider.h"

#include <QMap>
#include <QStringList>

#include <cstring>
#include <memory>
#include <optional>

// An Accessibility tree in memory. Nodes answer the attributes set on them and fail with
// kAXErrorAttributeUnsupported otherwise; every element handed out is counted so a test can check that all
// of them were released.
class FakeAccessibilityTree final : public IAccessibilityApi
{
public:
    struct Node
    {
        QString name;
        std::optional<QString> selectedText, stringForRange, value; // a null selectedText: not a string
        std::optional<Range> selectedRange;
        std::weak_ptr<Node> parent;
        QList<std::shared_ptr<Node>> children, navigationChildren; // null entries allowed
        std::shared_ptr<Node> focusedElement, focusedApplication, focusedWindow;
    };
    using NodePtr = std::shared_ptr<Node>;

    struct State
    {
        std::optional<Application> frontmost;
        bool trusted = true, trustedAfterPrompt = false;
        int prompts = 0, handedOut = 0, released = 0; // element references given out and released
        NodePtr systemWide = std::make_shared<Node>();
        QMap<qint64, NodePtr> applications;
        QList<int> sleeps; // microseconds
        QStringList reads; // node names, each time "AXSelectedText" was asked
    };

    std::shared_ptr<State> state() const { return m_state; }
    static NodePtr node(const QString &name)
    {
        auto n = std::make_shared<Node>();
        n->name = name;
        return n;
    }

    std::optional<Application> frontmostApplication() override { return m_state->frontmost; }
    bool isProcessTrusted() override { return m_state->trusted; }
    bool requestTrustPrompt() override
    {
        ++m_state->prompts;
        return m_state->trustedAfterPrompt;
    }
    Element createSystemWide() override { return hand(m_state->systemWide); }
    Element createApplication(qint64 pid) override { return hand(m_state->applications.value(pid)); }
    int copyElementAttribute(const Element &element, const char *attribute, Element *out) override
    {
        const Node *n = nodeOf(element);
        const NodePtr target = is(attribute, "AXParent")               ? n->parent.lock()
                               : is(attribute, "AXFocusedUIElement")   ? n->focusedElement
                               : is(attribute, "AXFocusedApplication") ? n->focusedApplication
                               : is(attribute, "AXFocusedWindow")      ? n->focusedWindow
                                                                       : nullptr;
        *out = hand(target);
        return target ? 0 : NoValue;
    }
    int copyElementArrayAttribute(const Element &element, const char *attribute, QList<Element> *out,
                                  bool *isArray) override
    {
        const QList<NodePtr> list = is(attribute, "AXChildren") ? nodeOf(element)->children
                                    : is(attribute, "AXChildrenInNavigationOrder")
                                        ? nodeOf(element)->navigationChildren
                                        : QList<NodePtr>();
        for (const NodePtr &child : list)
            out->append(hand(child));
        *isArray = !list.isEmpty();
        return list.isEmpty() ? NoValue : 0;
    }
    int copyTextAttribute(const Element &element, const char *attribute, QString *text,
                          bool *hasValue) override
    {
        const Node *n = nodeOf(element);
        if (is(attribute, "AXSelectedText"))
            m_state->reads << n->name;
        const std::optional<QString> &answer = is(attribute, "AXSelectedText") ? n->selectedText
                                               : is(attribute, "AXValue")      ? n->value
                                                                               : std::nullopt;
        *hasValue = answer.has_value();
        *text = answer.value_or(QString());
        return answer ? 0 : AttributeUnsupported;
    }
    int copyRangeAttribute(const Element &element, const char *attribute, Range *range,
                           bool *isRange) override
    {
        const std::optional<Range> &r = nodeOf(element)->selectedRange;
        *isRange = r && is(attribute, "AXSelectedTextRange");
        *range = r.value_or(Range());
        return *isRange ? 0 : AttributeUnsupported;
    }
    int copyStringForRange(const Element &element, const Range &, QString *text) override
    {
        *text = nodeOf(element)->stringForRange.value_or(QString());
        return nodeOf(element)->stringForRange ? 0 : AttributeUnsupported;
    }
    void sleepMicroseconds(int microseconds) override { m_state->sleeps << microseconds; }

private:
    static constexpr int AttributeUnsupported = -25205;
    static constexpr int NoValue = -25212;
    static bool is(const char *attribute, const char *name) { return !std::strcmp(attribute, name); }
    static Node *nodeOf(const Element &element) { return static_cast<Node *>(element.get()); }
    // The deleter keeps the node alive and counts the release, like CFRelease on a copied reference.
    Element hand(const NodePtr &node)
    {
        if (!node)
            return nullptr;
        ++m_state->handedOut;
        return Element(node.get(), [state = m_state, node](void *) { ++state->released; });
    }

    std::shared_ptr<State> m_state = std::make_shared<State>();
};
