#include "TestEnv.h"
#include "TextImage.h"

#include <QProcess>
#include <QTemporaryDir>
#include <QTest>

namespace {

struct CliRun
{
    int status = -1;
    QString out;
    QString err;
};

CliRun runOcr(const QStringList &arguments)
{
    QProcess process;
    process.start(TestEnv::binaryDir() + QStringLiteral("/tools/cli/vontrel-cli"),
                  QStringList{QStringLiteral("ocr")} + arguments);
    CliRun run;
    if (!process.waitForFinished(120000))
        return run;
    run.status = process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1;
    run.out = QString::fromUtf8(process.readAllStandardOutput());
    run.err = QString::fromUtf8(process.readAllStandardError());
    return run;
}

} // namespace

class TestCliOcr : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void printsTheTextOfOneImage();
    void headsEachOfSeveralImages();
    void reportsUnreadableImagesAndGoesOn();
    void languageOverride_data();
    void languageOverride();
    void rejectsBadUsage_data();
    void rejectsBadUsage();

private:
    QTemporaryDir m_dir;
    QString m_english;
    QString m_chinese;
    QString m_blank;
};

void TestCliOcr::initTestCase()
{
    QVERIFY(m_dir.isValid());
    m_english = m_dir.filePath(QStringLiteral("english.png"));
    m_chinese = m_dir.filePath(QStringLiteral("chinese.png"));
    m_blank = m_dir.filePath(QStringLiteral("blank.png"));
    QVERIFY(TextImage::render({QStringLiteral("Open Recent Files"), QStringLiteral("Check for updates")}, 16)
                .save(m_english));
    QVERIFY(TextImage::render({QStringLiteral("偏好设置")}, 18).save(m_chinese));
    QImage blank(200, 50, QImage::Format_RGB32);
    blank.fill(Qt::white);
    QVERIFY(blank.save(m_blank));
}

void TestCliOcr::printsTheTextOfOneImage()
{
    const CliRun run = runOcr({m_english});
    QCOMPARE(run.status, 0);
    QCOMPARE(run.out, QStringLiteral("Open Recent Files\nCheck for updates\n"));
    QCOMPARE(run.err, QString());
}

void TestCliOcr::headsEachOfSeveralImages()
{
    const CliRun run = runOcr({m_english, m_blank, m_chinese});
    QCOMPARE(run.status, 0);
    QCOMPARE(run.out, QStringLiteral("==> %1 <==\nOpen Recent Files\nCheck for updates\n\n"
                                     "==> %2 <==\n\n"
                                     "==> %3 <==\n偏好设置\n\n")
                          .arg(m_english, m_blank, m_chinese));
}

void TestCliOcr::reportsUnreadableImagesAndGoesOn()
{
    const QString missing = m_dir.filePath(QStringLiteral("missing.png"));
    const QString notAnImage = m_dir.filePath(QStringLiteral("notes.png"));
    QFile file(notAnImage);
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write("these are notes, not pixels");
    file.close();

    const CliRun run = runOcr({missing, m_chinese, notAnImage});
    QCOMPARE(run.status, 1);
    QCOMPARE(run.out, QStringLiteral("==> %1 <==\n偏好设置\n\n").arg(m_chinese));
    QVERIFY2(run.err.contains(missing + QStringLiteral(": cannot read the image")), qPrintable(run.err));
    QVERIFY2(run.err.contains(notAnImage + QStringLiteral(": cannot read the image")), qPrintable(run.err));
}

void TestCliOcr::languageOverride_data()
{
    QTest::addColumn<QString>("languages");
    QTest::addColumn<int>("status");
    QTest::addColumn<QString>("out");
    QTest::addColumn<QString>("err");

    QTest::newRow("English only") << QStringLiteral("eng") << 0
                                  << QStringLiteral("Open Recent Files\nCheck for updates\n") << QString();
    QTest::newRow("no such data")
        << QStringLiteral("xyz") << 1 << QString()
        << QStringLiteral("vontrel-cli: OCR not available on this system (no language data for 'xyz')\n");
}

void TestCliOcr::languageOverride()
{
    QFETCH(QString, languages);
    QFETCH(int, status);
    QFETCH(QString, out);
    QFETCH(QString, err);

    const CliRun run = runOcr({QStringLiteral("--lang"), languages, m_english});
    QCOMPARE(run.status, status);
    QCOMPARE(run.out, out);
    QCOMPARE(run.err, err);
}

void TestCliOcr::rejectsBadUsage_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<QString>("errorPart");

    QTest::newRow("no image") << QStringList() << QStringLiteral("no image given");
    QTest::newRow("unknown option") << QStringList{QStringLiteral("--fast"), QStringLiteral("x.png")}
                                    << QStringLiteral("Unknown option");
    QTest::newRow("empty language") << QStringList{QStringLiteral("--lang="), QStringLiteral("x.png")}
                                    << QStringLiteral("--lang needs a language");
}

void TestCliOcr::rejectsBadUsage()
{
    QFETCH(QStringList, arguments);
    QFETCH(QString, errorPart);
    const CliRun run = runOcr(arguments);
    QCOMPARE(run.status, 2);
    QCOMPARE(run.out, QString());
    QVERIFY2(run.err.contains(errorPart), qPrintable(run.err));
}

QTEST_MAIN(TestCliOcr)
#include "tst_cli_ocr.moc"
