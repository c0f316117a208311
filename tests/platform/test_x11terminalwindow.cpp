// Terminal emulators recognised by the focused window's WM_CLASS, on Xvfb with another X client.
#include "X11TestHelpers.h"

#include "platform/linux/X11TerminalWindow.h"

#include <QGuiApplication>
#include <QTest>

using namespace X11TestHelpers;

class TestX11TerminalWindow : public QObject
{
    Q_OBJECT

private slots:
    void classNames_data()
    {
        QTest::addColumn<QString>("instanceName");
        QTest::addColumn<QString>("className");
        QTest::addColumn<bool>("terminal");
        QTest::newRow("only the class tells") << "main"
                                              << "Alacritty" << true;
        QTest::newRow("st under its build name") << "st-256color"
                                                 << "st-256color" << true;
        QTest::newRow("wezterm by reverse domain") << "org.wezfurlong.wezterm"
                                                   << "org.wezfurlong.wezterm" << true;
        // A name that merely starts like a terminal's is not one.
        QTest::newRow("tray that starts with st") << "stalonetray"
                                                  << "stalonetray" << false;
        QTest::newRow("no class") << ""
                                  << "" << false;
    }

    void classNames()
    {
        QFETCH(QString, instanceName);
        QFETCH(QString, className);
        QTEST(X11TerminalWindow::isTerminalClass(instanceName, className), "terminal");
    }

    void focusedWindow_data()
    {
        QTest::addColumn<QStringList>("helper");
        QTest::addColumn<bool>("terminal");
        QTest::newRow("urxvt") << QStringList{"terminal-window", "URxvt", "make"} << true;
        QTest::newRow("text editor") << QStringList{"text-window", "make"} << false;
    }

    void focusedWindow()
    {
        QCOMPARE(QGuiApplication::platformName(), QStringLiteral("xcb"));
        QFETCH(QStringList, helper);
        HelperProcess window;
        QVERIFY(window.start(helper));
        QTEST(X11TerminalWindow::focusedWindowIsTerminal(), "terminal");
    }
};

QTEST_MAIN(TestX11TerminalWindow)
#include "test_x11terminalwindow.moc"
