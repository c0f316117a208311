// ConfigManager's defaults: the values a setting has before the user sets it.
#include "config/ConfigManager.h"

#include <QLocale>

namespace {

const char kDefaultSystemPrompt[] =
    "You are a professional translator. Your task is to translate the input text into ${target_language}.\n"
    "\n"
    "Instructions:\n"
    "1. Auto-detect Source Language: Identify the language of the input text automatically.\n"
    "2. Handle Mixed Languages: If the input contains multiple languages, translate all "
    "non-${target_language} "
    "parts into ${target_language}. Keep ${target_language} parts as is.\n"
    "3. Maintain Structure: Preserve paragraphs, lists, and formatting.\n"
    "4. Reformat for Readability:\n"
    "   - Convert chaotic or poorly formatted text into clean paragraphs.\n"
    "   - Use appropriate line breaks and spacing.\n"
    "   - Ensure the output is easy to read and well-organized.\n"
    "5. Output Only Translation: Provide only the translated and reformatted text. Do not add explanations, "
    "notes, or markdown code blocks unless they exist in the original.";

} // namespace

QString ConfigManager::defaultApiUrl()
{
    return QStringLiteral("https://api.openai.com/v1");
}

QString ConfigManager::defaultModel()
{
    return QStringLiteral("gpt-4o-mini");
}

QString ConfigManager::defaultSystemPrompt()
{
    return QString::fromUtf8(kDefaultSystemPrompt);
}

QString ConfigManager::defaultTargetLanguageForSystem()
{
    return defaultTargetLanguageForLocale(QLocale::system());
}

QString ConfigManager::defaultTargetLanguageForLocale(const QLocale &locale)
{
    switch (locale.language()) {
    case QLocale::Chinese:
        return QStringLiteral("Chinese");
    case QLocale::English:
        return QStringLiteral("English");
    case QLocale::French:
        return QStringLiteral("French");
    case QLocale::German:
        return QStringLiteral("German");
    case QLocale::Italian:
        return QStringLiteral("Italian");
    case QLocale::Japanese:
        return QStringLiteral("Japanese");
    case QLocale::Korean:
        return QStringLiteral("Korean");
    case QLocale::Portuguese:
        return QStringLiteral("Portuguese");
    case QLocale::Russian:
        return QStringLiteral("Russian");
    case QLocale::Spanish:
        return QStringLiteral("Spanish");
    default:
        break;
    }

    const QString tag = locale.bcp47Name().replace(QLatin1Char('_'), QLatin1Char('-')).toLower();
    static const std::pair<const char *, const char *> prefixes[] = {
        {"zh", "Chinese"}, {"ja", "Japanese"}, {"ko", "Korean"},  {"fr", "French"},     {"de", "German"},
        {"es", "Spanish"}, {"ru", "Russian"},  {"it", "Italian"}, {"pt", "Portuguese"},
    };
    for (const auto &[prefix, name] : prefixes) {
        if (tag.startsWith(QLatin1String(prefix)))
            return QString::fromLatin1(name);
    }
    return QStringLiteral("English");
}
