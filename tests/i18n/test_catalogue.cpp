#include "TestEnv.h"
#include "i18n/LanguageManager.h"

#include <QtTest>

namespace {

struct Entry
{
    QString context, source, translation, type; // type: "", "unfinished", "obsolete" or "vanished"
    QString key() const { return context + ": \"" + source + QLatin1Char('"'); }
};

QList<Entry> readCatalogue(const QString &path)
{
    QList<Entry> entries;
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return entries;
    QXmlStreamReader xml(&file);
    Entry entry;
    while (!xml.atEnd()) {
        if (xml.readNext() != QXmlStreamReader::StartElement)
            continue;
        if (xml.name() == QLatin1String("name"))
            entry.context = xml.readElementText();
        else if (xml.name() == QLatin1String("source"))
            entry.source = xml.readElementText();
        else if (xml.name() == QLatin1String("translation")) {
            entry.type = xml.attributes().value(QLatin1String("type")).toString();
            entry.translation = xml.readElementText(QXmlStreamReader::IncludeChildElements);
            entries.append(entry);
        }
    }
    return xml.hasError() ? QList<Entry>() : entries;
}

QSet<QString> placeholders(const QString &text)
{
    static const QRegularExpression pattern("%(\\d+|n)");
    QSet<QString> found;
    for (const QRegularExpressionMatch &match : pattern.globalMatch(text))
        found.insert(match.captured());
    return found;
}

} // namespace

// Keeps the Chinese catalogue complete and in step with the sources and with what is compiled in, and checks
// the language manager that chooses and loads it.
class TestCatalogue : public QObject
{
    Q_OBJECT
    const QString m_tsPath = TestEnv::sourceDir() + "/src/i18n/translations/vontrel_zh_CN.ts";

private slots:
    void everyTextIsTranslatedAndNoneIsStale()
    {
        // Extract the texts of the whole source tree into a copy, exactly as the refresh command does.
        QTemporaryDir dir;
        const QString copy = dir.filePath("vontrel_zh_CN.ts");
        QVERIFY(QFile::copy(m_tsPath, copy));
        QFile::setPermissions(copy, QFile::ReadOwner | QFile::WriteOwner);
        QProcess lupdate;
        lupdate.setWorkingDirectory(TestEnv::sourceDir());
        lupdate.start(QStringLiteral(VONTREL_LUPDATE),
                      {"-locations", "none", "-no-obsolete", "src", "-ts", copy});
        QVERIFY2(lupdate.waitForFinished(120000) && lupdate.exitCode() == 0,
                 lupdate.readAllStandardError().constData());

        QStringList problems;
        QSet<QString> current;
        const QList<Entry> extracted = readCatalogue(copy);
        QVERIFY(!extracted.isEmpty());
        for (const Entry &entry : extracted) {
            current.insert(entry.key());
            if (!entry.type.isEmpty() || entry.translation.isEmpty())
                problems << "untranslated: " + entry.key();
        }
        for (const Entry &entry : readCatalogue(m_tsPath))
            if (!current.contains(entry.key()))
                problems << "stale: " + entry.key();
        QVERIFY2(problems.isEmpty(),
                 qPrintable(QStringLiteral("Refresh with\n  lupdate -locations none -no-obsolete "
                                           "src -ts src/i18n/translations/vontrel_zh_CN.ts\n"
                                           "and translate:\n  ") +
                            problems.join("\n  ")));
    }

    void translationsAreConsistentAndCompiledIn()
    {
        QTranslator compiled;
        QVERIFY(compiled.load(":/i18n/vontrel_zh_CN.qm"));
        QStringList problems;
        const QList<Entry> committed = readCatalogue(m_tsPath);
        QVERIFY(!committed.isEmpty());
        for (const Entry &entry : committed) {
            if (entry.translation.isEmpty() || !entry.type.isEmpty())
                continue; // reported as untranslated above
            if (placeholders(entry.source) != placeholders(entry.translation) ||
                entry.source.count(QLatin1Char('<')) != entry.translation.count(QLatin1Char('<')) ||
                entry.source.startsWith(QLatin1Char('\n')) != entry.translation.startsWith(QLatin1Char('\n')))
                problems << "placeholders, markup or leading line break differ: " + entry.key();
            if (compiled.translate(entry.context.toUtf8().constData(), entry.source.toUtf8().constData()) !=
                entry.translation)
                problems << "compiled catalogue out of date: " + entry.key();
        }
        QVERIFY2(problems.isEmpty(), qPrintable(problems.join(QLatin1Char('\n'))));
    }

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
        LanguageManager::instance()->applyLanguage(setting);
        QTEST(LanguageManager::instance()->requestedLanguage(), "requested");
        QTEST(LanguageManager::instance()->effectiveLanguage(), "effective");
    }

    void systemLanguageRule()
    {
        const auto effective = [](const char *requested, const QStringList &uiLanguages) {
            return LanguageManager::effectiveLanguageFor(QString::fromLatin1(requested), uiLanguages);
        };
        QCOMPARE(effective("system", {"zh-Hant-TW", "en-US"}), "zh-CN");
        QCOMPARE(effective("system", {"de-DE", "zh-CN"}), "en");
    }

    void chineseInstallsAndEnglishRemovesTheCatalogue()
    {
        const auto title = [] {
            return QCoreApplication::translate("PreferencesWindow", "Preferences");
        };
        LanguageManager::instance()->applyLanguage("zh-CN");
        QVERIFY2(title() != QLatin1String("Preferences"), "the embedded catalogue did not load");
        LanguageManager::instance()->applyLanguage("en");
        QCOMPARE(title(), "Preferences");
    }
};

int main(int argc, char *argv[])
{
    // A fixed English system locale, whatever the machine running the tests prefers.
    qputenv("LC_ALL", "en_GB.UTF-8");
    qputenv("LANG", "en_GB.UTF-8");
    qunsetenv("LANGUAGE");
    QCoreApplication app(argc, argv);
    TestCatalogue test;
    return QTest::qExec(&test, argc, argv);
}

#include "test_catalogue.moc"
