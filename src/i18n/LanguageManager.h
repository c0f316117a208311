#pragma once

#include <QObject>
#include <QString>
#include <QStringList>

class QTranslator;

// Turns the interface-language setting into one of the two languages the program speaks ("en" or "zh-CN"),
// installs or removes the Chinese catalogue and announces the result. Widgets follow through
// QEvent::LanguageChange. GUI thread only.
class LanguageManager final : public QObject
{
    Q_OBJECT

public:
    static LanguageManager *instance();

    // The normalised setting last applied; empty before the first applyLanguage().
    QString requestedLanguage() const { return m_requestedLanguage; }
    // The language actually shown: "en" or "zh-CN".
    QString effectiveLanguage() const { return m_effectiveLanguage; }

    // The language a normalised request shows when the system prefers the given languages (first entry
    // first). Pure: no catalogue is consulted.
    static QString effectiveLanguageFor(const QString &requested, const QStringList &systemUiLanguages);

public slots:
    void applyLanguage(const QString &language);

signals:
    void languageChanged(const QString &language);

private:
    explicit LanguageManager(QObject *parent = nullptr);

    static QString normalizeRequestedLanguage(const QString &language);
    static QString effectiveLanguageForRequested(const QString &requested);
    static QString translationsDirPath();
    bool loadTranslatorForLanguage(const QString &language);

    QTranslator *m_translator = nullptr;
    bool m_translatorInstalled = false;
    QString m_requestedLanguage;
    QString m_effectiveLanguage = QStringLiteral("en");
};
