#include "FakeAccessibilityTree.h"

#include <QTest>

using Node = FakeAccessibilityTree::Node;
using NodePtr = FakeAccessibilityTree::NodePtr;
using Range = IAccessibilityApi::Range;

namespace {

struct Fixture
{
    std::shared_ptr<FakeAccessibilityTree::State> state;
    std::unique_ptr<AccessibilitySelectedTextProvider> provider;

    Fixture()
    {
        auto tree = std::make_unique<FakeAccessibilityTree>();
        state = tree->state();
        provider = std::make_unique<AccessibilitySelectedTextProvider>(std::move(tree));
    }
    QString read()
    {
        const QString text = provider->selectedText();
        // Every element reference handed out during the call was released again.
        if (state->handedOut != state->released)
            qWarning("leaked %d element references", state->handedOut - state->released);
        return text;
    }
    bool balanced() const { return state->handedOut == state->released; }
};

NodePtr chain(const NodePtr &leaf, int levels, NodePtr *top)
{
    NodePtr child = leaf;
    for (int i = 1; i <= levels; ++i) {
        NodePtr parent = FakeAccessibilityTree::node(QStringLiteral("parent%1").arg(i));
        parent->children << child;
        child->parent = parent;
        child = parent;
    }
    *top = child;
    return leaf;
}

} // namespace

class TestSelectedText : public QObject
{
    Q_OBJECT

private slots:
    void init() { AccessibilitySelectedTextProvider::resetPromptFlagForTesting(); }
    void elementRead_data();
    void elementRead();
    void parentWalkStopsAtSixLevels_data();
    void parentWalkStopsAtSixLevels();
    void untrustedPromptsOnce();
    void focusedApplicationThenPidFallback();
    void fallbackRetriesFiveTimesWithPauses();
    void subtreeSearchIsBounded_data();
    void subtreeSearchIsBounded();
    void logHelpers();
};

void TestSelectedText::elementRead_data()
{
    QTest::addColumn<QVariant>("selectedText"); // null: attribute missing; "<nonstring>": other type
    QTest::addColumn<qint64>("location");       // -1: no range
    QTest::addColumn<qint64>("length");
    QTest::addColumn<QVariant>("stringForRange");
    QTest::addColumn<QVariant>("value");
    QTest::addColumn<QString>("expected");

    const QVariant none;
    QTest::newRow("selected text, trimmed")
        << QVariant("  hello \n") << -1LL << 0LL << none << none << "hello";
    QTest::newRow("empty selected text ends the read")
        << QVariant("") << 0LL << 5LL << QVariant("from range") << QVariant("value") << "";
    QTest::newRow("non-string selected text ends the read")
        << QVariant("<nonstring>") << 0LL << 5LL << QVariant("from range") << none << "";
    QTest::newRow("string for range") << none << 2LL << 4LL << QVariant(" part ") << none << "part";
    QTest::newRow("range of length 0") << none << 2LL << 0LL << QVariant("x") << QVariant("value") << "";
    QTest::newRow("value substring") << none << 6LL << 5LL << none << QVariant("hello world!") << "world";
    QTest::newRow("range past the end is cut")
        << none << 6LL << 50LL << none << QVariant("hello world") << "world";
    QTest::newRow("range at the end") << none << 11LL << 3LL << none << QVariant("hello world") << "";
    QTest::newRow("white space only") << none << 0LL << 3LL << QVariant("   ") << QVariant(" \t ") << "";
    QTest::newRow("no range") << none << -1LL << 0LL << QVariant("x") << QVariant("value") << "";
}

void TestSelectedText::elementRead()
{
    QFETCH(QVariant, selectedText);
    QFETCH(qint64, location);
    QFETCH(qint64, length);
    QFETCH(QVariant, stringForRange);
    QFETCH(QVariant, value);
    QFETCH(QString, expected);

    Fixture f;
    NodePtr focused = FakeAccessibilityTree::node(QStringLiteral("focused"));
    if (selectedText.toString() == QLatin1String("<nonstring>"))
        focused->selectedTextNotString = true;
    else if (selectedText.isValid())
        focused->selectedText = selectedText.toString();
    if (location >= 0)
        focused->selectedRange = Range{location, length};
    if (stringForRange.isValid())
        focused->stringForRange = stringForRange.toString();
    if (value.isValid())
        focused->value = value.toString();
    f.state->systemWide->focusedElement = focused;

    QCOMPARE(f.read(), expected);
    QVERIFY(f.balanced());
}

void TestSelectedText::parentWalkStopsAtSixLevels_data()
{
    QTest::addColumn<int>("levels");
    QTest::addColumn<QString>("expected");
    QTest::newRow("direct parent") << 1 << "from parent";
    QTest::newRow("six levels up") << 6 << "from parent";
    QTest::newRow("seven levels up") << 7 << "";
}

void TestSelectedText::parentWalkStopsAtSixLevels()
{
    QFETCH(int, levels);
    QFETCH(QString, expected);
    Fixture f;
    NodePtr top;
    NodePtr leaf = chain(FakeAccessibilityTree::node(QStringLiteral("leaf")), levels, &top);
    top->selectedText = QStringLiteral("from parent");
    f.state->systemWide->focusedElement = leaf;
    QCOMPARE(f.read(), expected);
    QVERIFY(f.balanced());
}

void TestSelectedText::untrustedPromptsOnce()
{
    Fixture f;
    f.state->trusted = false;
    f.state->trustedAfterPrompt = true;
    NodePtr focused = FakeAccessibilityTree::node(QStringLiteral("focused"));
    focused->selectedText = QStringLiteral("secret");
    f.state->systemWide->focusedElement = focused;

    QCOMPARE(f.read(), QString()); // even though the prompt says trust was granted
    QCOMPARE(f.read(), QString());
    QCOMPARE(f.state->prompts, 1);
    QVERIFY(f.state->reads.isEmpty());
}

void TestSelectedText::focusedApplicationThenPidFallback()
{
    Fixture f;
    // The system-wide focus has nothing; the focused application's focused element has the selection.
    NodePtr app = FakeAccessibilityTree::node(QStringLiteral("app"));
    NodePtr appFocused = FakeAccessibilityTree::node(QStringLiteral("appFocused"));
    appFocused->selectedText = QStringLiteral("via app");
    app->focusedElement = appFocused;
    f.state->systemWide->focusedApplication = app;
    QCOMPARE(f.read(), QStringLiteral("via app"));

    // Without it, the frontmost process's focused window holds the selection in its subtree.
    Fixture g;
    g.state->frontmost =
        IAccessibilityApi::Application{42, QStringLiteral("Editor"), QStringLiteral("org.editor")};
    NodePtr pidApp = FakeAccessibilityTree::node(QStringLiteral("pidApp"));
    NodePtr window = FakeAccessibilityTree::node(QStringLiteral("window"));
    NodePtr group = FakeAccessibilityTree::node(QStringLiteral("group"));
    NodePtr text = FakeAccessibilityTree::node(QStringLiteral("text"));
    text->selectedText = QStringLiteral(" deep selection ");
    group->navigationChildren << nullptr << text; // only navigation order lists it; null entries are skipped
    window->children << group;
    pidApp->focusedWindow = window;
    g.state->applications.insert(42, pidApp);
    QCOMPARE(g.read(), QStringLiteral("deep selection"));
    QVERIFY(g.state->sleeps.isEmpty());
    QVERIFY(g.balanced());

    // No frontmost application: the system-wide strategies run, the pid fallback does not.
    Fixture h;
    QCOMPARE(h.read(), QString());
    QVERIFY(h.state->sleeps.isEmpty());
}

void TestSelectedText::fallbackRetriesFiveTimesWithPauses()
{
    Fixture f;
    f.state->frontmost = IAccessibilityApi::Application{7, QStringLiteral("Viewer"), QString()};
    NodePtr app = FakeAccessibilityTree::node(QStringLiteral("app"));
    app->focusedWindow = FakeAccessibilityTree::node(QStringLiteral("emptyWindow"));
    f.state->applications.insert(7, app);
    QCOMPARE(f.read(), QString());
    QCOMPARE(f.state->sleeps, (QList<int>{30000, 30000, 30000, 30000, 30000}));
    QVERIFY(f.balanced());
}

void TestSelectedText::subtreeSearchIsBounded_data()
{
    QTest::addColumn<int>("breadth"); // children of the window
    QTest::addColumn<int>("depth");   // depth of the selected element below the window
    QTest::addColumn<bool>("found");
    QTest::newRow("depth 6") << 1 << 6 << true;
    QTest::newRow("depth 7") << 1 << 7 << false;
    QTest::newRow("element 399 of the queue") << 398 << 1 << true;
    QTest::newRow("element 401 of the queue") << 450 << 1 << false;
}

void TestSelectedText::subtreeSearchIsBounded()
{
    QFETCH(int, breadth);
    QFETCH(int, depth);
    QFETCH(bool, found);

    Fixture f;
    f.state->frontmost = IAccessibilityApi::Application{9, QStringLiteral("Browser"), QString()};
    NodePtr app = FakeAccessibilityTree::node(QStringLiteral("app"));
    NodePtr window = FakeAccessibilityTree::node(QStringLiteral("window"));
    app->focusedWindow = window;
    f.state->applications.insert(9, app);

    // The selection sits in the last child (breadth) at the given depth.
    NodePtr parent = window;
    for (int i = 0; i < breadth; ++i)
        window->children << FakeAccessibilityTree::node(QStringLiteral("child%1").arg(i));
    parent = window->children.last();
    for (int level = 2; level <= depth; ++level) {
        NodePtr next = FakeAccessibilityTree::node(QStringLiteral("level%1").arg(level));
        parent->children << next;
        parent = next;
    }
    parent->selectedText = QStringLiteral("target");

    QCOMPARE(f.read(), found ? QStringLiteral("target") : QString());
    // No attempt reads more than 400 elements of the subtree (plus the window's own reads).
    const int attempts = found ? 1 : 5;
    QVERIFY2(f.state->reads.size() <= attempts * (400 + 2),
             qPrintable(QString::number(f.state->reads.size())));
    QVERIFY(f.balanced());
}

void TestSelectedText::logHelpers()
{
    QCOMPARE(AccessibilitySelectedTextProvider::axErrorName(0), QStringLiteral("kAXErrorSuccess"));
    QCOMPARE(AccessibilitySelectedTextProvider::axErrorName(-25200), QStringLiteral("kAXErrorFailure"));
    QCOMPARE(AccessibilitySelectedTextProvider::axErrorName(-25212), QStringLiteral("kAXErrorNoValue"));
    QCOMPARE(AccessibilitySelectedTextProvider::axErrorName(-25214),
             QStringLiteral("kAXErrorNotEnoughPrecision"));
    QCOMPARE(AccessibilitySelectedTextProvider::axErrorName(-25215), QStringLiteral("kAXError(unknown)"));
    QCOMPARE(AccessibilitySelectedTextProvider::logPreview(QStringLiteral("a\nb\tc\rd")),
             QStringLiteral("a b c d"));
    const QString longText(130, u'x');
    QCOMPARE(AccessibilitySelectedTextProvider::logPreview(longText), QString(120, u'x') + QChar(0x2026));
    QCOMPARE(AccessibilitySelectedTextProvider::logPreview(QString(120, u'y')), QString(120, u'y'));
}

QTEST_GUILESS_MAIN(TestSelectedText)
#include "test_selectedtext.moc"
