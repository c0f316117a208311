#include "i18n/LanguageManager.h"

#include <QtTest>

class TestLanguageManager : public QObject
{
    Q_OBJECT

private slots:
    void appliesNormalisedSetting_data()
    {
        QTest::addColumn<QString>("setting");
        QTest::addColumn<QString>("requested");
        QTest::addColumn<QString>("effective");
        const auto row = [](const char *setting, const char *requested, const char *effective) {
            QTest::newRow(setting) << QString::fromLatin1(setting) << QString::fromLatin1(requested)
                                   << QString::fromLatin1(effective);
        };
        // The process runs with an English (en-GB) system locale, see main() below.
        row("  ZH-tw \t", "zh-CN", "zh-CN");
        row("fr", "fr", "en"); // unsupported: kept as typed
        row("   ", "system", "en");
        row("zh_CN", "zh_CN", "zh-CN"); // the underscore form is no known code but still Chinese
    }

    void appliesNormalisedSetting()
    {
        QFETCH(QString, setting);
        QFETCH(QString, requested);
        QFETCH(QString, effective);
        LanguageManager::instance()->applyLanguage(setting);
        QCOMPARE(LanguageManager::instance()->requestedLanguage(), requested);
        QCOMPARE(LanguageManager::instance()->effectiveLanguage(), effective);
    }

    void systemLanguageRule()
    {
        const auto effective = [](const char *requested, const QStringList &uiLanguages) {
            return LanguageManager::effectiveLanguageFor(QString::fromLatin1(requested), uiLanguages);
        };
        QCOMPARE(effective("system", {"zh-Hant-TW", "en-US"}), QStringLiteral("zh-CN"));
        QCOMPARE(effective("system", {"de-DE", "zh-CN"}), QStringLiteral("en"));
    }

    void chineseInstallsAndEnglishRemovesTheCatalogue()
    {
        const auto title = [] {
            return QCoreApplication::translate("PreferencesWindow", "Preferences");
        };
        LanguageManager::instance()->applyLanguage(QStringLiteral("zh-CN"));
        QVERIFY2(title() != QLatin1String("Preferences"), "the embedded catalogue did not load");
        LanguageManager::instance()->applyLanguage(QStringLiteral("en"));
        QCOMPARE(title(), QStringLiteral("Preferences"));
    }
};

int main(int argc, char *argv[])
{
    // A fixed English system locale, whatever the machine running the tests prefers.
    qputenv("LC_ALL", "en_GB.UTF-8");
    qputenv("LANG", "en_GB.UTF-8");
    qunsetenv("LANGUAGE");
    QCoreApplication app(argc, argv);
    TestLanguageManager test;
    return QTest::qExec(&test, argc, argv);
}

#include "test_languagemanager.moc"
