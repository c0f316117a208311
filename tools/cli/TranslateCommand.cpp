#include "CliCommands.h"

#include "ai/ActionService.h"
#include "ai/InputLimit.h"
#include "ai/OpenAIClient.h"
#include "ai/ProviderErrors.h"
#include "config/ConfigManager.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QEventLoop>
#include <QFile>
#include <QLoggingCategory>
#include <QTextStream>

#include <cerrno>
#include <cstdio>

namespace {

const char kUsage[] =
    "Usage: vontrel-cli translate [OPTIONS] [TEXT...]\n"
    "\n"
    "Sends TEXT (the arguments joined by blanks, or standard input when there are none or the only one is "
    "\"-\")\n"
    "to the AI service of your Vontrel settings and writes the answer to standard output as it arrives.\n"
    "\n"
    "Options:\n"
    "  --action ACTION     translate (default), summarize or cleanup\n"
    "  --blocking          wait for the whole answer instead of streaming it\n"
    "  --api-url URL       base URL of the service, e.g. https://api.openai.com/v1\n"
    "  --api-key KEY       API key\n"
    "  --model NAME        model name\n"
    "  --target LANGUAGE   language to translate into, e.g. German\n"
    "  --prompt-file FILE  translation instructions from FILE (\"${target_language}\" is replaced)\n"
    "  --timeout SECONDS   give up when the service sends nothing for this long (default 30)\n"
    "  --verbose           print diagnostics on standard error\n"
    "  -h, --help          show this help\n"
    "  -v, --version       show the version\n"
    "\n"
    "At most %2 characters of the text are sent; a longer text is cut, with a note on standard error.\n"
    "\n"
    "The options apply to this run only; the settings file is never changed:\n"
    "  %1\n"
    "\n"
    "Exit status: 0 when the answer is complete, 1 when the request failed, 2 on a usage error.\n";

int fail(const QString &message, int status = kCliExitFailed)
{
    vontrelCliWriteError(message);
    return status;
}

bool parseAction(const QString &name, ActionService::ActionType *type)
{
    const QString lower = name.toLower();
    if (lower == QLatin1String("translate"))
        *type = ActionService::Translate;
    else if (lower == QLatin1String("summarize"))
        *type = ActionService::Summarize;
    else if (lower == QLatin1String("cleanup"))
        *type = ActionService::Cleanup;
    else
        return false;
    return true;
}

// Standard input to its end, keeping only the part the input limit lets through, so that a huge pipe costs no
// memory. *length receives the whole input's length in characters (UTF-16 units, as the limit counts them).
bool readStandardInput(QString *text, qsizetype *length)
{
    // UTF-8 takes at most 3 bytes for a UTF-16 unit: this many bytes always hold more than the limit.
    constexpr qsizetype kKeptBytes = 3 * kVontrelMaxInputChars + 4;
    QByteArray kept;
    qsizetype restUnits = 0;
    char buffer[64 * 1024];
    for (;;) {
        const size_t read = std::fread(buffer, 1, sizeof buffer, stdin);
        if (read == 0)
            break;
        const size_t keep = size_t(qBound<qsizetype>(0, kKeptBytes - kept.size(), qsizetype(read)));
        kept.append(buffer, qsizetype(keep));
        // A lead byte starts a character; one of four bytes becomes two UTF-16 units.
        for (size_t i = keep; i < read; ++i) {
            const auto byte = static_cast<unsigned char>(buffer[i]);
            restUnits += (byte & 0xC0) != 0x80 ? (byte >= 0xF0 ? 2 : 1) : 0;
        }
    }
    if (std::ferror(stdin))
        return false;
    *text = QString::fromUtf8(kept);
    *length = text->size() + restUnits;
    return true;
}

int runStreaming(OpenAIClient &client, const QString &prompt)
{
    QEventLoop loop;
    bool wroteSomething = false;
    QObject::connect(&client, &OpenAIClient::streamingChunk, &loop, [&wroteSomething](const QString &chunk) {
        vontrelCliWriteOut(chunk);
        wroteSomething = true;
    });
    QObject::connect(&client, &OpenAIClient::streamingFinished, &loop, [&loop] {
        vontrelCliWriteOut(QStringLiteral("\n"));
        loop.exit(0);
    });
    QObject::connect(&client, &OpenAIClient::streamingError, &loop,
                     [&loop, &wroteSomething](const QString &error) {
                         // End the partial answer's line, so the error does not run into it on a terminal.
                         if (wroteSomething)
                             vontrelCliWriteOut(QStringLiteral("\n"));
                         loop.exit(fail(error));
                     });
    // An unconfigured client reports before completeStreaming returns: queue the start so the loop sees it.
    QMetaObject::invokeMethod(
        &loop, [&client, prompt] { client.completeStreaming(prompt); }, Qt::QueuedConnection);
    return loop.exec();
}

} // namespace

int vontrelCliTranslate(const QStringList &arguments)
{
    QCommandLineParser parser;
    parser.setSingleDashWordOptionMode(QCommandLineParser::ParseAsLongOptions);
    const QCommandLineOption actionOption(QStringLiteral("action"), QString(), QStringLiteral("ACTION"));
    const QCommandLineOption blockingOption(QStringLiteral("blocking"));
    const QCommandLineOption urlOption(QStringLiteral("api-url"), QString(), QStringLiteral("URL"));
    const QCommandLineOption keyOption(QStringLiteral("api-key"), QString(), QStringLiteral("KEY"));
    const QCommandLineOption modelOption(QStringLiteral("model"), QString(), QStringLiteral("NAME"));
    const QCommandLineOption targetOption(QStringLiteral("target"), QString(), QStringLiteral("LANGUAGE"));
    const QCommandLineOption promptOption(QStringLiteral("prompt-file"), QString(), QStringLiteral("FILE"));
    const QCommandLineOption timeoutOption(QStringLiteral("timeout"), QString(), QStringLiteral("SECONDS"));
    const QCommandLineOption verboseOption(QStringLiteral("verbose"));
    const QCommandLineOption helpOption(QStringList{QStringLiteral("h"), QStringLiteral("help")});
    const QCommandLineOption versionOption(QStringList{QStringLiteral("v"), QStringLiteral("version")});
    parser.addOptions({actionOption, blockingOption, urlOption, keyOption, modelOption, targetOption,
                       promptOption, timeoutOption, verboseOption, helpOption, versionOption});

    if (!parser.parse(QStringList{QStringLiteral("vontrel-cli translate")} + arguments))
        return fail(parser.errorText() +
                        QStringLiteral("\nRun 'vontrel-cli translate --help' for the options."),
                    kCliExitUsage);
    if (parser.isSet(helpOption)) {
        vontrelCliWriteOut(
            QString::fromUtf8(kUsage).arg(ConfigManager::configFilePath()).arg(kVontrelMaxInputChars));
        return 0;
    }
    if (parser.isSet(versionOption)) {
        vontrelCliWriteOut(QStringLiteral("vontrel-cli %1\n").arg(QCoreApplication::applicationVersion()));
        return 0;
    }
    if (!parser.isSet(verboseOption)) {
        // The engine's diagnostics are for the log; a terminal user sees only the answer or the error.
        QLoggingCategory::setFilterRules(QStringLiteral("*.debug=false\n*.info=false\n*.warning=false"));
    }

    ActionService::ActionType type = ActionService::Translate;
    if (parser.isSet(actionOption) && !parseAction(parser.value(actionOption), &type)) {
        return fail(QStringLiteral("unknown action '%1' (use translate, summarize or cleanup)")
                        .arg(parser.value(actionOption)),
                    kCliExitUsage);
    }

    int timeoutMs = OpenAIClient::Limits().idleMs;
    if (parser.isSet(timeoutOption)) {
        bool ok = false;
        const double seconds = parser.value(timeoutOption).toDouble(&ok);
        if (!ok || seconds <= 0 || seconds > 24 * 3600)
            return fail(QStringLiteral("--timeout needs a number of seconds, e.g. 30"), kCliExitUsage);
        timeoutMs = qMax(1, qRound(seconds * 1000));
    }

    ConfigManager *config = ConfigManager::instance();
    const QString configPath = ConfigManager::configFilePath();
    if (!config->load()) {
        QTextStream(stderr) << "vontrel-cli: cannot read the settings in " << configPath << " ("
                            << config->lastError() << "); using the defaults and the options given\n";
    }
    // Read only: the settings are overridden in memory for this run and never written back.
    const QString apiUrl = parser.isSet(urlOption) ? parser.value(urlOption) : config->apiUrl();
    const QString apiKey = parser.isSet(keyOption) ? parser.value(keyOption) : config->apiKey();
    const QString model = parser.isSet(modelOption) ? parser.value(modelOption) : config->model();
    QString target = parser.isSet(targetOption) ? parser.value(targetOption) : config->targetLanguage();
    if (target.isEmpty())
        target = ConfigManager::defaultTargetLanguageForSystem();

    QString promptOverride;
    if (parser.isSet(promptOption)) {
        QFile file(parser.value(promptOption));
        if (!file.open(QIODevice::ReadOnly))
            return fail(QStringLiteral("cannot read %1: %2").arg(file.fileName(), file.errorString()),
                        kCliExitUsage);
        promptOverride = QString::fromUtf8(file.readAll());
        // An editor's final line feed is not part of the instructions.
        while (promptOverride.endsWith(QLatin1Char('\n')) || promptOverride.endsWith(QLatin1Char('\r')))
            promptOverride.chop(1);
    }

    if (apiUrl.isEmpty() || apiKey.isEmpty()) {
        return fail(
            QCoreApplication::translate("SessionController", "AI not configured. Please set API key.") +
            QStringLiteral("\nSet \"api_url\" and \"api_key\" in %1, or pass --api-url and --api-key.")
                .arg(configPath));
    }

    const QStringList positional = parser.positionalArguments();
    QString text;
    qsizetype length = 0;
    if (positional.isEmpty() || positional == QStringList{QStringLiteral("-")}) {
        if (!readStandardInput(&text, &length))
            return fail(QStringLiteral("cannot read standard input: %1").arg(qt_error_string(errno)));
    } else {
        text = positional.join(QLatin1Char(' '));
        length = text.size();
    }
    if (text.trimmed().isEmpty())
        return fail(QCoreApplication::translate("ActionService", "Input text is empty"));
    const BoundedInput input = vontrelBoundInput(text);
    if (input.text.size() < length) {
        vontrelCliWriteError(
            QStringLiteral("the text has %1 characters; only the first %2 are sent (the limit is "
                           "%3 per request)")
                .arg(length)
                .arg(input.text.size())
                .arg(kVontrelMaxInputChars));
    }
    text = input.text;

    if (const QString warning = ProviderErrors::clearTextWarning(apiUrl); !warning.isEmpty())
        vontrelCliWriteError(QStringLiteral("warning: ") + warning);
    OpenAIClient client(apiUrl, apiKey, model);
    OpenAIClient::Limits limits = client.limits();
    limits.idleMs = timeoutMs;
    client.setLimits(limits);
    client.setTimeout(timeoutMs);
    ActionService service(&client);
    service.setTargetLanguage(target);
    if (parser.isSet(promptOption))
        service.setSystemPromptOverride(promptOverride);

    if (parser.isSet(blockingOption)) {
        const QString answer = service.executeAction(type, text);
        if (answer.isEmpty())
            return fail(service.lastError());
        vontrelCliWriteOut(answer + QLatin1Char('\n'));
        return 0;
    }
    return runStreaming(client, service.buildPrompt(type, text));
}
