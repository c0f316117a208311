// Terminal emulators recognised by WM_CLASS. The focused window's class is read in the X11 session test,
// whose terminal is read without a copy keystroke and whose text field is not.
#include "platform/linux/X11TerminalWindow.h"

#include <QTest>

class TestX11TerminalWindow : public QObject
{
    Q_OBJECT

private slots:
    void classNames_data()
    {
        QTest::addColumn<QString>("instanceName");
        QTest::addColumn<QString>("className");
        QTest::addColumn<bool>("terminal");
        QTest::newRow("only the class tells")
            << QStringLiteral("main") << QStringLiteral("Alacritty") << true;
        QTest::newRow("st under its build name")
            << QStringLiteral("st-256color") << QStringLiteral("st-256color") << true;
        QTest::newRow("wezterm by reverse domain")
            << QStringLiteral("org.wezfurlong.wezterm") << QStringLiteral("org.wezfurlong.wezterm") << true;
        // A name that merely starts like a terminal's is not one.
        QTest::newRow("tray that starts with st")
            << QStringLiteral("stalonetray") << QStringLiteral("stalonetray") << false;
        QTest::newRow("no class") << QString() << QString() << false;
    }

    void classNames()
    {
        QFETCH(QString, instanceName);
        QFETCH(QString, className);
        QTEST(X11TerminalWindow::isTerminalClass(instanceName, className), "terminal");
    }
};

QTEST_GUILESS_MAIN(TestX11TerminalWindow)
#include "test_x11terminalwindow.moc"
