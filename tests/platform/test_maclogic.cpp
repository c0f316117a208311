// The macOS logic that runs everywhere: the launch agent against a fake launchctl, and the selected-text
// reader against a fake accessibility tree.
#include "FakeAccessibilityTree.h"
#include "FakeLaunchctlRunner.h"
#include "TestEnv.h"

#include <QTemporaryDir>
#include <QTest>

using namespace Qt::StringLiterals;

namespace {

using namespace TestEnv;

const QString Current = QString::fromLatin1(LaunchAgentAutoStart::CurrentLabel);
const QString Former = QString::fromLatin1(LaunchAgentAutoStart::FormerLabel);
const QByteArray FormerContent = "com.vontrel.Vontrel com.vontrel.app";

struct LaunchdFixture
{
    QTemporaryDir home;
    std::shared_ptr<FakeLaunchctlRunner::State> runner;
    std::unique_ptr<LaunchAgentAutoStart> agent;

    explicit LaunchdFixture(const QString &executable = "/Applications/Vontrel.app/Contents/MacOS/Vontrel")
    {
        auto fake = std::make_unique<FakeLaunchctlRunner>();
        runner = fake->state();
        agent = std::make_unique<LaunchAgentAutoStart>(
            std::move(fake), LaunchAgentAutoStart::Environment{home.path(), 501, executable});
    }
    QString file(const QString &label) const { return agent->launchAgentPlistPath(label); }
    QStringList commands() const
    {
        QStringList lines;
        for (const QStringList &command : std::as_const(runner->commands))
            lines << command.join(u' ').replace(home.path(), u"~"_s);
        return lines;
    }
};

// The launchctl lines that stop an agent (disable, bootout, legacy unload) and those that start it.
QStringList stopSteps(const QString &label)
{
    const QString file = u"~/Library/LaunchAgents/%1.plist"_s.arg(label);
    return {"disable gui/501/" + label, "bootout gui/501 " + file, "unload -w " + file};
}

using Tree = FakeAccessibilityTree;
using Provider = AccessibilitySelectedTextProvider;

} // namespace

class TestMacLogic : public QObject
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
        Tree::NodePtr focused = m_state->systemWide->focusedElement = Tree::node(u"focused"_s);
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
            Tree::NodePtr child = m_state->systemWide->focusedElement = Tree::node(u"leaf"_s);
            for (int i = 1; i <= levels; ++i) {
                Tree::NodePtr parent = Tree::node(u"parent%1"_s.arg(i));
                parent->children << child;
                child->parent = parent;
                child = parent;
            }
            child->selectedText = u"from parent"_s;
            QCOMPARE(m_provider->selectedText(), levels <= 6 ? u"from parent"_s : QString());
        }
        QVERIFY(m_state->sleeps.isEmpty()); // no frontmost application: no fallback
    }

    void untrustedPromptsOnce()
    {
        m_state->trusted = false;
        m_state->trustedAfterPrompt = true;
        m_state->systemWide->focusedElement = Tree::node(u"focused"_s);
        m_state->systemWide->focusedElement->selectedText = u"secret"_s;
        QCOMPARE(m_provider->selectedText(), QString()); // even though the prompt says trust was granted
        QCOMPARE(m_provider->selectedText(), QString());
        QCOMPARE(m_state->prompts, 1);
        QVERIFY(m_state->reads.isEmpty());
    }

    void focusedApplication()
    {
        Tree::NodePtr app = m_state->systemWide->focusedApplication = Tree::node(u"app"_s);
        app->focusedElement = Tree::node(u"appFocused"_s);
        app->focusedElement->selectedText = u"via app"_s;
        QCOMPARE(m_provider->selectedText(), u"via app"_s);
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
        m_state->frontmost = IAccessibilityApi::Application{9, u"Editor"_s, QString()};
        m_state->applications.insert(9, Tree::node(u"app"_s));
        Tree::NodePtr window = m_state->applications[9]->focusedWindow = Tree::node(u"window"_s);
        for (int i = 0; i < breadth; ++i)
            window->children << Tree::node(u"child%1"_s.arg(i));
        Tree::NodePtr parent = window->children.last();
        for (int level = 2; level <= depth; ++level) {
            // Only the navigation order lists the deeper levels; null entries are skipped.
            parent->navigationChildren << nullptr << Tree::node(u"level%1"_s.arg(level));
            parent = parent->navigationChildren.last();
        }
        parent->selectedText = u" target "_s;
        QCOMPARE(m_provider->selectedText(), found ? u"target"_s : QString());
        // Not found: 5 attempts 30 ms apart, none reading more than 400 elements (plus the window's reads).
        QCOMPARE(m_state->sleeps, found ? QList<int>() : QList<int>(5, 30000));
        QVERIFY2(m_state->reads.size() <= (found ? 1 : 5) * 402,
                 qPrintable(QString::number(m_state->reads.size())));
    }

    void launchAgentEnablePlan_data()
    {
        QTest::addColumn<int>("bootstrapExit");
        QTest::addColumn<int>("loadExit");
        QTest::addColumn<QStringList>("tail"); // after the former label's cleanup; no final enable: failed
        const QString file = u"~/Library/LaunchAgents/app.vontrel.Vontrel.plist"_s;
        const QStringList start{"enable gui/501/" + Current, "bootout gui/501 " + file,
                                "bootstrap gui/501 " + file};
        const QStringList legacy = start + QStringList{"unload -w " + file, "load -w " + file};
        QTest::newRow("bootstrap") << 0 << 0 << start + QStringList{"enable gui/501/" + Current};
        QTest::newRow("both refused") << 5 << 1 << legacy;
    }
    void launchAgentEnablePlan()
    {
        QFETCH(int, bootstrapExit);
        QFETCH(int, loadExit);
        QFETCH(QStringList, tail);
        LaunchdFixture f;
        f.runner->exitCodeBySubcommand = {{"bootstrap", bootstrapExit}, {"load", loadExit}};
        QVERIFY(writeFile(f.file(Former), FormerContent));
        QCOMPARE(f.agent->enableLaunchAgent(), tail.last().startsWith("enable"_L1));
        QCOMPARE(f.commands(), stopSteps(Former) + tail);
        QVERIFY(!QFile::exists(f.file(Former)));
        // The agent file stays even when launchd refused it.
        QCOMPARE(readFile(f.file(Current)), LaunchAgentAutoStart::propertyList());
        QVERIFY(f.agent->isLaunchAgentEnabled());
    }

    void launchAgentDisableRemovesBothLabels()
    {
        LaunchdFixture f;
        QVERIFY(writeFile(f.file(Current), LaunchAgentAutoStart::propertyList()));
        QVERIFY(writeFile(f.file(Former), FormerContent));
        QVERIFY(f.agent->disableLaunchAgent());
        QCOMPARE(f.commands(), stopSteps(Current) + stopSteps(Former));
        QVERIFY(!QFile::exists(f.file(Current)) && !QFile::exists(f.file(Former)));
    }

    void launchAgentInstalledCheck_data()
    {
        QTest::addColumn<QString>("executable");
        QTest::addColumn<QString>("label"); // whose file is written
        QTest::addColumn<QByteArray>("content");
        QTest::addColumn<bool>("installed");
        const QString bundled = u"/Applications/Vontrel.app/Contents/MacOS/Vontrel"_s;
        const QByteArray outside = "com.vontrel.Vontrel /opt/vontrel/bin/vontrel";
        QTest::newRow("current") << bundled << Current << LaunchAgentAutoStart::propertyList() << true;
        QTest::newRow("former with marker") << bundled << Former << FormerContent << true;
        QTest::newRow("quoted executable with redundant separators")
            << "  \"/opt//vontrel/./bin/vontrel\" " << Former << outside << true;
    }
    void launchAgentInstalledCheck()
    {
        QFETCH(QString, executable);
        QFETCH(QString, label);
        QFETCH(QByteArray, content);
        LaunchdFixture f(executable);
        QVERIFY(writeFile(f.file(label), content));
        QTEST(f.agent->isLaunchAgentEnabled(), "installed");
        QVERIFY(f.runner->commands.isEmpty()); // launchd is not asked
    }
};

QTEST_GUILESS_MAIN(TestMacLogic)
#include "test_maclogic.moc"
