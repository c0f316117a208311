#pragma once

#include <QKeySequence>
#include <QLocale>
#include <QObject>
#include <QString>

// The one settings store: every setting lives here, is read once from config.json at start-up and the whole
// file is written again whenever a setter changes a value. GUI thread only.
class ConfigManager final : public QObject
{
    Q_OBJECT

public:
    static ConfigManager *instance();

    // Full path of config.json; creates its directory (readable by the user alone) when missing.
    static QString configFilePath();
    // English name of the target language that suits the system locale; "English" when none does.
    static QString defaultTargetLanguageForSystem();
    // The same rule for a given locale.
    static QString defaultTargetLanguageForLocale(const QLocale &locale);
    static QString defaultApiUrl();
    static QString defaultModel();
    static QString defaultSystemPrompt();

    // Reads the file into the fields. False when it exists but cannot be read or parsed (fields unchanged).
    bool load();
    // Writes every field. False when the file could not be written (nothing on disk changed).
    bool save();

    QString apiUrl() const { return m_apiUrl; }
    QString apiKey() const { return m_apiKey; }
    QString model() const { return m_model; }
    QString targetLanguage() const { return m_targetLanguage; }
    QString systemPrompt() const { return m_systemPrompt; }
    bool startAtLogin() const { return m_startAtLogin; }
    bool pinOverlayByDefault() const { return m_pinOverlayByDefault; }
    QString uiLanguage() const { return m_uiLanguage; }
    QKeySequence captureHotkey() const { return m_captureHotkey; }
    QKeySequence clipboardTextHotkey() const { return m_clipboardTextHotkey; }

    void setApiUrl(const QString &value);
    void setApiKey(const QString &value);
    void setModel(const QString &value);
    void setTargetLanguage(const QString &value);
    void setSystemPrompt(const QString &value);
    void setStartAtLogin(bool value);
    void setPinOverlayByDefault(bool value);
    void setUiLanguage(const QString &value);
    void setCaptureHotkey(const QKeySequence &value);
    void setClipboardTextHotkey(const QKeySequence &value);

    // Puts every field back to its initial value without touching the file (for tests and the CLI).
    void resetToDefaults();

signals:
    void configChanged();

private:
    explicit ConfigManager(QObject *parent = nullptr);

    template<typename T>
    void update(T &field, const T &value);
    bool keepUnparsableFile(const QString &path);

    QString m_apiUrl;
    QString m_apiKey;
    QString m_model;
    QString m_targetLanguage;
    QString m_systemPrompt;
    bool m_startAtLogin = false;
    bool m_pinOverlayByDefault = false;
    QString m_uiLanguage;
    QKeySequence m_captureHotkey;
    QKeySequence m_clipboardTextHotkey;

    // Set when load() met a file it could not parse: that file is moved aside before the first save.
    bool m_fileUnparsable = false;
};
