#include "ocr/OcrWorker.h"
#include "ocr/OcrWorkerResult.h"
#include "platform/linux/TesseractOcrProvider.h"

#include "TextImage.h"

#include <QFile>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>
#include <QThreadPool>
#include <QtConcurrent/QtConcurrentMap>

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
    void initTestCase();
    void loadsTheModelsOnFirstUse();
    void readsLinesInOrder_data();
    void readsLinesInOrder();
    void reportsMissingLanguageData_data();
    void reportsMissingLanguageData();
    void recognisesOverlappingRequests();

private:
    std::unique_ptr<TesseractOcrProvider> m_provider;
};

void TestTesseractOcrProvider::initTestCase()
{
    m_provider = std::make_unique<TesseractOcrProvider>();
    if (m_provider->languages() != QLatin1String("chi_sim+eng"))
        QSKIP("needs the Simplified Chinese and English data (tesseract-ocr-chi-sim, tesseract-ocr-eng)");
}

void TestTesseractOcrProvider::loadsTheModelsOnFirstUse()
{
    // About 60 MB of models: a user who never captures a region should not pay for them.
    QVERIFY(m_provider->isAvailable());
    QVERIFY(!m_provider->isLoaded());
    QCOMPARE(m_provider->recognize(TextImage::render({QStringLiteral("Preferences")}, 16)),
             QStringLiteral("Preferences"));
    QVERIFY(m_provider->isLoaded());
}

void TestTesseractOcrProvider::readsLinesInOrder_data()
{
    QTest::addColumn<QImage>("image");
    QTest::addColumn<QString>("expected");

    const auto row = [](const char *name, const QStringList &lines, int pixelSize, qreal ratio, bool dark) {
        const QColor text = dark ? QColor(0xe0, 0xe0, 0xe0) : QColor(0x1d, 0x1d, 0x1f);
        const QColor background = dark ? QColor(0x1e, 0x1e, 0x1e) : QColor(Qt::white);
        QTest::newRow(name) << TextImage::render(lines, pixelSize, text, background, ratio)
                            << lines.join(QLatin1Char('\n'));
    };
    const QStringList english = {QStringLiteral("Open Recent Files"),
                                 QStringLiteral("Show hidden files and folders"),
                                 QStringLiteral("Check for updates automatically")};
    row("English", english, 16, 1.0, false);
    row("English, small, dark theme", english, 12, 1.0, true);
    row("English, small, ratio 2", english, 12, 2.0, false);
    row("Chinese", {QStringLiteral("打开最近使用的文件"), QStringLiteral("请选择要识别的屏幕区域")}, 18, 1.0,
        false);
    row("Chinese, dark theme, ratio 2", {QStringLiteral("偏好设置"), QStringLiteral("启用深色模式")}, 14, 2.0,
        true);
    row("single word", {QStringLiteral("Undo")}, 14, 1.0, false);
    // No text is a finished, empty result, never an error.
    row("no text, light", {}, 30, 1.0, false);
    row("no text, dark", {}, 30, 1.0, true);
    QImage tiny(6, 6, QImage::Format_RGB32);
    tiny.fill(Qt::gray);
    QTest::newRow("no text, 6 x 6") << tiny << QString();
}

void TestTesseractOcrProvider::readsLinesInOrder()
{
    QFETCH(QImage, image);
    QFETCH(QString, expected);
    QCOMPARE(runWorker(m_provider.get(), image), expected);
}

void TestTesseractOcrProvider::reportsMissingLanguageData_data()
{
    QTest::addColumn<QString>("languages");
    QTest::addColumn<QByteArray>("engData");
    QTest::addColumn<bool>("availableBeforeFirstUse");

    QTest::newRow("no data at all") << QString() << QByteArray() << false;
    QTest::newRow("unknown language") << QStringLiteral("xyz") << QByteArray() << false;
    // A damaged file is only found out when the engine loads it; from then on the system has no OCR.
    QTest::newRow("damaged data") << QStringLiteral("eng") << QByteArray(4096, 'x') << true;
}

void TestTesseractOcrProvider::reportsMissingLanguageData()
{
    QFETCH(QString, languages);
    QFETCH(QByteArray, engData);
    QFETCH(bool, availableBeforeFirstUse);

    QTemporaryDir dataDir;
    QFile file(dataDir.filePath(QStringLiteral("eng.traineddata")));
    QVERIFY(engData.isEmpty() || (file.open(QIODevice::WriteOnly) && file.write(engData) && file.flush()));
    TesseractOcrProvider provider(languages, dataDir.path());
    QCOMPARE(provider.isAvailable(), availableBeforeFirstUse);

    const QImage image = TextImage::render({QStringLiteral("Preferences")}, 16);
    if (availableBeforeFirstUse)
        QCOMPARE(provider.recognize(image), QString());
    QVERIFY(!provider.isAvailable());
    QCOMPARE(runWorker(&provider, image), QStringLiteral("error: OCR not available on this system"));
}

void TestTesseractOcrProvider::recognisesOverlappingRequests()
{
    const QStringList words = {QStringLiteral("Preferences"), QStringLiteral("Download"),
                               QStringLiteral("Export"),      QStringLiteral("Network"),
                               QStringLiteral("Battery"),     QStringLiteral("Calendar")};
    QList<QImage> images;
    for (const QString &word : words)
        images << TextImage::render({word}, 15);

    QThreadPool pool;
    pool.setMaxThreadCount(4);
    const QStringList texts = QtConcurrent::blockingMapped<QStringList>(
        &pool, images, [this](const QImage &image) { return m_provider->recognize(image); });
    QCOMPARE(texts, words);
}

QTEST_MAIN(TestTesseractOcrProvider)
#include "test_tesseractocrprovider.moc"
