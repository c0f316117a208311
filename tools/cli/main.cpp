#include "CliCommands.h"

#include <QCoreApplication>
#include <QTextStream>

#include <csignal>
#include <cstdio>

namespace {

void printUsage(QTextStream &out)
{
    out << "Usage: vontrel-cli <command> [options]\n"
           "\n"
           "Commands:\n"
           "  translate [TEXT...]   translate TEXT (or standard input) with the configured AI service\n"
           "  ocr IMAGE...          print the text recognised in each image\n"
           "\n"
           "Run 'vontrel-cli <command> --help' for the options of a command.\n"
           "  --help                show this help\n"
           "  --version             show the version\n";
}

} // namespace

void vontrelCliWriteOut(const QString &text)
{
    const QByteArray bytes = text.toUtf8();
    std::fwrite(bytes.constData(), 1, size_t(bytes.size()), stdout);
    std::fflush(stdout);
}

void vontrelCliWriteError(const QString &message)
{
    QTextStream(stderr) << "vontrel-cli: " << message << '\n';
}

int main(int argc, char *argv[])
{
    std::signal(SIGPIPE, SIG_IGN);
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("Vontrel"));
    QCoreApplication::setOrganizationName(QStringLiteral("Vontrel"));
    QCoreApplication::setApplicationVersion(QStringLiteral(VONTREL_VERSION));

    QStringList arguments = QCoreApplication::arguments().mid(1);
    QTextStream out(stdout);
    QTextStream err(stderr);
    if (arguments.isEmpty()) {
        printUsage(err);
        return 2;
    }
    const QString command = arguments.takeFirst();
    if (command == QLatin1String("--help") || command == QLatin1String("-h")) {
        printUsage(out);
        return 0;
    }
    if (command == QLatin1String("--version")) {
        out << "vontrel-cli " << VONTREL_VERSION << '\n';
        return 0;
    }
    if (command == QLatin1String("translate"))
        return vontrelCliTranslate(arguments);
    if (command == QLatin1String("ocr"))
        return vontrelCliOcr(arguments);
    err << "vontrel-cli: unknown command '" << command << "'\n\n";
    printUsage(err);
    return 2;
}
