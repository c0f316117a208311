#include "app/CommandLine.h"

#include <QTest>

using namespace Qt::StringLiterals;

Q_DECLARE_METATYPE(CommandLineAction)

class TestCommandLine : public QObject
{
    Q_OBJECT

private slots:
    void parse_data()
    {
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<int>("exitCode"); // -1: the program runs
        QTest::addColumn<CommandLineAction>("action");
        QTest::addColumn<QString>("error");
        using Action = CommandLineAction;
        const auto row = [](const char *name, const char *arguments, int exitCode, Action action,
                            const char *error = "") {
            QTest::newRow(name) << QString::fromUtf8(arguments).split(u' ', Qt::SkipEmptyParts) << exitCode
                                << action << QString::fromUtf8(error);
        };
        const auto run = -1;
        row("nothing", "", run, Action::None);
        row("capture", "--capture", run, Action::Capture);
        row("selection, twice", "--selection --selection", run, Action::Selection);
        // Qt's own options belong to QApplication, values included.
        row("qt options", "-platform offscreen --capture --style Fusion -reverse", run, Action::Capture);
        row("help wins over an action", "--capture -h", 0, Action::None);
        row("both actions", "--capture --selection", 2, Action::None,
            "--capture and --selection cannot be combined");
        row("unknown option", "--captrue", 2, Action::None, "unknown option '--captrue'");
        row("stray argument", "picture.png", 2, Action::None, "unexpected argument 'picture.png'");
        row("qt option without its value", "--capture -platform", 2, Action::None,
            "option '-platform' needs a value");
    }

    void parse()
    {
        QFETCH(QStringList, arguments);
        QFETCH(int, exitCode);
        QFETCH(CommandLineAction, action);
        QFETCH(QString, error);
        arguments.prepend(u"/usr/bin/vontrel"_s);
        const CommandLine line = CommandLine::parse(arguments);
        QCOMPARE(line.exitNow, exitCode >= 0);
        QCOMPARE(line.action, action);
        if (!line.exitNow)
            return;
        QCOMPARE(line.exitCode, exitCode);
        if (error.isEmpty()) {
            QVERIFY(line.error.isEmpty());
        } else {
            QCOMPARE(line.error, u"vontrel: %1\nTry 'vontrel --help' for more information.\n"_s.arg(error));
            QVERIFY(line.output.isEmpty());
        }
    }
};

QTEST_GUILESS_MAIN(TestCommandLine)
#include "test_commandline.moc"
