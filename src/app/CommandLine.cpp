#include "app/CommandLine.h"

#include <QFileInfo>

namespace {

// Options QGuiApplication and QApplication take out of the arguments themselves; Qt accepts them with one
// dash or two.
const char *const kQtOptionsWithValue[] = {
    "platform",    "platformpluginpath", "platformtheme", "plugin",  "qwindowgeometry",
    "qwindowicon", "qwindowtitle",       "session",       "display", "geometry",
    "style",       "stylesheet",         "name",          "title",   "visual"};
const char *const kQtFlags[] = {"reverse", "nograb", "dograb", "sync", "widgetcount", "testability"};

QString helpText(const QString &program)
{
    return QStringLiteral(
               "Usage: %1 [action]\n"
               "Vontrel sits in the system tray: a hotkey lets you drag a rectangle over the screen, the "
               "text in\n"
               "it is recognised and translated or explained by an AI service; a second hotkey does the same "
               "for\n"
               "the selected text.\n"
               "\n"
               "Actions (for desktop shortcuts; each is handed to the running Vontrel, which is started "
               "when\n"
               "none runs):\n"
               "  --capture      start a text screenshot: drag a rectangle over the text to translate\n"
               "  --selection    translate the selected text, or the clipboard's when nothing is selected\n"
               "\n"
               "Options:\n"
               "  -h, --help     show this help and exit\n"
               "  -v, --version  show the version and exit\n"
               "\n"
               "Without an action, Vontrel starts in the tray, or opens the Preferences of the one "
               "running.\n")
        .arg(program);
}

CommandLine failure(const QString &program, const QString &message)
{
    CommandLine result;
    result.exitNow = true;
    result.exitCode = 2;
    result.error = QStringLiteral("%1: %2\nTry '%1 --help' for more information.\n").arg(program, message);
    return result;
}

template<typename List>
bool isOneOf(const QString &name, const List &list)
{
    for (const char *candidate : list) {
        if (name == QLatin1String(candidate))
            return true;
    }
    return false;
}

} // namespace

CommandLine CommandLine::parse(const QStringList &arguments)
{
    const QString program =
        arguments.isEmpty() ? QStringLiteral("vontrel") : QFileInfo(arguments.first()).fileName();
    CommandLine result;
    for (qsizetype i = 1; i < arguments.size(); ++i) {
        const QString &argument = arguments.at(i);
        if (argument == QLatin1String("-h") || argument == QLatin1String("--help")) {
            CommandLine help;
            help.exitNow = true;
            help.output = helpText(program);
            return help;
        }
        if (argument == QLatin1String("-v") || argument == QLatin1String("--version")) {
            CommandLine version;
            version.exitNow = true;
            version.output = QStringLiteral("Vontrel %1\n").arg(QStringLiteral(VONTREL_VERSION));
            return version;
        }
        CommandLineAction action = CommandLineAction::None;
        if (argument == QLatin1String("--capture"))
            action = CommandLineAction::Capture;
        else if (argument == QLatin1String("--selection"))
            action = CommandLineAction::Selection;
        if (action != CommandLineAction::None) {
            if (result.action != CommandLineAction::None && result.action != action)
                return failure(program, QStringLiteral("--capture and --selection cannot be combined"));
            result.action = action;
            continue;
        }
        if (!argument.startsWith(QLatin1Char('-')) || argument.size() < 2)
            return failure(program, QStringLiteral("unexpected argument '%1'").arg(argument));

        const QString name = argument.mid(argument.startsWith(QLatin1String("--")) ? 2 : 1);
        if (isOneOf(name, kQtFlags))
            continue;
        if (isOneOf(name, kQtOptionsWithValue)) {
            if (i + 1 >= arguments.size())
                return failure(program, QStringLiteral("option '%1' needs a value").arg(argument));
            ++i;
            continue;
        }
        return failure(program, QStringLiteral("unknown option '%1'").arg(argument));
    }
    return result;
}

CommandLine CommandLine::parse(int argc, char *argv[])
{
    QStringList arguments;
    arguments.reserve(argc);
    for (int i = 0; i < argc; ++i)
        arguments.append(QString::fromLocal8Bit(argv[i]));
    return parse(arguments);
}
