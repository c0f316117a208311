#include "platform/linux/XdgAutoStartBackend.h"

#include "log/LogCategories.h"

#include <QCoreApplication>
#include <QDebug>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QRegularExpression>
#include <QSaveFile>
#include <QStandardPaths>

namespace {

// Named by the application id, like the installed desktop entry. Versions before the id wrote the second
// name; such an entry still counts and is replaced when the setting changes.
const char EntryFileName[] = VONTREL_APP_ID ".desktop";
const char LegacyEntryFileName[] = "vontrel.desktop";

QString normalizedPath(const QString &path)
{
    if (path.isEmpty())
        return QString();
    // The entry may name a link to the executable; compare what they point at when both exist.
    const QFileInfo info(path);
    const QString canonical = info.canonicalFilePath();
    return canonical.isEmpty() ? QDir::cleanPath(info.absoluteFilePath()) : canonical;
}

// Quoting of the Exec key: the argument in double quotes with ", `, $ and \ escaped, % doubled (it starts
// field codes), and then the general string escapes of desktop-entry values.
QString execValueFor(const QString &program)
{
    QString quoted;
    for (QChar ch : program) {
        if (ch == u'"' || ch == u'`' || ch == u'$' || ch == u'\\')
            quoted += u'\\';
        if (ch == u'%')
            quoted += u'%';
        quoted += ch;
    }
    QString value = u'"' + quoted + u'"';
    value.replace(u'\\', QStringLiteral("\\\\"));
    value.replace(u'\n', QStringLiteral("\\n"));
    value.replace(u'\t', QStringLiteral("\\t"));
    value.replace(u'\r', QStringLiteral("\\r"));
    return value;
}

QString unescapeValue(const QString &value)
{
    QString out;
    for (int i = 0; i < value.size(); ++i) {
        if (value[i] != u'\\' || i + 1 == value.size()) {
            out += value[i];
            continue;
        }
        const QChar next = value[++i];
        if (next == u's')
            out += u' ';
        else if (next == u'n')
            out += u'\n';
        else if (next == u't')
            out += u'\t';
        else if (next == u'r')
            out += u'\r';
        else
            out += next; // "\\" and anything unknown
    }
    return out;
}

} // namespace

XdgAutoStartBackend::XdgAutoStartBackend()
    : XdgAutoStartBackend(QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation) +
                              QStringLiteral("/autostart"),
                          // Run from an AppImage, the executable lives on a mount that is gone after logout.
                          qEnvironmentVariableIsSet("APPIMAGE") ? qEnvironmentVariable("APPIMAGE")
                                                                : QCoreApplication::applicationFilePath())
{}

XdgAutoStartBackend::XdgAutoStartBackend(const QString &autostartDir, const QString &executablePath)
    : m_autostartDir(autostartDir)
    , m_executablePath(executablePath)
{}

QString XdgAutoStartBackend::entryPath() const
{
    return QDir(m_autostartDir).filePath(QString::fromLatin1(EntryFileName));
}

QString XdgAutoStartBackend::legacyEntryPath() const
{
    return QDir(m_autostartDir).filePath(QString::fromLatin1(LegacyEntryFileName));
}

QByteArray XdgAutoStartBackend::entryText(const QString &executablePath)
{
    QString text = QStringLiteral("[Desktop Entry]\n"
                                  "Type=Application\n"
                                  "Name=Vontrel\n"
                                  "Comment=Screenshot and selection translator in the tray\n"
                                  "Exec=%1\n"
                                  "Icon=" VONTREL_APP_ID "\n"
                                  "Terminal=false\n"
                                  "X-GNOME-Autostart-enabled=true\n")
                       .arg(execValueFor(executablePath));
    return text.toUtf8();
}

QString XdgAutoStartBackend::programOfExec(const QString &execValue)
{
    const QString exec = unescapeValue(execValue).trimmed();
    QString program;
    if (exec.startsWith(u'"')) {
        int i = 1;
        for (; i < exec.size() && exec[i] != u'"'; ++i) {
            if (exec[i] == u'\\' && i + 1 < exec.size())
                ++i;
            program += exec[i];
        }
        if (i >= exec.size())
            return QString(); // no closing quote
    } else {
        program = exec.section(QRegularExpression(QStringLiteral("\\s")), 0, 0);
    }
    program.replace(QStringLiteral("%%"), QStringLiteral("%"));
    return program;
}

bool XdgAutoStartBackend::isEnabled() const
{
    return startsThisExecutable(entryPath()) || startsThisExecutable(legacyEntryPath());
}

bool XdgAutoStartBackend::startsThisExecutable(const QString &path) const
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly | QIODevice::Text))
        return false;
    bool inMainGroup = false;
    QString program;
    bool disabled = false;
    const QStringList lines = QString::fromUtf8(file.readAll()).split(u'\n');
    for (QString line : lines) {
        line = line.trimmed();
        if (line.startsWith(u'[')) {
            inMainGroup = line == QLatin1String("[Desktop Entry]");
            continue;
        }
        if (!inMainGroup || line.startsWith(u'#'))
            continue;
        const qsizetype eq = line.indexOf(u'=');
        if (eq <= 0)
            continue;
        const QString key = line.left(eq).trimmed();
        const QString value = line.mid(eq + 1).trimmed();
        if (key == QLatin1String("Exec"))
            program = programOfExec(value);
        // Desktops honour both switches; an entry switched off by the user does not start anything.
        else if (key == QLatin1String("Hidden") && value == QLatin1String("true"))
            disabled = true;
        else if (key == QLatin1String("X-GNOME-Autostart-enabled") && value == QLatin1String("false"))
            disabled = true;
    }
    return !disabled && !program.isEmpty() && normalizedPath(program) == normalizedPath(m_executablePath);
}

bool XdgAutoStartBackend::enable()
{
    if (!QDir().mkpath(m_autostartDir)) {
        qCWarning(lcPlatform).noquote() << "XdgAutoStartBackend: cannot create" << m_autostartDir;
        return false;
    }
    // Written to a temporary file and renamed, so a failure never leaves half an entry behind.
    QSaveFile file(entryPath());
    if (!file.open(QIODevice::WriteOnly) || file.write(entryText(m_executablePath)) < 0 || !file.commit()) {
        qCWarning(lcPlatform).noquote()
            << "XdgAutoStartBackend: cannot write" << entryPath() << ":" << file.errorString();
        return false;
    }
    qCInfo(lcPlatform).noquote() << "XdgAutoStartBackend: autostart entry written:" << entryPath();
    // Left in place, the old entry would start a second copy at login.
    return removeEntry(legacyEntryPath());
}

bool XdgAutoStartBackend::disable()
{
    const bool legacyRemoved = removeEntry(legacyEntryPath());
    return removeEntry(entryPath()) && legacyRemoved;
}

bool XdgAutoStartBackend::removeEntry(const QString &path)
{
    if (!QFileInfo::exists(path))
        return true;
    if (!QFile::remove(path)) {
        qCWarning(lcPlatform).noquote() << "XdgAutoStartBackend: cannot remove" << path;
        return false;
    }
    qCInfo(lcPlatform).noquote() << "XdgAutoStartBackend: autostart entry removed:" << path;
    return true;
}
