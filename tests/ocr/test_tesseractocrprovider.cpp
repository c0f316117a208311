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

// Runs one recognition the way a session does and returns {finished?, text or error message}.
QPair<bool, QString> runWorker(IOcrProvider *provider, const QImage &image)
{
    OcrWorkerResult result;
    QSignalSpy finished(&result, &OcrWorkerResult::finished);
    QSignalSpy failed(&result, &OcrWorkerResult::error);
    QThreadPool::globalInstance()->start(new OcrWorker(image, provider, &result), 0);
    if (!QTest::qWaitFor([&] { return finished.count() + failed.count() > 0; }, 60000))
        return {false, QStringLiteral("no outcome")};
    if (!finished.isEmpty())
        return {true, finished.first().first().toString()};
    return {false, failed.first().first().toString()};
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
    void findsNoTextInEmptyRegions_data();
    void findsNoTextInEmptyRegions();
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
    QTest::addColumn<QStringList>("lines");
    QTest::addColumn<int>("pixelSize");
    QTest::addColumn<qreal>("ratio");
    QTest::addColumn<bool>("dark");

    const QStringList english = {QStringLiteral("Open Recent Files"),
                                 QStringLiteral("Show hidden files and folders"),
                                 QStringLiteral("Check for updates automatically")};
    QTest::newRow("English") << english << 16 << 1.0 << false;
    QTest::newRow("English, small, dark theme") << english << 12 << 1.0 << true;
    QTest::newRow("English, small, ratio 2") << english << 12 << 2.0 << false;
    QTest::newRow("Chinese") << QStringList{QStringLiteral("打开最近使用的文件"),
                                            QStringLiteral("自动检查更新"),
                                            QStringLiteral("请选择要识别的屏幕区域")}
                             << 18 << 1.0 << false;
    QTest::newRow("Chinese, dark theme, ratio 2")
        << QStringList{QStringLiteral("偏好设置"), QStringLiteral("启用深色模式")} << 14 << 2.0 << true;
    QTest::newRow("single word") << QStringList{QStringLiteral("Undo")} << 14 << 1.0 << false;
}

void TestTesseractOcrProvider::readsLinesInOrder()
{
    QFETCH(QStringList, lines);
    QFETCH(int, pixelSize);
    QFETCH(qreal, ratio);
    QFETCH(bool, dark);

    const QImage image =
        dark ? TextImage::render(lines, pixelSize, QColor(0xe0, 0xe0, 0xe0), QColor(0x1e, 0x1e, 0x1e), ratio)
             : TextImage::render(lines, pixelSize, QColor(0x1d, 0x1d, 0x1f), Qt::white, ratio);
    const auto [finished, text] = runWorker(m_provider.get(), image);
    QVERIFY2(finished, qPrintable(text));
    QCOMPARE(text, lines.join(QLatin1Char('\n')));
}

void TestTesseractOcrProvider::findsNoTextInEmptyRegions_data()
{
    QTest::addColumn<QImage>("image");

    QImage white(300, 80, QImage::Format_RGB32);
    white.fill(Qt::white);
    QImage dark(64, 64, QImage::Format_RGB32);
    dark.fill(QColor(0x1e, 0x1e, 0x1e));
    QImage gradient(400, 60, QImage::Format_RGB32);
    for (int x = 0; x < gradient.width(); ++x) {
        for (int y = 0; y < gradient.height(); ++y)
            gradient.setPixel(x, y, qRgb(x * 255 / 400, 120, 200));
    }
    QImage tiny(6, 6, QImage::Format_RGB32);
    tiny.fill(Qt::gray);
    QTest::newRow("white") << white;
    QTest::newRow("dark") << dark;
    QTest::newRow("gradient") << gradient;
    QTest::newRow("6 x 6") << tiny;
}

void TestTesseractOcrProvider::findsNoTextInEmptyRegions()
{
    QFETCH(QImage, image);
    const auto [finished, text] = runWorker(m_provider.get(), image);
    QVERIFY2(finished, qPrintable(text));
    QCOMPARE(text, QString());
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
    QVERIFY(dataDir.isValid());
    if (!engData.isEmpty()) {
        QFile file(dataDir.filePath(QStringLiteral("eng.traineddata")));
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write(engData);
    }
    TesseractOcrProvider provider(languages, dataDir.path());
    QCOMPARE(provider.isAvailable(), availableBeforeFirstUse);

    const QImage image = TextImage::render({QStringLiteral("Preferences")}, 16);
    if (availableBeforeFirstUse)
        QCOMPARE(provider.recognize(image), QString());
    QVERIFY(!provider.isAvailable());
    const auto [finished, message] = runWorker(&provider, image);
    QVERIFY(!finished);
    QCOMPARE(message, QStringLiteral("OCR not available on this system"));
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
