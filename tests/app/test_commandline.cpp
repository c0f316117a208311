#include "app/CommandLine.h"

#include <QTest>

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
        const auto run = -1;
        QTest::newRow("nothing") << QStringList() << run << CommandLineAction::None << QString();
        QTest::newRow("capture") << QStringList{"--capture"} << run << CommandLineAction::Capture
                                 << QString();
        QTest::newRow("selection, twice")
            << QStringList{"--selection", "--selection"} << run << CommandLineAction::Selection << QString();
        // Qt's own options belong to QApplication, values included.
        QTest::newRow("qt options") << QStringList{"-platform", "offscreen", "--capture",
                                                   "--style",   "Fusion",    "-reverse"}
                                    << run << CommandLineAction::Capture << QString();
        QTest::newRow("help wins over an action")
            << QStringList{"--capture", "-h"} << 0 << CommandLineAction::None << QString();
        QTest::newRow("both actions")
            << QStringList{"--capture", "--selection"} << 2 << CommandLineAction::None
            << QStringLiteral("--capture and --selection cannot be combined");
        QTest::newRow("unknown option") << QStringList{"--captrue"} << 2 << CommandLineAction::None
                                        << QStringLiteral("unknown option '--captrue'");
        QTest::newRow("stray argument") << QStringList{"picture.png"} << 2 << CommandLineAction::None
                                        << QStringLiteral("unexpected argument 'picture.png'");
        QTest::newRow("qt option without its value")
            << QStringList{"--capture", "-platform"} << 2 << CommandLineAction::None
            << QStringLiteral("option '-platform' needs a value");
    }

    void parse()
    {
        QFETCH(QStringList, arguments);
        QFETCH(int, exitCode);
        QFETCH(CommandLineAction, action);
        QFETCH(QString, error);
        arguments.prepend(QStringLiteral("/usr/bin/vontrel"));
        const CommandLine line = CommandLine::parse(arguments);
        QCOMPARE(line.exitNow, exitCode >= 0);
        QCOMPARE(line.action, action);
        if (!line.exitNow)
            return;
        QCOMPARE(line.exitCode, exitCode);
        if (error.isEmpty()) {
            QVERIFY(line.error.isEmpty());
        } else {
            QCOMPARE(line.error,
                     QStringLiteral("vontrel: %1\nTry 'vontrel --help' for more information.\n").arg(error));
            QVERIFY(line.output.isEmpty());
        }
    }
};

QTEST_GUILESS_MAIN(TestCommandLine)
#include "test_commandline.moc"
