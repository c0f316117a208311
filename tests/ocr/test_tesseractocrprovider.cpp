#include "ocr/OcrWorker.h"
#include "ocr/OcrWorkerResult.h"
#include "platform/linux/TesseractOcrProvider.h"

#include "TestEnv.h"
#include "TextImage.h"

#include <QFile>
#include <QRandomGenerator>
#include <QRegularExpression>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>
#include <QThreadPool>

namespace {

// Runs one recognition the way a session does: the text, or "error: " and the message.
QString runWorker(IOcrProvider *provider, const QImage &image)
{
    OcrWorkerResult result;
    QSignalSpy finished(&result, &OcrWorkerResult::finished);
    QSignalSpy failed(&result, &OcrWorkerResult::error);
    QThreadPool::globalInstance()->start(new OcrWorker(image, provider, &result), 0);
    if (!QTest::qWaitFor([&] { return finished.count() + failed.count() > 0; }, 60000))
        return QStringLiteral("error: no outcome");
    return finished.isEmpty() ? QStringLiteral("error: ") + failed.first().first().toString()
                              : finished.first().first().toString();
}

} // namespace

class TestTesseractOcrProvider : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase()
    {
        m_provider = std::make_unique<TesseractOcrProvider>();
        if (m_provider->languages() != QLatin1String("chi_sim+eng"))
            QSKIP("needs the Simplified Chinese and English data (tesseract-ocr-chi-sim, tesseract-ocr-eng)");
    }

    // The images and what they read as are listed in data/recognised.txt.
    void readsLinesInOrder_data()
    {
        QTest::addColumn<QString>("file");
        QTest::addColumn<QString>("expected");
        QFile list(dataDir() + QStringLiteral("recognised.txt"));
        QVERIFY(list.open(QIODevice::ReadOnly | QIODevice::Text));
        for (const QString &line : QString::fromUtf8(list.readAll()).split(QLatin1Char('\n'))) {
            if (line.isEmpty() || line.startsWith(QLatin1Char('#')))
                continue;
            QString expected = line.section(QLatin1Char('\t'), 1);
            const QString file = line.section(QLatin1Char('\t'), 0, 0);
            QTest::newRow(qPrintable(file))
                << file << expected.replace(QLatin1String("\\n"), QLatin1String("\n"));
        }
    }

    void readsLinesInOrder()
    {
        QFETCH(QString, file);
        QFETCH(QString, expected);
        const QImage image(dataDir() + file);
        QVERIFY(!image.isNull());
        QCOMPARE(runWorker(m_provider.get(), image), expected);
    }

    // Stretches the engine reads with near-zero confidence are read again on their own.
    void readsDoubtfulStretchesAgain()
    {
        const auto read = [this](const char *name) {
            const QImage capture(dataDir() + QLatin1String(name));
            return capture.isNull() ? QStringList()
                                    : runWorker(m_provider.get(), capture).split(QLatin1Char('\n'));
        };
        // A row of the dark Hotkeys page as Qt draws it: a Chinese label, a key field, and a grey description
        // below. Read as one page, the description came out as Latin nonsense after the field's English text.
        QStringList lines = read("hotkey-row-dark-zh-CN.png");
        QCOMPARE(lines.size(), 2);
        QVERIFY2(lines[0].contains(QStringLiteral("Meta+Shift+2")), qPrintable(lines[0]));
        QVERIFY2(lines[1].startsWith(QStringLiteral("翻译选中文本")), qPrintable(lines[1]));
        QVERIFY2(!lines[1].contains(QRegularExpression(QStringLiteral("[A-Za-z]"))), qPrintable(lines[1]));
        // A doubtful word whose box reaches over the confident words after it: read again alone, they came
        // out twice ("查看源代码源代码").
        lines = read("mixed-lines-light.png");
        QCOMPARE(lines.size(), 4);
        QCOMPARE(lines[3], QStringLiteral("在 GitHub 上查看源代码"));
    }

    void givesUpOnTooComplexRegion()
    {
        // A wall of small random letters keeps the engine busy far longer than the short limit set here.
        QRandomGenerator random(7);
        QStringList wall;
        for (int line = 0; line < 40; ++line) {
            QString text;
            for (int i = 0; i < 90; ++i)
                text += i % 6 == 5 ? QLatin1Char(' ') : QChar(u'a' + random.bounded(26));
            wall << text;
        }
        const QImage image = TextImage::render(wall, 11);
        m_provider->setTimeLimit(50);
        const QString outcome = runWorker(m_provider.get(), image);
        m_provider->setTimeLimit(TesseractOcrProvider::kDefaultTimeLimitMs);
        QVERIFY2(outcome.startsWith(QStringLiteral("error: The region is too complex")), qPrintable(outcome));
        // The engine is left ready for the next region.
        QCOMPARE(runWorker(m_provider.get(), TextImage::render({QStringLiteral("Preferences")}, 16)),
                 QStringLiteral("Preferences"));
    }

    void reportsMissingLanguageData()
    {
        QTemporaryDir dataDir; // empty
        for (const QString &languages : {QString(), QStringLiteral("xyz")}) {
            TesseractOcrProvider provider(languages, dataDir.path());
            QVERIFY(!provider.isAvailable());
            QCOMPARE(runWorker(&provider, TextImage::render({QStringLiteral("Preferences")}, 16)),
                     QStringLiteral("error: OCR not available on this system"));
        }
    }

private:
    static QString dataDir() { return TestEnv::sourceDir() + QStringLiteral("/tests/ocr/data/"); }

    std::unique_ptr<TesseractOcrProvider> m_provider;
};

QTEST_MAIN(TestTesseractOcrProvider)
#include "test_tesseractocrprovider.moc"
