#pragma once

#include <QMap>
#include <QPoint>
#include <QProcess>
#include <QStringList>

#include <memory>

class CaptureOverlay;

// Helpers for tests that run under their own Xvfb and talk to real X clients.
namespace X11TestHelpers {

struct ToolResult
{
    int exitCode = -1;
    QByteArray output;
};

// Runs a tool (xdotool, xclip ...) to its end while serving our event loop; a hung tool fails after 20 s.
ToolResult runTool(const QString &program, const QStringList &arguments);
// Real input through XTEST. No "--sync": xdotool 3.20160805 then waits up to 15 s when the pointer is already
// in place; callers wait for the effect instead.
bool xdotool(const QStringList &arguments);
// A drag between logical points through the one half-way, as a hand would, so that motion is seen while the
// button is down.
bool drag(QPoint from, QPoint to, int button = 1);
ToolResult clipboardData(const QString &target); // one CLIPBOARD target, read by xclip
QStringList clipboardTargets();                  // those the owner offers; empty when nobody owns it
// The content targets among these (not TARGETS, TIMESTAMP ...) with their bytes, as another client reads
// them.
QMap<QString, QByteArray> clipboardContents(const QStringList &targets = clipboardTargets());
QString helperProgram(); // tests/support/vontrel_x11_helper in the build tree
QList<CaptureOverlay *> captureOverlays(bool visibleOnly = true);
// Whether the region selector is on screen and exposed, so that a drag reaches it.
bool captureSelectorShown();

// The helper program, running until the object goes; start() waits for its "ready [value]" line.
class HelperProcess
{
public:
    HelperProcess();
    ~HelperProcess();
    bool start(const QStringList &arguments);
    QString readyValue() const { return m_readyValue; }
    // Everything the helper printed after its "ready" line, so far.
    QByteArray output();

private:
    std::unique_ptr<QProcess> m_process;
    QString m_readyValue;
    QByteArray m_output;
};

} // namespace X11TestHelpers
