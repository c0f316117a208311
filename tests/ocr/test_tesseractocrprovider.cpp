#include "ocr/OcrWorker.h"
#include "ocr/OcrWorkerResult.h"
#include "platform/linux/TesseractOcrProvider.h"

#include "TextImage.h"

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
    void initTestCase();
    void readsLinesInOrder_data();
    void readsLinesInOrder();
    void reportsMissingLanguageData_data();
    void reportsMissingLanguageData();

private:
    std::unique_ptr<TesseractOcrProvider> m_provider;
};

void TestTesseractOcrProvider::initTestCase()
{
    m_provider = std::make_unique<TesseractOcrProvider>();
    if (m_provider->languages() != QLatin1String("chi_sim+eng"))
        QSKIP("needs the Simplified Chinese and English data (tesseract-ocr-chi-sim, tesseract-ocr-eng)");
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
    row("English, small, ratio 2", english, 12, 2.0, false);
    row("Chinese", {QStringLiteral("打开最近使用的文件"), QStringLiteral("请选择要识别的屏幕区域")}, 18, 1.0,
        false);
    row("Chinese, dark theme, ratio 2", {QStringLiteral("偏好设置"), QStringLiteral("启用深色模式")}, 14, 2.0,
        true);
    // No text is a finished, empty result, never an error.
    row("no text, dark", {}, 30, 1.0, true);
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
    QTest::newRow("no data at all") << QString();
    QTest::newRow("unknown language") << QStringLiteral("xyz");
}

void TestTesseractOcrProvider::reportsMissingLanguageData()
{
    QFETCH(QString, languages);
    QTemporaryDir dataDir; // empty
    TesseractOcrProvider provider(languages, dataDir.path());
    QVERIFY(!provider.isAvailable());
    QCOMPARE(runWorker(&provider, TextImage::render({QStringLiteral("Preferences")}, 16)),
             QStringLiteral("error: OCR not available on this system"));
}

QTEST_MAIN(TestTesseractOcrProvider)
#include "test_tesseractocrprovider.moc"
