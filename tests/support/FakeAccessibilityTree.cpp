#include "FakeAccessibilityTree.h"

#include <cstring>

namespace {
constexpr int AttributeUnsupported = -25205;
constexpr int NoValue = -25212;
} // namespace

IAccessibilityApi::Element FakeAccessibilityTree::hand(const NodePtr &node)
{
    if (!node)
        return nullptr;
    ++m_state->handedOut;
    std::shared_ptr<State> state = m_state;
    // The deleter keeps the node alive and counts the release, like CFRelease on a copied reference.
    return Element(node.get(), [state, node](void *) { ++state->released; });
}

bool FakeAccessibilityTree::requestTrustPrompt()
{
    ++m_state->prompts;
    return m_state->trustedAfterPrompt;
}

int FakeAccessibilityTree::copyElementAttribute(const Element &element, const char *attribute, Element *out)
{
    Node *n = nodeOf(element);
    NodePtr target;
    if (!std::strcmp(attribute, "AXParent"))
        target = n->parent.lock();
    else if (!std::strcmp(attribute, "AXFocusedUIElement"))
        target = n->focusedElement;
    else if (!std::strcmp(attribute, "AXFocusedApplication"))
        target = n->focusedApplication;
    else if (!std::strcmp(attribute, "AXFocusedWindow"))
        target = n->focusedWindow;
    if (!target)
        return NoValue;
    *out = hand(target);
    return 0;
}

int FakeAccessibilityTree::copyElementArrayAttribute(const Element &element, const char *attribute,
                                                     QList<Element> *out, bool *isArray)
{
    Node *n = nodeOf(element);
    const QList<NodePtr> *list = nullptr;
    if (!std::strcmp(attribute, "AXChildren"))
        list = &n->children;
    else if (!std::strcmp(attribute, "AXChildrenInNavigationOrder"))
        list = &n->navigationChildren;
    if (!list || list->isEmpty())
        return NoValue;
    *isArray = true;
    for (const NodePtr &child : *list)
        out->append(hand(child));
    return 0;
}

int FakeAccessibilityTree::copyTextAttribute(const Element &element, const char *attribute, QString *text,
                                             bool *hasValue)
{
    Node *n = nodeOf(element);
    if (!std::strcmp(attribute, "AXSelectedText")) {
        m_state->reads << n->name;
        if (n->selectedTextNotString) {
            *hasValue = true;
            *text = QString();
            return 0;
        }
        if (!n->selectedText)
            return AttributeUnsupported;
        *hasValue = true;
        *text = *n->selectedText;
        return 0;
    }
    if (!std::strcmp(attribute, "AXValue") && n->value) {
        *hasValue = true;
        *text = *n->value;
        return 0;
    }
    return AttributeUnsupported;
}

int FakeAccessibilityTree::copyRangeAttribute(const Element &element, const char *attribute, Range *range,
                                              bool *isRange)
{
    Node *n = nodeOf(element);
    if (std::strcmp(attribute, "AXSelectedTextRange") || !n->selectedRange)
        return AttributeUnsupported;
    *isRange = true;
    *range = *n->selectedRange;
    return 0;
}

int FakeAccessibilityTree::copyStringForRange(const Element &element, const Range &, QString *text)
{
    Node *n = nodeOf(element);
    if (!n->stringForRange)
        return AttributeUnsupported;
    *text = *n->stringForRange;
    return 0;
}
