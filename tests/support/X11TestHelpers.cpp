#include "X11TestHelpers.h"

#include "capture/CaptureOverlay.h"

#include <QApplication>
#include <QScreen>
#include <QWindow>

#include "TestEnv.h"

#include <QDeadlineTimer>
#include <QTest>

namespace X11TestHelpers {

ToolResult runTool(const QString &program, const QStringList &arguments)
{
    QProcess process;
    process.start(program, arguments);
    process.closeWriteChannel();
    // Keep our event loop running: when this process owns the selection, the tool waits for our answer.
    if (!process.waitForStarted(20000) ||
        !QTest::qWaitFor([&] { return process.state() == QProcess::NotRunning; }, 20000)) {
        process.kill();
        process.waitForFinished();
        return {};
    }
    return {process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1,
            process.readAllStandardOutput()};
}

bool xdotool(const QStringList &arguments)
{
    return runTool(QStringLiteral("xdotool"), arguments).exitCode == 0;
}

bool drag(QPoint from, QPoint to, int button)
{
    const auto moveTo = [](QPoint logical) {
        const QPoint device = logical * QGuiApplication::primaryScreen()->devicePixelRatio();
        return QStringList{QStringLiteral("mousemove"), QString::number(device.x()),
                           QString::number(device.y())};
    };
    const QString b = QString::number(button);
    return xdotool(moveTo(from) + QStringList{QStringLiteral("mousedown"), b} + moveTo((from + to) / 2) +
                   moveTo(to) + QStringList{QStringLiteral("mouseup"), b});
}

ToolResult clipboardData(const QString &target)
{
    return runTool(QStringLiteral("xclip"), {"-o", "-selection", "clipboard", "-t", target});
}

QStringList clipboardTargets()
{
    const ToolResult r = clipboardData(QStringLiteral("TARGETS"));
    return r.exitCode ? QStringList() : QString::fromUtf8(r.output).split(u'\n', Qt::SkipEmptyParts);
}

QMap<QString, QByteArray> clipboardContents(const QStringList &targets)
{
    static const QStringList meta{"TARGETS", "TIMESTAMP", "MULTIPLE", "SAVE_TARGETS"};
    QMap<QString, QByteArray> contents;
    for (const QString &target : targets) {
        if (!meta.contains(target))
            contents.insert(target, clipboardData(target).output);
    }
    return contents;
}

QString helperProgram()
{
    return TestEnv::binaryDir() + QStringLiteral("/tests/support/vontrel_x11_helper");
}

HelperProcess::HelperProcess()
    : m_process(std::make_unique<QProcess>())
{
    m_process->setProcessChannelMode(QProcess::ForwardedErrorChannel);
}

HelperProcess::~HelperProcess()
{
    m_process->terminate();
    if (!m_process->waitForFinished(10000))
        m_process->kill();
    m_process->waitForFinished();
}

bool HelperProcess::start(const QStringList &arguments)
{
    m_process->start(helperProgram(), arguments);
    const QDeadlineTimer deadline(20000);
    while (!m_process->canReadLine())
        if (deadline.hasExpired() || !m_process->waitForReadyRead(int(deadline.remainingTime())))
            return false;
    const QString line = QString::fromUtf8(m_process->readLine()).trimmed();
    m_readyValue = line.mid(5).trimmed();
    return line.startsWith(QLatin1String("ready"));
}

QByteArray HelperProcess::output()
{
    m_output += m_process->readAll();
    return m_output;
}

} // namespace X11TestHelpers

QList<CaptureOverlay *> X11TestHelpers::captureOverlays(bool visibleOnly)
{
    QList<CaptureOverlay *> overlays;
    for (QWidget *widget : QApplication::topLevelWidgets()) {
        if (auto *overlay = qobject_cast<CaptureOverlay *>(widget);
            overlay && (overlay->isVisible() || !visibleOnly))
            overlays << overlay;
    }
    return overlays;
}

bool X11TestHelpers::captureSelectorShown()
{
    const QList<CaptureOverlay *> shown = captureOverlays();
    return std::any_of(shown.cbegin(), shown.cend(),
                       [](CaptureOverlay *o) { return o->windowHandle()->isExposed(); });
}
