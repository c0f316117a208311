#pragma once

#include <QByteArray>
#include <QProcess>
#include <QString>
#include <QStringList>

#include <memory>

// Helpers for tests that run under their own Xvfb and talk to real X clients.
namespace X11TestHelpers {

struct ToolResult
{
    int exitCode = -1;
    QByteArray output;
};

// Runs a command-line tool (xdotool, xclip ...) to its end; bounded at 20 s so a hung tool fails the test.
ToolResult runTool(const QString &program, const QStringList &arguments, const QByteArray &input = {});

// Lets xclip own the CLIPBOARD (or another) selection with one target and the given bytes (it serves in the
// background until another client takes the selection). True when xclip started.
bool xclipOwn(const QString &target, const QByteArray &bytes,
              const QString &selection = QStringLiteral("clipboard"));
// The targets the current CLIPBOARD owner offers (xclip -t TARGETS); empty when nobody owns it.
QStringList clipboardTargets();
// The bytes of one target of the CLIPBOARD selection, read by xclip in another process.
ToolResult clipboardData(const QString &target);

// The test helper program built beside the tests (tests/support/vontrel_x11_helper).
QString helperProgram();

// A helper process that runs until the object is destroyed; start() waits for its first output line.
class HelperProcess
{
public:
    HelperProcess();
    ~HelperProcess();
    // Starts the helper with the arguments and waits (up to 20 s) for its "ready ..." line.
    bool start(const QStringList &arguments);
    // The rest of the ready line ("ready 1234" -> "1234").
    QString readyValue() const { return m_readyValue; }

private:
    std::unique_ptr<QProcess> m_process;
    QString m_readyValue;
};

} // namespace X11TestHelpers
