#include "TestEnv.h"
#include "TextImage.h"

#include <QDir>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>

class TestCliOcr : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase()
    {
        QVERIFY(m_dir.isValid());
        QVERIFY(TextImage::render({"Open Recent Files", "Check for updates"}, 16)
                    .save(m_dir.filePath("english.png")));
        QVERIFY(TextImage::render({"偏好设置"}, 18).save(m_dir.filePath("chinese.png")));
        QVERIFY(TextImage::render({}, 30).save(m_dir.filePath("blank.png")));
        QVERIFY(TestEnv::writeFile(m_dir.filePath("notes.png"), "these are notes, not pixels"));
        QVERIFY(QDir(m_dir.path()).mkdir("shots.png"));
        // A header that says 30000 x 30000 pixels: readers learn the size before they would allocate it.
        QVERIFY(TestEnv::writeFile(m_dir.filePath("huge.pgm"), "P5\n30000 30000\n255\n"));
    }

    void recognisesEachImage_data()
    {
        QTest::addColumn<QStringList>("arguments"); // file names are in the test's directory
        QTest::addColumn<int>("status");
        QTest::addColumn<QString>("out"); // "%1" stands for the directory, here and in errParts
        QTest::addColumn<QStringList>("errParts");

        const QString english = "Open Recent Files\nCheck for updates\n";
        QTest::newRow("one image") << QStringList{"english.png"} << 0 << english << QStringList();
        QTest::newRow("several images, headed")
            << QStringList{"english.png", "blank.png", "chinese.png"} << 0
            << "==> %1/english.png <==\n" + english +
                   "\n==> %1/blank.png <==\n\n==> %1/chinese.png <==\n偏好设置\n\n"
            << QStringList();
        QTest::newRow("unreadable images reported by their reason, the rest done")
            << QStringList{"missing.png", "chinese.png", "notes.png", "shots.png", "huge.pgm"} << 1
            << "==> %1/chinese.png <==\n偏好设置\n\n"
            << QStringList{"%1/missing.png: no such file", "%1/notes.png: cannot read the image",
                           "%1/shots.png: is a directory",
                           "%1/huge.pgm: the image is too large (30000 x 30000 pixels"};
        QTest::newRow("--lang without data")
            << QStringList{"--lang", "xyz", "english.png"} << 1 << QString()
            << QStringList{"vontrel-cli: OCR not available on this system (no language data for 'xyz')\n"};
    }

    void recognisesEachImage()
    {
        QFETCH(QStringList, arguments);
        QFETCH(int, status);
        QFETCH(QString, out);
        QFETCH(QStringList, errParts);

        for (QString &argument : arguments) {
            if (argument.contains(QLatin1Char('.')))
                argument = m_dir.filePath(argument);
        }
        QProcess cli;
        cli.start(TestEnv::binaryDir() + "/tools/cli/vontrel-cli", QStringList{"ocr"} + arguments);
        QVERIFY(cli.waitForFinished(120000));
        QCOMPARE(cli.exitStatus(), QProcess::NormalExit);
        const QString err = QString::fromUtf8(cli.readAllStandardError());
        QCOMPARE(QString::fromUtf8(cli.readAllStandardOutput()), out.replace("%1", m_dir.path()));
        QCOMPARE(cli.exitCode(), status);
        for (QString &part : errParts)
            QVERIFY2(err.contains(part.replace("%1", m_dir.path())), qPrintable(err));
        QVERIFY2(!errParts.isEmpty() || err.isEmpty(), qPrintable(err));
    }

private:
    QTemporaryDir m_dir;
};

QTEST_MAIN(TestCliOcr)
#include "test_cli_ocr.moc"
