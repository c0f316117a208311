#include "FakeAccessibilityTree.h"

#include <QTest>

using Tree = FakeAccessibilityTree;
using Provider = AccessibilitySelectedTextProvider;

class TestSelectedText : public QObject
{
    Q_OBJECT

    std::shared_ptr<Tree::State> m_state;
    std::unique_ptr<Provider> m_provider;

private slots:
    void init()
    {
        Provider::resetPromptFlagForTesting();
        auto tree = std::make_unique<Tree>();
        m_state = tree->state();
        m_provider = std::make_unique<Provider>(std::move(tree));
    }
    void cleanup() { QCOMPARE(m_state->released, m_state->handedOut); } // every reference released

    void elementRead_data()
    {
        QTest::addColumn<QVariant>("selectedText"); // invalid: attribute missing; null string: not a string
        QTest::addColumn<QPoint>("range");          // location, length; (-1, 0): none
        QTest::addColumn<QVariant>("stringForRange");
        QTest::addColumn<QVariant>("value");
        QTest::addColumn<QString>("expected");
        const QVariant none;
        const QPoint noRange(-1, 0);
        QTest::newRow("selected text, trimmed") << QVariant(" hi \n") << noRange << none << none << "hi";
        QTest::newRow("empty ends the read")
            << QVariant("") << QPoint(0, 5) << QVariant("r") << QVariant("v") << "";
        QTest::newRow("string for range") << none << QPoint(2, 4) << QVariant(" part ") << none << "part";
        QTest::newRow("value cut to range")
            << none << QPoint(6, 50) << none << QVariant("hello world") << "world";
        QTest::newRow("range at the end") << none << QPoint(11, 3) << none << QVariant("hello world") << "";
        QTest::newRow("no range") << none << noRange << QVariant("x") << QVariant("value") << "";
    }
    void elementRead()
    {
        QFETCH(QVariant, selectedText);
        QFETCH(QPoint, range);
        QFETCH(QVariant, stringForRange);
        QFETCH(QVariant, value);
        Tree::NodePtr focused = m_state->systemWide->focusedElement = Tree::node(QStringLiteral("focused"));
        if (selectedText.isValid())
            focused->selectedText = selectedText.toString();
        if (range.x() >= 0)
            focused->selectedRange = IAccessibilityApi::Range{range.x(), range.y()};
        if (stringForRange.isValid())
            focused->stringForRange = stringForRange.toString();
        if (value.isValid())
            focused->value = value.toString();
        QTEST(m_provider->selectedText(), "expected");
    }

    void parentWalkStopsAtSixLevels()
    {
        for (const int levels : {6, 7}) {
            Tree::NodePtr child = m_state->systemWide->focusedElement = Tree::node(QStringLiteral("leaf"));
            for (int i = 1; i <= levels; ++i) {
                Tree::NodePtr parent = Tree::node(QStringLiteral("parent%1").arg(i));
                parent->children << child;
                child->parent = parent;
                child = parent;
            }
            child->selectedText = QStringLiteral("from parent");
            QCOMPARE(m_provider->selectedText(), levels <= 6 ? QStringLiteral("from parent") : QString());
        }
        QVERIFY(m_state->sleeps.isEmpty()); // no frontmost application: no fallback
    }

    void untrustedPromptsOnce()
    {
        m_state->trusted = false;
        m_state->trustedAfterPrompt = true;
        m_state->systemWide->focusedElement = Tree::node(QStringLiteral("focused"));
        m_state->systemWide->focusedElement->selectedText = QStringLiteral("secret");
        QCOMPARE(m_provider->selectedText(), QString()); // even though the prompt says trust was granted
        QCOMPARE(m_provider->selectedText(), QString());
        QCOMPARE(m_state->prompts, 1);
        QVERIFY(m_state->reads.isEmpty());
    }

    void focusedApplication()
    {
        Tree::NodePtr app = m_state->systemWide->focusedApplication = Tree::node(QStringLiteral("app"));
        app->focusedElement = Tree::node(QStringLiteral("appFocused"));
        app->focusedElement->selectedText = QStringLiteral("via app");
        QCOMPARE(m_provider->selectedText(), QStringLiteral("via app"));
    }

    void pidFallbackSearchIsBounded_data()
    {
        QTest::addColumn<int>("breadth"); // children of the window; the selection is below the last one
        QTest::addColumn<int>("depth");
        QTest::addColumn<bool>("found");
        QTest::newRow("depth 6") << 1 << 6 << true;
        QTest::newRow("depth 7") << 1 << 7 << false;
        QTest::newRow("element 399 of the queue") << 398 << 1 << true;
        QTest::newRow("element 401 of the queue") << 450 << 1 << false;
    }
    void pidFallbackSearchIsBounded()
    {
        QFETCH(int, breadth);
        QFETCH(int, depth);
        QFETCH(bool, found);
        // The frontmost process (pid 9) with its focused window, for the fallback.
        m_state->frontmost = IAccessibilityApi::Application{9, QStringLiteral("Editor"), QString()};
        m_state->applications.insert(9, Tree::node(QStringLiteral("app")));
        Tree::NodePtr window = m_state->applications[9]->focusedWindow = Tree::node(QStringLiteral("window"));
        for (int i = 0; i < breadth; ++i)
            window->children << Tree::node(QStringLiteral("child%1").arg(i));
        Tree::NodePtr parent = window->children.last();
        for (int level = 2; level <= depth; ++level) {
            // Only the navigation order lists the deeper levels; null entries are skipped.
            parent->navigationChildren << nullptr << Tree::node(QStringLiteral("level%1").arg(level));
            parent = parent->navigationChildren.last();
        }
        parent->selectedText = QStringLiteral(" target ");
        QCOMPARE(m_provider->selectedText(), found ? QStringLiteral("target") : QString());
        // Not found: 5 attempts 30 ms apart, none reading more than 400 elements (plus the window's reads).
        QCOMPARE(m_state->sleeps, found ? QList<int>() : QList<int>(5, 30000));
        QVERIFY2(m_state->reads.size() <= (found ? 1 : 5) * 402,
                 qPrintable(QString::number(m_state->reads.size())));
    }
};

QTEST_GUILESS_MAIN(TestSelectedText)
#include "test_selectedtext.moc"
