#include "i18n/LanguageManager.h"

#include <QCoreApplication>
#include <QSignalSpy>
#include <QTest>

namespace {

// Counts the LanguageChange events the application receives when a catalogue comes or goes.
class LanguageChangeCounter : public QObject
{
public:
    int count = 0;

protected:
    bool eventFilter(QObject *watched, QEvent *event) override
    {
        if (watched == QCoreApplication::instance() && event->type() == QEvent::LanguageChange)
            ++count;
        return false;
    }
};

} // namespace

class TestLanguageManager : public QObject
{
    Q_OBJECT

private slots:
    void appliesNormalisedSetting_data();
    void appliesNormalisedSetting();
    void systemLanguageRule_data();
    void systemLanguageRule();
    void sameValueTwiceEmitsOnce();
    void chineseInstallsAndEnglishRemovesTheCatalogue();
};

void TestLanguageManager::appliesNormalisedSetting_data()
{
    QTest::addColumn<QString>("setting");
    QTest::addColumn<QString>("requested");
    QTest::addColumn<QString>("effective");

    // The process runs with an English (en-GB) system locale, see main() below.
    QTest::newRow("traditional code with blanks") << QStringLiteral("  ZH-tw \t") << "zh-CN"
                                                  << "zh-CN";
    QTest::newRow("unsupported kept as typed") << QStringLiteral("fr") << "fr"
                                               << "en";
    QTest::newRow("empty follows system") << QStringLiteral("   ") << "system"
                                          << "en";
    QTest::newRow("system any case") << QStringLiteral("SYSTEM") << "system"
                                     << "en";
    QTest::newRow("british english") << QStringLiteral("En-GB") << "en"
                                     << "en";
    QTest::newRow("hans") << QStringLiteral("zh-Hans") << "zh-CN"
                          << "zh-CN";
    QTest::newRow("hong kong") << QStringLiteral("zh-HK") << "zh-CN"
                               << "zh-CN";
    QTest::newRow("underscore form is not a known code") << QStringLiteral("zh_CN") << "zh_CN"
                                                         << "zh-CN";
    QTest::newRow("other chinese region") << QStringLiteral("Zh-SG") << "Zh-SG"
                                          << "zh-CN";
    QTest::newRow("english region not listed") << QStringLiteral("en-AU") << "en-AU"
                                               << "en";
}

void TestLanguageManager::appliesNormalisedSetting()
{
    QFETCH(QString, setting);
    QFETCH(QString, requested);
    QFETCH(QString, effective);

    LanguageManager *manager = LanguageManager::instance();
    manager->applyLanguage(setting);
    QCOMPARE(manager->requestedLanguage(), requested);
    QCOMPARE(manager->effectiveLanguage(), effective);
}

void TestLanguageManager::systemLanguageRule_data()
{
    QTest::addColumn<QString>("requested");
    QTest::addColumn<QStringList>("uiLanguages");
    QTest::addColumn<QString>("effective");

    QTest::newRow("traditional first") << "system" << QStringList{"zh-Hant-TW", "en-US"} << "zh-CN";
    QTest::newRow("simplified first") << "system" << QStringList{"zh-CN"} << "zh-CN";
    QTest::newRow("underscore tag") << "system" << QStringList{"zh_TW"} << "zh-CN";
    QTest::newRow("british first") << "system" << QStringList{"en-GB", "zh-CN"} << "en";
    QTest::newRow("german first") << "system" << QStringList{"de-DE", "zh-CN"} << "en";
    QTest::newRow("nothing known") << "system" << QStringList{} << "en";
    QTest::newRow("explicit english on chinese system") << "en" << QStringList{"zh-CN"} << "en";
    QTest::newRow("explicit chinese on english system") << "zh-CN" << QStringList{"en-US"} << "zh-CN";
    QTest::newRow("loose chinese") << "ZH_cn" << QStringList{"en-US"} << "zh-CN";
    QTest::newRow("loose other") << "fr" << QStringList{"zh-CN"} << "en";
}

void TestLanguageManager::systemLanguageRule()
{
    QFETCH(QString, requested);
    QFETCH(QStringList, uiLanguages);
    QFETCH(QString, effective);
    QCOMPARE(LanguageManager::effectiveLanguageFor(requested, uiLanguages), effective);
}

void TestLanguageManager::sameValueTwiceEmitsOnce()
{
    LanguageManager *manager = LanguageManager::instance();
    manager->applyLanguage(QStringLiteral("zh-CN"));
    QSignalSpy spy(manager, &LanguageManager::languageChanged);

    manager->applyLanguage(QStringLiteral("en"));
    manager->applyLanguage(QStringLiteral("en"));
    manager->applyLanguage(QStringLiteral(" EN-us "));
    QCOMPARE(spy.count(), 1);
    QCOMPARE(spy.at(0).at(0).toString(), QStringLiteral("en"));

    // The requested language changes although English stays on screen: still announced.
    manager->applyLanguage(QStringLiteral("system"));
    QCOMPARE(spy.count(), 2);
    QCOMPARE(spy.at(1).at(0).toString(), QStringLiteral("en"));
    manager->applyLanguage(QString());
    QCOMPARE(spy.count(), 2);
}

void TestLanguageManager::chineseInstallsAndEnglishRemovesTheCatalogue()
{
    LanguageManager *manager = LanguageManager::instance();
    manager->applyLanguage(QStringLiteral("en"));
    LanguageChangeCounter counter;
    QCoreApplication::instance()->installEventFilter(&counter);

    const QString english = QStringLiteral("Preferences");
    manager->applyLanguage(QStringLiteral("zh-CN"));
    QCOMPARE(manager->effectiveLanguage(), QStringLiteral("zh-CN"));
    const QString chinese = QCoreApplication::translate("PreferencesWindow", "Preferences");
    QVERIFY2(chinese != english, "the embedded catalogue did not load");
    QTRY_VERIFY_WITH_TIMEOUT(counter.count >= 1, 10000);

    // A loose Chinese code shows the same catalogue without reloading or announcing anything new on screen.
    const int changes = counter.count;
    manager->applyLanguage(QStringLiteral("zh-TW"));
    QCOMPARE(QCoreApplication::translate("PreferencesWindow", "Preferences"), chinese);

    manager->applyLanguage(QStringLiteral("en"));
    QCOMPARE(QCoreApplication::translate("PreferencesWindow", "Preferences"), english);
    QTRY_VERIFY_WITH_TIMEOUT(counter.count > changes, 10000);
    QCoreApplication::instance()->removeEventFilter(&counter);
}

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

#include "tst_languagemanager.moc"
