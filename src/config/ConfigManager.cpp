#include "config/ConfigManager.h"

#include "log/LogCategories.h"
#include "platform/SafeFile.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>
#include <QJsonParseError>
#include <QLocale>
#include <QMetaMethod>
#include <QStandardPaths>

namespace {

// The file holds an API key in plain text, so neither it nor its folder is readable by anyone else.
constexpr QFileDevice::Permissions kPrivateFile = QFileDevice::ReadOwner | QFileDevice::WriteOwner;
constexpr QFileDevice::Permissions kPrivateDir =
    QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner;
constexpr QFileDevice::Permissions kOthers = QFileDevice::ReadGroup | QFileDevice::WriteGroup |
                                             QFileDevice::ExeGroup | QFileDevice::ReadOther |
                                             QFileDevice::WriteOther | QFileDevice::ExeOther;
// Far beyond any settings file; a larger one is not read into memory.
constexpr qsizetype kMaxFileBytes = 16 * 1024 * 1024;

QKeySequence keySequenceFromPortableText(const QString &text)
{
    const QKeySequence sequence = QKeySequence::fromString(text, QKeySequence::PortableText);
    for (int i = 0; i < sequence.count(); ++i) {
        if (sequence[i].key() == Qt::Key_unknown)
            return {};
    }
    return sequence;
}

struct KeyPath
{
    const char *section;
    const char *name;
};

// In the order of ConfigManager::Key.
constexpr KeyPath kKeys[] = {
    {"ai", "api_url"},
    {"ai", "api_key"},
    {"ai", "model"},
    {"ai", "target_language"},
    {"ai", "system_prompt"},
    {"general", "start_at_login"},
    {"general", "pin_overlay_by_default"},
    {"general", "ui_language"},
    {"hotkeys", "capture"},
    {"hotkeys", "clipboard_text"},
};

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
    m_dirty.reset();
    m_writeFailureReported = false;
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

bool ConfigManager::load()
{
    m_lastError.clear();
    const QString path = configFilePath();
    QByteArray bytes;
    QString problem;
    switch (vontrelReadRegularFile(path, kMaxFileBytes, &bytes, &problem)) {
    case FileRead::Missing:
        qCInfo(lcConfig).noquote() << "ConfigManager: Config file does not exist, using defaults";
        return true;
    case FileRead::Refused:
        // Something the user put there (a pipe, a device, a folder): never read, blocked on or replaced. This
        // notice says it all; the saves it makes fail are only logged.
        m_lastError = problem;
        m_writeFailureReported = true;
        qCWarning(lcConfig).noquote()
            << "ConfigManager: Failed to open config file:" << path << "-" << problem;
        notify(tr("Vontrel cannot use %1 for its settings (%2), so it started with default settings and will "
                  "not save any.")
                   .arg(path, problem));
        return false;
    case FileRead::Failed:
        m_lastError = problem;
        qCWarning(lcConfig).noquote()
            << "ConfigManager: Failed to open config file:" << path << "-" << problem;
        return false;
    case FileRead::Read:
        break;
    }
    makePrivate(path);

    QJsonParseError parseError;
    const QJsonDocument document = QJsonDocument::fromJson(bytes, &parseError);
    if (parseError.error != QJsonParseError::NoError) {
        m_lastError = parseError.errorString();
        qCWarning(lcConfig).noquote()
            << "ConfigManager: Failed to parse config file:" << parseError.errorString();
        return false;
    }

    // A top-level array, and any section that is not an object, count as empty objects.
    const QJsonObject root = document.object();
    QStringList wrongType;
    for (int key = 0; key < KeyCount; ++key) {
        const QString section = QString::fromLatin1(kKeys[key].section);
        const QString name = QString::fromLatin1(kKeys[key].name);
        const QJsonObject object = root.value(section).toObject();
        if (object.contains(name) && !readValue(Key(key), object.value(name)))
            wrongType << section + QLatin1Char('.') + name;
    }
    m_dirty.reset();

    if (!wrongType.isEmpty()) {
        qCWarning(lcConfig).noquote()
            << "ConfigManager: Ignored values of the wrong type:" << wrongType.join(QStringLiteral(", "));
        notify(
            tr("These settings in %1 have a value Vontrel cannot use and were left empty: %2. The file keeps "
               "them as they are until you set them in Preferences.")
                .arg(path, wrongType.join(QStringLiteral(", "))));
    }
    qCInfo(lcConfig).noquote() << "ConfigManager: Loaded config from" << path;
    return true;
}

bool ConfigManager::readValue(Key key, const QJsonValue &value)
{
    // An unusable value still empties its field (an empty string, false, no hotkey); the caller only learns
    // whether it was usable.
    const auto hotkeyUsable = [&value](const QKeySequence &sequence) {
        return value.isString() && (value.toString().isEmpty() || !sequence.isEmpty());
    };
    switch (key) {
    case ApiUrlKey:
        m_apiUrl = value.toString();
        break;
    case ApiKeyKey:
        m_apiKey = value.toString();
        break;
    case ModelKey:
        m_model = value.toString();
        break;
    case TargetLanguageKey:
        m_targetLanguage = value.toString();
        break;
    case SystemPromptKey:
        m_systemPrompt = value.toString();
        break;
    case UiLanguageKey:
        m_uiLanguage = value.toString();
        break;
    case StartAtLoginKey:
        m_startAtLogin = value.toBool();
        return value.isBool();
    case PinOverlayKey:
        m_pinOverlayByDefault = value.toBool();
        return value.isBool();
    case CaptureHotkeyKey:
        m_captureHotkey = keySequenceFromPortableText(value.toString());
        return hotkeyUsable(m_captureHotkey);
    case ClipboardTextHotkeyKey:
        m_clipboardTextHotkey = keySequenceFromPortableText(value.toString());
        return hotkeyUsable(m_clipboardTextHotkey);
    case KeyCount:
        return false;
    }
    return value.isString();
}

QJsonValue ConfigManager::fileValue(Key key) const
{
    switch (key) {
    case ApiUrlKey:
        return m_apiUrl;
    case ApiKeyKey:
        return m_apiKey;
    case ModelKey:
        return m_model;
    case TargetLanguageKey:
        return m_targetLanguage;
    case SystemPromptKey:
        return m_systemPrompt;
    case StartAtLoginKey:
        return m_startAtLogin;
    case PinOverlayKey:
        return m_pinOverlayByDefault;
    case UiLanguageKey:
        return m_uiLanguage.trimmed().isEmpty() ? QJsonValue(QJsonValue::Undefined)
                                                : QJsonValue(m_uiLanguage.trimmed());
    case CaptureHotkeyKey:
        return m_captureHotkey.toString(QKeySequence::PortableText);
    case ClipboardTextHotkeyKey:
        return m_clipboardTextHotkey.toString(QKeySequence::PortableText);
    case KeyCount:
        break;
    }
    return QJsonValue(QJsonValue::Undefined);
}

void ConfigManager::makePrivate(const QString &path)
{
    // A file from an older version or a hand copy may be readable by others, and it holds the API key.
    const QFileDevice::Permissions permissions = QFile::permissions(path);
    if (!(permissions & kOthers))
        return;
    if (QFile::setPermissions(path, permissions & ~kOthers))
        qCInfo(lcConfig).noquote() << "ConfigManager: Made config file readable by its owner alone:" << path;
    else
        qCWarning(lcConfig).noquote() << "ConfigManager: Could not make config file private:" << path;
}

void ConfigManager::notify(const QString &text)
{
    m_pendingNotices.append(text);
    scheduleNotices();
}

void ConfigManager::scheduleNotices()
{
    // From the event loop, and only once someone listens: start-up loads the file before it can connect.
    static const QMetaMethod signal = QMetaMethod::fromSignal(&ConfigManager::userNotice);
    if (m_noticesScheduled || m_pendingNotices.isEmpty() || !isSignalConnected(signal))
        return;
    m_noticesScheduled = true;
    QMetaObject::invokeMethod(this, &ConfigManager::deliverNotices, Qt::QueuedConnection);
}

void ConfigManager::deliverNotices()
{
    m_noticesScheduled = false;
    static const QMetaMethod signal = QMetaMethod::fromSignal(&ConfigManager::userNotice);
    const QString title = tr("Vontrel Settings");
    while (!m_pendingNotices.isEmpty() && isSignalConnected(signal))
        emit userNotice(title, m_pendingNotices.takeFirst());
}

void ConfigManager::connectNotify(const QMetaMethod &signal)
{
    if (signal == QMetaMethod::fromSignal(&ConfigManager::userNotice))
        scheduleNotices();
}

QString ConfigManager::keepUnreadableFile(const QString &path)
{
    const QString stamp = QDateTime::currentDateTime().toString(QStringLiteral("yyyyMMdd-HHmmss"));
    QString keptPath = path + QStringLiteral(".corrupt-") + stamp;
    for (int n = 1; QFileInfo::exists(keptPath); ++n)
        keptPath = path + QStringLiteral(".corrupt-") + stamp + QLatin1Char('-') + QString::number(n);
    if (!QFile::rename(path, keptPath)) {
        qCWarning(lcConfig).noquote() << "ConfigManager: Failed to keep unparsable config file as" << keptPath
                                      << "- not overwriting" << path;
        return QString();
    }
    // The kept copy may hold the API key; a rename keeps whatever mode the user's file had.
    QFile::setPermissions(keptPath, kPrivateFile);
    qCWarning(lcConfig).noquote() << "ConfigManager: Kept unparsable config file as" << keptPath;
    notify(tr("Vontrel could not read its settings file and started with default settings. The file was kept "
              "as:\n%1")
               .arg(keptPath));
    return keptPath;
}

void ConfigManager::reportWriteFailure(const QString &path, const QString &reason)
{
    qCWarning(lcConfig).noquote() << "ConfigManager: Failed to write config file:" << path << reason;
    if (m_writeFailureReported)
        return;
    m_writeFailureReported = true;
    notify(tr("Vontrel could not save your settings to %1 (%2). Your changes stay in effect until Vontrel "
              "quits.")
               .arg(path, reason));
}

bool ConfigManager::save()
{
    const QString path = configFilePath();

    // Start from what is on disk now: another instance, vontrel-cli or a text editor may have changed it
    // since it was loaded, and keys this version does not know are the user's too.
    QJsonObject root;
    QByteArray current;
    QString problem;
    switch (vontrelReadRegularFile(path, kMaxFileBytes, &current, &problem)) {
    case FileRead::Missing:
        break;
    case FileRead::Refused:
        // Not a settings file, and not Vontrel's to replace.
        reportWriteFailure(path, problem);
        return false;
    case FileRead::Failed:
    case FileRead::Read:
        if (const QJsonDocument document = QJsonDocument::fromJson(current); document.isObject()) {
            root = document.object();
        } else if (keepUnreadableFile(path).isEmpty()) {
            reportWriteFailure(path, tr("the unreadable file could not be kept aside"));
            return false;
        }
        break;
    }

    for (int key = 0; key < KeyCount; ++key) {
        const QString sectionName = QString::fromLatin1(kKeys[key].section);
        const QString name = QString::fromLatin1(kKeys[key].name);
        const QJsonValue sectionValue = root.value(sectionName);
        // A section of the wrong type is the user's to fix; it is replaced only to store what they set.
        if (!m_dirty.test(key) && !sectionValue.isObject() && !sectionValue.isUndefined())
            continue;
        QJsonObject section = sectionValue.toObject();
        const QJsonValue onDisk = section.value(name);
        // A blank language means "none chosen", which the file says by leaving the key out.
        const bool blankLanguage =
            key == UiLanguageKey && onDisk.isString() && onDisk.toString().trimmed().isEmpty();
        if (!m_dirty.test(key) && !onDisk.isUndefined() && !blankLanguage)
            continue;
        const QJsonValue value = fileValue(Key(key));
        if (value.isUndefined())
            section.remove(name);
        else
            section.insert(name, value);
        root.insert(sectionName, section);
    }
    const QByteArray bytes = QJsonDocument(root).toJson(QJsonDocument::Indented);

    // Written beside the target and renamed over it once all of it is on the disk, so a crash or a full disk
    // never leaves half a file, or an empty one.
    if (!vontrelWriteFileWhole(path, bytes, kPrivateFile, &problem)) {
        reportWriteFailure(path, problem);
        return false;
    }
    m_dirty.reset();
    m_writeFailureReported = false;
    qCInfo(lcConfig).noquote() << "ConfigManager: Saved config to" << path;
    return true;
}

template<typename T>
void ConfigManager::update(Key key, T &field, const T &value)
{
    if (field == value)
        return;
    field = value;
    m_dirty.set(key);
    save();
    emit configChanged();
}

void ConfigManager::setApiUrl(const QString &value)
{
    update(ApiUrlKey, m_apiUrl, value);
}

void ConfigManager::setApiKey(const QString &value)
{
    update(ApiKeyKey, m_apiKey, value);
}

void ConfigManager::setModel(const QString &value)
{
    update(ModelKey, m_model, value);
}

void ConfigManager::setTargetLanguage(const QString &value)
{
    update(TargetLanguageKey, m_targetLanguage, value);
}

void ConfigManager::setSystemPrompt(const QString &value)
{
    update(SystemPromptKey, m_systemPrompt, value);
}

void ConfigManager::setStartAtLogin(bool value)
{
    update(StartAtLoginKey, m_startAtLogin, value);
}

void ConfigManager::setPinOverlayByDefault(bool value)
{
    update(PinOverlayKey, m_pinOverlayByDefault, value);
}

void ConfigManager::setUiLanguage(const QString &value)
{
    update(UiLanguageKey, m_uiLanguage, value);
}

void ConfigManager::setCaptureHotkey(const QKeySequence &value)
{
    update(CaptureHotkeyKey, m_captureHotkey, value);
}

void ConfigManager::setClipboardTextHotkey(const QKeySequence &value)
{
    update(ClipboardTextHotkeyKey, m_clipboardTextHotkey, value);
}
