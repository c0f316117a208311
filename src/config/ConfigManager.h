#pragma once

#include <QJsonValue>
#include <QKeySequence>
#include <QLocale>
#include <QObject>
#include <QString>
#include <QStringList>

#include <bitset>

// The one settings store: every setting lives here and is read once from config.json at start-up. A setter
// writes back only the keys changed through this object, over what the file holds at that moment, so that a
// hand edit, vontrel-cli or unknown keys survive. GUI thread only.
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

    // Reads the file into the fields and makes it readable by its owner alone. False when it exists but
    // cannot be read or parsed, or is not a regular file (fields unchanged; lastError() says why). A value of
    // the wrong type empties its field and is reported through userNotice().
    bool load();
    // Why the last load() failed; empty after a successful one.
    QString lastError() const { return m_lastError; }
    // Writes the changed fields, and those the file lacks, over the file's current contents, replacing the
    // file only once all of it is written. A file that cannot be read or parsed is first kept beside it;
    // anything but a regular file at the path is left alone. False when nothing could be written: the old
    // file stays, the values stay in memory and are written by the next successful save, and the user is told
    // once.
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
    // Something about the file the user has to know: a kept unreadable file, ignored values, a failed write.
    // Each problem is reported once, from the event loop, and held back until something is connected, so
    // that what start-up finds before it listens is not lost.
    void userNotice(const QString &title, const QString &text);

public:
    // Emits the notices held back, now, when something is connected (start-up: before its own first box).
    void deliverNotices();

protected:
    void connectNotify(const QMetaMethod &signal) override;

private:
    enum Key {
        ApiUrlKey,
        ApiKeyKey,
        ModelKey,
        TargetLanguageKey,
        SystemPromptKey,
        StartAtLoginKey,
        PinOverlayKey,
        UiLanguageKey,
        CaptureHotkeyKey,
        ClipboardTextHotkeyKey,
        KeyCount
    };

    explicit ConfigManager(QObject *parent = nullptr);

    template<typename T>
    void update(Key key, T &field, const T &value);
    // The field as it is written to the file; undefined when the key is left out.
    QJsonValue fileValue(Key key) const;
    bool readValue(Key key, const QJsonValue &value);
    QString keepUnreadableFile(const QString &path);
    void reportWriteFailure(const QString &path, const QString &reason);
    void notify(const QString &text);
    void scheduleNotices();
    static void makePrivate(const QString &path);

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

    // Keys set through a setter and not yet written; the file's own value of every other key is kept.
    std::bitset<KeyCount> m_dirty;
    // A failed write is reported once until a write succeeds again.
    bool m_writeFailureReported = false;
    QString m_lastError;
    QStringList m_pendingNotices;
    bool m_noticesScheduled = false;
};
