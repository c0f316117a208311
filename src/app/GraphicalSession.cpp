#include "app/GraphicalSession.h"

#include <QList>
#include <QLoggingCategory>
#include <QString>

#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

const char kNeedsSession[] = "Vontrel needs a graphical session (X11 or Wayland): ";

struct HeldMessage
{
    QtMsgType type;
    const char *category; // the categories' names are static strings
    QString text;
};

QtMessageHandler g_previousHandler = nullptr;
QList<HeldMessage> g_held;

void printAndExit(const QString &reason)
{
    std::fprintf(stderr, "%s%s\n", kNeedsSession, reason.toLocal8Bit().constData());
    std::fflush(stderr);
    // The half-built QApplication must not be torn down: its destructor expects a platform integration.
    std::_Exit(1);
}

void guardHandler(QtMsgType type, const QMessageLogContext &context, const QString &message)
{
    if (type != QtFatalMsg) {
        g_held.append({type, context.category, message});
        return;
    }
    // The platform plugin's own warning ("could not connect to display :5") says more than the fatal text
    // about plugins that follows it.
    for (const HeldMessage &held : std::as_const(g_held)) {
        if (held.category && std::strncmp(held.category, "qt.qpa", 6) == 0)
            printAndExit(held.text);
    }
    printAndExit(message.section(QLatin1Char('\n'), 0, 0));
}

bool needsDisplay(const QString &platform)
{
    return platform.isEmpty() || platform.contains(QLatin1String("xcb")) ||
           platform.contains(QLatin1String("wayland"));
}

} // namespace

QString vontrelMissingDisplayMessage(int argc, char *argv[])
{
    QString platform = qEnvironmentVariable("QT_QPA_PLATFORM");
    for (int i = 1; i + 1 < argc; ++i) {
        if (std::strcmp(argv[i], "-platform") == 0 || std::strcmp(argv[i], "--platform") == 0)
            platform = QString::fromLocal8Bit(argv[i + 1]);
    }
    if (!needsDisplay(platform) || !qEnvironmentVariableIsEmpty("DISPLAY") ||
        !qEnvironmentVariableIsEmpty("WAYLAND_DISPLAY"))
        return QString();
    return QString::fromLatin1(kNeedsSession) + QStringLiteral("no display found");
}

void vontrelGuardPlatformStart()
{
    g_held.clear();
    g_previousHandler = qInstallMessageHandler(guardHandler);
}

void vontrelEndPlatformStartGuard()
{
    qInstallMessageHandler(g_previousHandler);
    for (const HeldMessage &held : std::as_const(g_held)) {
        const QMessageLogContext context(nullptr, 0, nullptr, held.category);
        if (g_previousHandler)
            g_previousHandler(held.type, context, held.text);
    }
    g_held.clear();
}
