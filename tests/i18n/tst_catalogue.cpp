#include "TestEnv.h"

#include <QDir>
#include <QFile>
#include <QHash>
#include <QProcess>
#include <QRegularExpression>
#include <QSet>
#include <QTemporaryDir>
#include <QTest>
#include <QTranslator>
#include <QXmlStreamReader>

namespace {

struct Entry
{
    QString context;
    QString source;
    QString translation;
    QString type; // "", "unfinished", "obsolete" or "vanished"
};

QList<Entry> readCatalogue(const QString &path, QString *error)
{
    QList<Entry> entries;
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        *error = file.errorString();
        return entries;
    }
    QXmlStreamReader xml(&file);
    QString context;
    Entry entry;
    while (!xml.atEnd()) {
        xml.readNext();
        if (!xml.isStartElement())
            continue;
        if (xml.name() == QLatin1String("name")) {
            context = xml.readElementText();
        } else if (xml.name() == QLatin1String("message")) {
            entry = Entry{context, {}, {}, {}};
        } else if (xml.name() == QLatin1String("source")) {
            entry.source = xml.readElementText();
        } else if (xml.name() == QLatin1String("translation")) {
            entry.type = xml.attributes().value(QLatin1String("type")).toString();
            entry.translation = xml.readElementText(QXmlStreamReader::IncludeChildElements);
            entries.append(entry);
        }
    }
    if (xml.hasError())
        *error = xml.errorString();
    return entries;
}

QSet<QString> placeholders(const QString &text)
{
    static const QRegularExpression pattern(QStringLiteral("%(\\d+|n)"));
    QSet<QString> found;
    for (const QRegularExpressionMatch &match : pattern.globalMatch(text))
        found.insert(match.captured());
    return found;
}

QString describe(const Entry &entry)
{
    return entry.context + QStringLiteral(": \"") + entry.source + QLatin1Char('"');
}

} // namespace

// Keeps the Chinese catalogue complete: every text the program marks for translation has a finished
// translation, nothing in the catalogue is left over from texts that are gone, and what is compiled into the
// program is the catalogue as it stands.
class TestCatalogue : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void everyTextIsTranslatedAndNoneIsStale();
    void translationsKeepPlaceholdersAndMarkup();
    void statusTextsReadTheSameEverywhere();
    void embeddedCatalogueMatchesTheSource();

private:
    QString m_tsPath;
    QList<Entry> m_committed;
};

void TestCatalogue::initTestCase()
{
    m_tsPath = TestEnv::sourceDir() + QStringLiteral("/src/i18n/translations/vontrel_zh_CN.ts");
    QString error;
    m_committed = readCatalogue(m_tsPath, &error);
    QVERIFY2(error.isEmpty(), qPrintable(error));
    QVERIFY(!m_committed.isEmpty());
}

void TestCatalogue::everyTextIsTranslatedAndNoneIsStale()
{
    // Extract the texts of the whole source tree into a copy, exactly as the refresh command does.
    QTemporaryDir dir;
    QVERIFY(dir.isValid());
    const QString copy = dir.filePath(QStringLiteral("vontrel_zh_CN.ts"));
    QVERIFY(QFile::copy(m_tsPath, copy));
    QFile::setPermissions(copy, QFile::ReadOwner | QFile::WriteOwner);
    QProcess lupdate;
    lupdate.setWorkingDirectory(TestEnv::sourceDir());
    lupdate.start(QStringLiteral(VONTREL_LUPDATE),
                  {QStringLiteral("-locations"), QStringLiteral("none"), QStringLiteral("-no-obsolete"),
                   QStringLiteral("src"), QStringLiteral("-ts"), copy});
    QVERIFY2(lupdate.waitForFinished(120000), "lupdate did not finish");
    QVERIFY2(lupdate.exitCode() == 0, lupdate.readAllStandardError().constData());

    QString error;
    const QList<Entry> extracted = readCatalogue(copy, &error);
    QVERIFY2(error.isEmpty(), qPrintable(error));

    QStringList problems;
    QSet<QString> current;
    for (const Entry &entry : extracted) {
        current.insert(entry.context + QChar(0) + entry.source);
        if (!entry.type.isEmpty() || entry.translation.isEmpty())
            problems << QStringLiteral("untranslated: ") + describe(entry);
    }
    for (const Entry &entry : std::as_const(m_committed)) {
        if (!current.contains(entry.context + QChar(0) + entry.source))
            problems << QStringLiteral("stale (no longer in the sources): ") + describe(entry);
        else if (!entry.type.isEmpty())
            problems << QStringLiteral("marked ") + entry.type + QStringLiteral(": ") + describe(entry);
    }
    QVERIFY2(problems.isEmpty(),
             qPrintable(
                 QStringLiteral("Refresh the catalogue with\n  lupdate -locations none -no-obsolete src -ts "
                                "src/i18n/translations/vontrel_zh_CN.ts\nand translate:\n  ") +
                 problems.join(QStringLiteral("\n  "))));
}

void TestCatalogue::translationsKeepPlaceholdersAndMarkup()
{
    QStringList problems;
    for (const Entry &entry : std::as_const(m_committed)) {
        if (entry.translation.isEmpty())
            continue;
        if (placeholders(entry.source) != placeholders(entry.translation))
            problems << QStringLiteral("placeholders differ: ") + describe(entry);
        if (entry.source.count(QLatin1Char('<')) != entry.translation.count(QLatin1Char('<')))
            problems << QStringLiteral("markup differs: ") + describe(entry);
        if (entry.source.startsWith(QLatin1Char('\n')) != entry.translation.startsWith(QLatin1Char('\n')))
            problems << QStringLiteral("leading line break differs: ") + describe(entry);
    }
    QVERIFY2(problems.isEmpty(), qPrintable(problems.join(QLatin1Char('\n'))));
}

void TestCatalogue::statusTextsReadTheSameEverywhere()
{
    for (const QString &status :
         {QStringLiteral("Recognizing text..."), QStringLiteral("No text recognized")}) {
        QSet<QString> translations;
        int contexts = 0;
        for (const Entry &entry : std::as_const(m_committed)) {
            if (entry.source == status) {
                translations.insert(entry.translation);
                ++contexts;
            }
        }
        QVERIFY2(contexts >= 1, qPrintable(status));
        QVERIFY2(translations.size() == 1, qPrintable(status + QStringLiteral(" is translated differently")));
    }
}

void TestCatalogue::embeddedCatalogueMatchesTheSource()
{
    QTranslator translator;
    QVERIFY(translator.load(QStringLiteral(":/i18n/vontrel_zh_CN.qm")));
    QStringList problems;
    for (const Entry &entry : std::as_const(m_committed)) {
        if (!entry.type.isEmpty())
            continue;
        const QString compiled =
            translator.translate(entry.context.toUtf8().constData(), entry.source.toUtf8().constData());
        if (compiled != entry.translation)
            problems << describe(entry);
    }
    QVERIFY2(problems.isEmpty(), qPrintable(QStringLiteral("compiled catalogue out of date:\n") +
                                            problems.join(QLatin1Char('\n'))));
}

QTEST_GUILESS_MAIN(TestCatalogue)
#include "tst_catalogue.moc"
