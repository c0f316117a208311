#include "config/ConfigManager.h"

#include <QDateTime>
#include <QDebug>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>
#include <QJsonParseError>
#include <QLocale>
#include <QSaveFile>
#include <QStandardPaths>

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

// The file holds an API key in plain text, so neither it nor its folder is readable by anyone else.
constexpr QFileDevice::Permissions kPrivateFile = QFileDevice::ReadOwner | QFileDevice::WriteOwner;
constexpr QFileDevice::Permissions kPrivateDir =
    QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner;

QKeySequence keySequenceFromPortableText(const QString &text)
{
    const QKeySequence sequence = QKeySequence::fromString(text, QKeySequence::PortableText);
    for (int i = 0; i < sequence.count(); ++i) {
        if (sequence[i].key() == Qt::Key_unknown)
            return {};
    }
    return sequence;
}

} // namespace

ConfigManager *ConfigManager::instance()
{
    static ConfigManager *manager = new ConfigManager;
    return manager;
}

ConfigManager::ConfigManager(QObject *parent)
    : QObject(parent)
{
    resetToDefaults();
}

void ConfigManager::resetToDefaults()
{
    m_apiUrl = defaultApiUrl();
    m_apiKey.clear();
    m_model = defaultModel();
    m_targetLanguage.clear();
    m_systemPrompt = defaultSystemPrompt();
    m_startAtLogin = false;
    m_pinOverlayByDefault = false;
    m_uiLanguage.clear();
    m_captureHotkey = QKeySequence();
    m_clipboardTextHotkey = QKeySequence();
    m_fileUnparsable = false;
}

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

QString ConfigManager::configFilePath()
{
    const QString dirPath = QStandardPaths::writableLocation(QStandardPaths::AppConfigLocation);
    QDir dir(dirPath);
    if (!dir.exists()) {
        dir.mkpath(QStringLiteral("."));
        QFile::setPermissions(dirPath, kPrivateDir);
    }
    return dirPath + QStringLiteral("/config.json");
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

bool ConfigManager::load()
{
    const QString path = configFilePath();
    QFile file(path);
    if (!file.exists()) {
        qInfo().noquote() << "ConfigManager: Config file does not exist, using defaults";
        return true;
    }
    if (!file.open(QIODevice::ReadOnly)) {
        qWarning().noquote() << "ConfigManager: Failed to open config file:" << path;
        m_fileUnparsable = true;
        return false;
    }
    const QByteArray bytes = file.readAll();
    file.close();

    QJsonParseError parseError;
    const QJsonDocument document = QJsonDocument::fromJson(bytes, &parseError);
    if (parseError.error != QJsonParseError::NoError) {
        qWarning().noquote() << "ConfigManager: Failed to parse config file:" << parseError.errorString();
        m_fileUnparsable = true;
        return false;
    }
    m_fileUnparsable = false;

    // A top-level array, and any section that is not an object, count as empty objects.
    const QJsonObject root = document.object();
    auto readString = [](const QJsonObject &section, const char *key, QString &field) {
        const QString name = QString::fromLatin1(key);
        if (section.contains(name))
            field = section.value(name).toString();
    };
    auto readBool = [](const QJsonObject &section, const char *key, bool &field) {
        const QString name = QString::fromLatin1(key);
        if (section.contains(name))
            field = section.value(name).toBool();
    };
    auto readHotkey = [](const QJsonObject &section, const char *key, QKeySequence &field) {
        const QString name = QString::fromLatin1(key);
        if (section.contains(name))
            field = keySequenceFromPortableText(section.value(name).toString());
    };

    if (root.contains(QLatin1String("ai"))) {
        const QJsonObject ai = root.value(QLatin1String("ai")).toObject();
        readString(ai, "api_url", m_apiUrl);
        readString(ai, "api_key", m_apiKey);
        readString(ai, "model", m_model);
        readString(ai, "target_language", m_targetLanguage);
        readString(ai, "system_prompt", m_systemPrompt);
    }
    if (root.contains(QLatin1String("general"))) {
        const QJsonObject general = root.value(QLatin1String("general")).toObject();
        readBool(general, "start_at_login", m_startAtLogin);
        readBool(general, "pin_overlay_by_default", m_pinOverlayByDefault);
        readString(general, "ui_language", m_uiLanguage);
    }
    if (root.contains(QLatin1String("hotkeys"))) {
        const QJsonObject hotkeys = root.value(QLatin1String("hotkeys")).toObject();
        readHotkey(hotkeys, "capture", m_captureHotkey);
        readHotkey(hotkeys, "clipboard_text", m_clipboardTextHotkey);
    }

    qInfo().noquote() << "ConfigManager: Loaded config from" << path;
    return true;
}

bool ConfigManager::keepUnparsableFile(const QString &path)
{
    if (!QFileInfo::exists(path))
        return true;
    const QString stamp = QDateTime::currentDateTime().toString(QStringLiteral("yyyyMMdd-HHmmss"));
    QString keptPath = path + QStringLiteral(".corrupt-") + stamp;
    for (int n = 1; QFileInfo::exists(keptPath); ++n)
        keptPath = path + QStringLiteral(".corrupt-") + stamp + QLatin1Char('-') + QString::number(n);
    if (!QFile::rename(path, keptPath)) {
        qWarning().noquote() << "ConfigManager: Failed to keep unparsable config file as" << keptPath
                             << "- not overwriting" << path;
        return false;
    }
    qWarning().noquote() << "ConfigManager: Kept unparsable config file as" << keptPath;
    return true;
}

bool ConfigManager::save()
{
    const QString path = configFilePath();

    QJsonObject ai;
    ai.insert(QStringLiteral("api_url"), m_apiUrl);
    ai.insert(QStringLiteral("api_key"), m_apiKey);
    ai.insert(QStringLiteral("model"), m_model);
    ai.insert(QStringLiteral("target_language"), m_targetLanguage);
    ai.insert(QStringLiteral("system_prompt"), m_systemPrompt);

    QJsonObject general;
    general.insert(QStringLiteral("start_at_login"), m_startAtLogin);
    general.insert(QStringLiteral("pin_overlay_by_default"), m_pinOverlayByDefault);
    const QString uiLanguage = m_uiLanguage.trimmed();
    if (!uiLanguage.isEmpty())
        general.insert(QStringLiteral("ui_language"), uiLanguage);

    QJsonObject hotkeys;
    hotkeys.insert(QStringLiteral("capture"), m_captureHotkey.toString(QKeySequence::PortableText));
    hotkeys.insert(QStringLiteral("clipboard_text"),
                   m_clipboardTextHotkey.toString(QKeySequence::PortableText));

    QJsonObject root;
    root.insert(QStringLiteral("ai"), ai);
    root.insert(QStringLiteral("general"), general);
    root.insert(QStringLiteral("hotkeys"), hotkeys);
    const QByteArray bytes = QJsonDocument(root).toJson(QJsonDocument::Indented);

    if (m_fileUnparsable) {
        if (!keepUnparsableFile(path)) {
            qWarning().noquote() << "ConfigManager: Failed to write config file:" << path;
            return false;
        }
        m_fileUnparsable = false;
    }

    // Written beside the target and renamed over it, so a crash or a full disk never leaves half a file.
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly)) {
        qWarning().noquote() << "ConfigManager: Failed to write config file:" << path;
        return false;
    }
    file.setPermissions(kPrivateFile);
    if (file.write(bytes) != bytes.size() || !file.commit()) {
        qWarning().noquote() << "ConfigManager: Failed to write config file:" << path;
        return false;
    }
    qInfo().noquote() << "ConfigManager: Saved config to" << path;
    return true;
}

template<typename T>
void ConfigManager::update(T &field, const T &value)
{
    if (field == value)
        return;
    field = value;
    save();
    emit configChanged();
}

void ConfigManager::setApiUrl(const QString &value)
{
    update(m_apiUrl, value);
}

void ConfigManager::setApiKey(const QString &value)
{
    update(m_apiKey, value);
}

void ConfigManager::setModel(const QString &value)
{
    update(m_model, value);
}

void ConfigManager::setTargetLanguage(const QString &value)
{
    update(m_targetLanguage, value);
}

void ConfigManager::setSystemPrompt(const QString &value)
{
    update(m_systemPrompt, value);
}

void ConfigManager::setStartAtLogin(bool value)
{
    update(m_startAtLogin, value);
}

void ConfigManager::setPinOverlayByDefault(bool value)
{
    update(m_pinOverlayByDefault, value);
}

void ConfigManager::setUiLanguage(const QString &value)
{
    update(m_uiLanguage, value);
}

void ConfigManager::setCaptureHotkey(const QKeySequence &value)
{
    update(m_captureHotkey, value);
}

void ConfigManager::setClipboardTextHotkey(const QKeySequence &value)
{
    update(m_clipboardTextHotkey, value);
}
