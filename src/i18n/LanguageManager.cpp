#include "i18n/LanguageManager.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QLocale>
#include <QTranslator>

namespace {

const QString kEnglish = QStringLiteral("en");
const QString kChinese = QStringLiteral("zh-CN");
const QString kSystem = QStringLiteral("system");
const QString kCatalogueFile = QStringLiteral("vontrel_zh_CN.qm");
const QString kCatalogueResource = QStringLiteral(":/i18n/vontrel_zh_CN.qm");

} // namespace

LanguageManager::LanguageManager(QObject *parent)
    : QObject(parent)
    , m_translator(new QTranslator(this))
{}

LanguageManager *LanguageManager::instance()
{
    // Deliberately never destroyed: the translator must outlive every widget that may still retranslate.
    static LanguageManager *manager = new LanguageManager;
    return manager;
}

QString LanguageManager::normalizeRequestedLanguage(const QString &language)
{
    const QString trimmed = language.trimmed();
    if (trimmed.isEmpty())
        return kSystem;
    const QString lower = trimmed.toLower();
    if (lower == kSystem)
        return kSystem;
    if (lower == QLatin1String("en") || lower == QLatin1String("en-us") || lower == QLatin1String("en-gb"))
        return kEnglish;
    static const QStringList chinese = {
        QStringLiteral("zh"),    QStringLiteral("zh-cn"),   QStringLiteral("zh-tw"),
        QStringLiteral("zh-hk"), QStringLiteral("zh-hans"), QStringLiteral("zh-hant"),
    };
    // Traditional Chinese lands on the Simplified catalogue too: it is the only Chinese one there is.
    if (chinese.contains(lower))
        return kChinese;
    return trimmed;
}

QString LanguageManager::effectiveLanguageFor(const QString &requested, const QStringList &systemUiLanguages)
{
    if (requested == kSystem) {
        QString tag = systemUiLanguages.value(0);
        tag = tag.replace(QLatin1Char('_'), QLatin1Char('-')).toLower();
        return tag.startsWith(QLatin1String("zh")) ? kChinese : kEnglish;
    }
    if (requested == kChinese)
        return kChinese;
    if (requested == kEnglish)
        return kEnglish;
    return requested.toLower().startsWith(QLatin1String("zh")) ? kChinese : kEnglish;
}

QString LanguageManager::effectiveLanguageForRequested(const QString &requested)
{
    const QLocale system = QLocale::system();
    QStringList languages = system.uiLanguages();
    if (languages.isEmpty())
        languages << system.bcp47Name();
    return effectiveLanguageFor(requested, languages);
}

QString LanguageManager::translationsDirPath()
{
    return QDir(QCoreApplication::applicationDirPath()).absoluteFilePath(QStringLiteral("../Resources/i18n"));
}

bool LanguageManager::loadTranslatorForLanguage(const QString &language)
{
    if (language == kEnglish)
        return true;
    if (language != kChinese)
        return false;
    if (QFile::exists(kCatalogueResource) && m_translator->load(kCatalogueResource))
        return true;
    const QString path = QDir(translationsDirPath()).absoluteFilePath(kCatalogueFile);
    if (QFile::exists(path))
        return m_translator->load(path);
    return false;
}

void LanguageManager::applyLanguage(const QString &language)
{
    const QString normalized = normalizeRequestedLanguage(language);
    const QString effective = effectiveLanguageForRequested(normalized);
    if (normalized == m_requestedLanguage && effective == m_effectiveLanguage)
        return;

    m_requestedLanguage = normalized;
    if (m_translatorInstalled) {
        QCoreApplication::removeTranslator(m_translator);
        m_translatorInstalled = false;
    }
    if (effective == kChinese && loadTranslatorForLanguage(kChinese)) {
        QCoreApplication::installTranslator(m_translator);
        m_translatorInstalled = true;
        m_effectiveLanguage = kChinese;
    } else {
        // A Chinese request whose catalogue cannot be loaded shows English rather than nothing.
        m_effectiveLanguage = kEnglish;
    }
    emit languageChanged(m_effectiveLanguage);
}
