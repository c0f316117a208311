#include "TestEnv.h"

#include <QtTest>

namespace {

struct Entry
{
    QString context, source, translation, type; // type: "", "unfinished", "obsolete" or "vanished"
    QString key() const { return context + QStringLiteral(": \"") + source + QLatin1Char('"'); }
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
    static const QRegularExpression pattern(QStringLiteral("%(\\d+|n)"));
    QSet<QString> found;
    for (const QRegularExpressionMatch &match : pattern.globalMatch(text))
        found.insert(match.captured());
    return found;
}

} // namespace

// Keeps the Chinese catalogue complete and in step with the sources and with what is compiled in.
class TestCatalogue : public QObject
{
    Q_OBJECT
    const QString m_tsPath = TestEnv::sourceDir() + QStringLiteral("/src/i18n/translations/vontrel_zh_CN.ts");

private slots:
    void everyTextIsTranslatedAndNoneIsStale()
    {
        // Extract the texts of the whole source tree into a copy, exactly as the refresh command does.
        QTemporaryDir dir;
        const QString copy = dir.filePath(QStringLiteral("vontrel_zh_CN.ts"));
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
                problems << QStringLiteral("untranslated: ") + entry.key();
        }
        for (const Entry &entry : readCatalogue(m_tsPath))
            if (!current.contains(entry.key()))
                problems << QStringLiteral("stale: ") + entry.key();
        QVERIFY2(problems.isEmpty(),
                 qPrintable(QStringLiteral("Refresh with\n  lupdate -locations none -no-obsolete "
                                           "src -ts src/i18n/translations/vontrel_zh_CN.ts\n"
                                           "and translate:\n  ") +
                            problems.join(QStringLiteral("\n  "))));
    }

    void translationsAreConsistentAndCompiledIn()
    {
        QTranslator compiled;
        QVERIFY(compiled.load(QStringLiteral(":/i18n/vontrel_zh_CN.qm")));
        QStringList problems;
        const QList<Entry> committed = readCatalogue(m_tsPath);
        QVERIFY(!committed.isEmpty());
        for (const Entry &entry : committed) {
            if (entry.translation.isEmpty() || !entry.type.isEmpty())
                continue; // reported as untranslated above
            if (placeholders(entry.source) != placeholders(entry.translation) ||
                entry.source.count(QLatin1Char('<')) != entry.translation.count(QLatin1Char('<')) ||
                entry.source.startsWith(QLatin1Char('\n')) != entry.translation.startsWith(QLatin1Char('\n')))
                problems << QStringLiteral("placeholders, markup or leading line break differ: ") +
                                entry.key();
            if (compiled.translate(entry.context.toUtf8().constData(), entry.source.toUtf8().constData()) !=
                entry.translation)
                problems << QStringLiteral("compiled catalogue out of date: ") + entry.key();
        }
        QVERIFY2(problems.isEmpty(), qPrintable(problems.join(QLatin1Char('\n'))));
    }
};

QTEST_GUILESS_MAIN(TestCatalogue)
#include "test_catalogue.moc"
