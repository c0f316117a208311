#include "X11TestHelpers.h"

#include "TestEnv.h"

#include <QDeadlineTimer>
#include <QEventLoop>
#include <QTimer>

namespace X11TestHelpers {

ToolResult runTool(const QString &program, const QStringList &arguments, const QByteArray &input)
{
    QProcess process;
    process.setProcessChannelMode(QProcess::SeparateChannels);
    QEventLoop loop;
    QObject::connect(&process, &QProcess::finished, &loop, &QEventLoop::quit);
    QObject::connect(&process, &QProcess::errorOccurred, &loop, &QEventLoop::quit);
    process.start(program, arguments);
    if (!process.waitForStarted(20000))
        return {};
    if (!input.isEmpty())
        process.write(input);
    process.closeWriteChannel();
    // Keep our event loop running: when this process owns the selection, the tool waits for us to answer.
    QTimer::singleShot(20000, &loop, &QEventLoop::quit);
    if (process.state() != QProcess::NotRunning)
        loop.exec();
    if (process.state() != QProcess::NotRunning) {
        process.kill();
        process.waitForFinished();
        return {};
    }
    return {process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1,
            process.readAllStandardOutput()};
}

bool xclipOwn(const QString &target, const QByteArray &bytes, const QString &selection)
{
    QProcess process;
    // xclip forks a server that keeps the pipes; do not hand it ours.
    process.setStandardOutputFile(QProcess::nullDevice());
    process.setStandardErrorFile(QProcess::nullDevice());
    process.start(QStringLiteral("xclip"), {QStringLiteral("-i"), QStringLiteral("-selection"), selection,
                                            QStringLiteral("-t"), target});
    if (!process.waitForStarted(20000))
        return false;
    process.write(bytes);
    process.closeWriteChannel();
    return process.waitForFinished(20000) && process.exitCode() == 0;
}

QStringList clipboardTargets()
{
    const ToolResult result =
        runTool(QStringLiteral("xclip"),
                {QStringLiteral("-o"), QStringLiteral("-selection"), QStringLiteral("clipboard"),
                 QStringLiteral("-t"), QStringLiteral("TARGETS")});
    if (result.exitCode != 0)
        return {};
    return QString::fromUtf8(result.output).split(u'\n', Qt::SkipEmptyParts);
}

ToolResult clipboardData(const QString &target)
{
    return runTool(QStringLiteral("xclip"), {QStringLiteral("-o"), QStringLiteral("-selection"),
                                             QStringLiteral("clipboard"), QStringLiteral("-t"), target});
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
    if (m_process->state() != QProcess::NotRunning) {
        m_process->terminate();
        if (!m_process->waitForFinished(10000)) {
            m_process->kill();
            m_process->waitForFinished();
        }
    }
}

bool HelperProcess::start(const QStringList &arguments)
{
    m_process->start(helperProgram(), arguments);
    if (!m_process->waitForStarted(20000))
        return false;
    const QDeadlineTimer deadline(20000);
    while (!m_process->canReadLine()) {
        if (deadline.hasExpired() || !m_process->waitForReadyRead(int(deadline.remainingTime())))
            return false;
    }
    const QString line = QString::fromUtf8(m_process->readLine()).trimmed();
    if (!line.startsWith(QLatin1String("ready")))
        return false;
    m_readyValue = line.mid(5).trimmed();
    return true;
}

} // namespace X11TestHelpers
