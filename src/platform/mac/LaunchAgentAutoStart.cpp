#include "platform/mac/LaunchAgentAutoStart.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QSaveFile>
#include <QStandardPaths>
#include <QXmlStreamWriter>

#include <unistd.h>

LaunchctlResult ProcessLaunchctlRunner::run(const QStringList &arguments)
{
    QProcess process;
    process.setProcessChannelMode(QProcess::SeparateChannels);
    process.start(QStringLiteral("launchctl"), arguments);
    process.waitForFinished(-1);
    return {process.exitCode(), process.readAllStandardOutput(), process.readAllStandardError()};
}

LaunchAgentAutoStart::Environment LaunchAgentAutoStart::systemEnvironment()
{
    return {QStandardPaths::writableLocation(QStandardPaths::HomeLocation), uint(getuid()),
            QCoreApplication::applicationFilePath()};
}

LaunchAgentAutoStart::LaunchAgentAutoStart(std::unique_ptr<ILaunchctlRunner> runner, Environment environment)
    : m_runner(std::move(runner))
    , m_env(std::move(environment))
{}

QString LaunchAgentAutoStart::launchAgentPlistPath(const QString &label) const
{
    return QDir(m_env.homeDir).filePath(QStringLiteral("Library/LaunchAgents/%1.plist").arg(label));
}

QString LaunchAgentAutoStart::domain() const
{
    return QStringLiteral("gui/%1").arg(m_env.uid);
}

QString LaunchAgentAutoStart::serviceTarget(const QString &label) const
{
    return QStringLiteral("%1/%2").arg(domain(), label);
}

QByteArray LaunchAgentAutoStart::propertyList()
{
    QByteArray out;
    QXmlStreamWriter xml(&out);
    xml.setAutoFormatting(true);
    xml.writeStartDocument(QStringLiteral("1.0"));
    xml.writeDTD(QStringLiteral("<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" "
                                "\"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">"));
    xml.writeStartElement(QStringLiteral("plist"));
    xml.writeAttribute(QStringLiteral("version"), QStringLiteral("1.0"));
    xml.writeStartElement(QStringLiteral("dict"));
    xml.writeTextElement(QStringLiteral("key"), QStringLiteral("Label"));
    xml.writeTextElement(QStringLiteral("string"), QString::fromLatin1(CurrentLabel));
    xml.writeTextElement(QStringLiteral("key"), QStringLiteral("ProgramArguments"));
    xml.writeStartElement(QStringLiteral("array"));
    // open -g -b: start the bundle by its identifier in the background, wherever the user moved it.
    for (const QString &argument : {QStringLiteral("/usr/bin/open"), QStringLiteral("-g"),
                                    QStringLiteral("-b"), QString::fromLatin1(CurrentLabel)})
        xml.writeTextElement(QStringLiteral("string"), argument);
    xml.writeEndElement(); // array
    xml.writeTextElement(QStringLiteral("key"), QStringLiteral("RunAtLoad"));
    xml.writeEmptyElement(QStringLiteral("true"));
    xml.writeEndElement(); // dict
    xml.writeEndElement(); // plist
    xml.writeEndDocument();
    return out;
}

QString LaunchAgentAutoStart::normalizedPath(const QString &path)
{
    QString result = path.trimmed();
    if (result.size() >= 2 && result.startsWith(u'"') && result.endsWith(u'"'))
        result = result.mid(1, result.size() - 2);
    return QDir::cleanPath(result);
}

QString LaunchAgentAutoStart::bundlePathForExecutable(const QString &executablePath)
{
    // Contents/MacOS/<executable> inside <name>.app
    QDir dir = QFileInfo(executablePath).dir();
    const QString candidate = QFileInfo(dir.absoluteFilePath(QStringLiteral("../.."))).absoluteFilePath();
    if (candidate.endsWith(QLatin1String(".app"), Qt::CaseInsensitive))
        return candidate;
    return executablePath;
}

bool LaunchAgentAutoStart::plistMentions(const QString &bundlePath, const QString &executablePath,
                                         const QString &file, const QString &label,
                                         const QString &alternative)
{
    QFile plist(file);
    if (!plist.exists() || !plist.open(QIODevice::ReadOnly | QIODevice::Text))
        return false;
    const QString text = QString::fromUtf8(plist.readAll());
    if (!text.contains(label))
        return false;
    return text.contains(alternative) || text.contains(bundlePath) || text.contains(executablePath);
}

bool LaunchAgentAutoStart::isLaunchAgentEnabled() const
{
    const QString executable = normalizedPath(m_env.executablePath);
    const QString bundle = normalizedPath(bundlePathForExecutable(m_env.executablePath));
    const QString current = QString::fromLatin1(CurrentLabel);
    if (plistMentions(bundle, executable, launchAgentPlistPath(current), current, current))
        return true;
    const QString former = QString::fromLatin1(FormerLabel);
    return plistMentions(bundle, executable, launchAgentPlistPath(former), former,
                         QString::fromLatin1(FormerMarker));
}

bool LaunchAgentAutoStart::enableLaunchAgent()
{
    const QString current = QString::fromLatin1(CurrentLabel);
    const QString former = QString::fromLatin1(FormerLabel);
    const QString currentFile = launchAgentPlistPath(current);
    if (!QDir().mkpath(QFileInfo(currentFile).absolutePath()))
        return false;
    // Written beside and renamed into place, so a failed write never leaves a truncated agent behind.
    QSaveFile file(currentFile);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Text) || file.write(propertyList()) < 0 ||
        !file.commit())
        return false;

    const QString formerFile = launchAgentPlistPath(former);
    launchctl({QStringLiteral("disable"), serviceTarget(former)});
    launchctl({QStringLiteral("bootout"), domain(), formerFile});
    launchctl({QStringLiteral("unload"), QStringLiteral("-w"), formerFile});
    if (QFileInfo::exists(formerFile))
        QFile::remove(formerFile);

    launchctl({QStringLiteral("enable"), serviceTarget(current)});
    // Boot out first, so that enabling twice leaves one loaded agent, not a "service already loaded" error.
    launchctl({QStringLiteral("bootout"), domain(), currentFile});
    if (launchctl({QStringLiteral("bootstrap"), domain(), currentFile}).exitCode != 0) {
        // Older launchd without bootstrap: the legacy load.
        launchctl({QStringLiteral("unload"), QStringLiteral("-w"), currentFile});
        if (launchctl({QStringLiteral("load"), QStringLiteral("-w"), currentFile}).exitCode != 0)
            return false;
    }
    launchctl({QStringLiteral("enable"), serviceTarget(current)});
    return true;
}

bool LaunchAgentAutoStart::disableLaunchAgent()
{
    for (const char *label : {CurrentLabel, FormerLabel}) {
        const QString name = QString::fromLatin1(label);
        const QString file = launchAgentPlistPath(name);
        launchctl({QStringLiteral("disable"), serviceTarget(name)});
        launchctl({QStringLiteral("bootout"), domain(), file});
        launchctl({QStringLiteral("unload"), QStringLiteral("-w"), file});
        if (QFileInfo::exists(file))
            QFile::remove(file);
    }
    return true;
}
