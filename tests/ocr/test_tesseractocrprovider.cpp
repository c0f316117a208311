#include "ocr/OcrWorker.h"
#include "ocr/OcrWorkerResult.h"
#include "platform/linux/TesseractOcrProvider.h"

#include "TestEnv.h"
#include "TextImage.h"

#include <QPainter>
#include <QPen>
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

    void readsLinesInOrder_data()
    {
        QTest::addColumn<QImage>("image");
        QTest::addColumn<QString>("expected");

        const auto row = [](const char *name, const QStringList &lines, int pixelSize, qreal ratio,
                            bool dark) {
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
        row("Chinese", {QStringLiteral("打开最近使用的文件"), QStringLiteral("请选择要识别的屏幕区域")}, 18,
            1.0, false);
        row("Chinese, dark theme, ratio 2", {QStringLiteral("偏好设置"), QStringLiteral("启用深色模式")}, 14,
            2.0, true);
        // No text is a finished, empty result, never an error.
        row("no text, dark", {}, 30, 1.0, true);

        // Hand-dragged regions: what surrounds the text is not read, and does not make lines go missing.
        const QImage paragraph = TextImage::render(english, 13);
        const QString englishText = english.join(QLatin1Char('\n'));
        QTest::newRow("outlined paragraph")
            << TextImage::framed(paragraph, 3, QColor(0x8c, 0x8c, 0x8c), 4) << englishText;
        // A text field: its sides are hardly taller than the line, yet must not be read as "|" or "l".
        const QImage field = TextImage::render({QStringLiteral("Check for updates")}, 15);
        QTest::newRow("text field around one line")
            << TextImage::framed(field.copy(0, 6, field.width(), field.height() - 12), 2,
                                 QColor(0x8c, 0x8c, 0x8c), 3)
            << QStringLiteral("Check for updates");
        QTest::newRow("frame at the edge, ratio 2")
            << TextImage::framed(TextImage::render(english, 12, Qt::black, Qt::white, 2.0), 0, Qt::black)
            << englishText;
        const QImage line = TextImage::render({QStringLiteral("Open Recent Files")}, 15);
        QImage icon(line.width() + 26, line.height(), QImage::Format_RGB32);
        icon.fill(Qt::white);
        {
            QPainter painter(&icon);
            painter.drawImage(26, 0, line);
            painter.setRenderHint(QPainter::Antialiasing);
            painter.setPen(Qt::NoPen);
            painter.setBrush(QColor(0x3d, 0x7b, 0xe0));
            painter.drawEllipse(QRectF(8, icon.height() / 2.0 - 9, 18, 18));
            painter.setBrush(Qt::white);
            painter.drawEllipse(QPointF(17, icon.height() / 2.0), 3, 3);
        }
        QTest::newRow("icon before the text") << icon << QStringLiteral("Open Recent Files");
        // A text field with rounded corners, wide as forms draw them: its short sides stop short of the long
        // rules, and the bends of its corners stay behind as specks.
        // An unchecked check box before its label in the Preferences: not "[ ]" or "O".
        QTest::newRow("check box, a real capture")
            << QImage(TestEnv::sourceDir() + QStringLiteral("/tests/ocr/data/checkbox-light-en.png"))
            << QStringLiteral("Start at login\nAutomatically start Vontrel when you log in to your computer");
        QTest::newRow("rounded text field")
            << QImage(TestEnv::sourceDir() + QStringLiteral("/tests/ocr/data/rounded-field-light.png"))
            << QStringLiteral("Email address");
        // A page title as Qt draws it, with the card's edge below: bold stems are thick, yet no icon.
        QTest::newRow("bold title, a real capture")
            << QImage(TestEnv::sourceDir() + QStringLiteral("/tests/ocr/data/title-bold-light-en.png"))
            << QStringLiteral("General");
        addApplicationWindowRows();
    }

    void readsLinesInOrder()
    {
        QFETCH(QImage, image);
        QFETCH(QString, expected);
        QCOMPARE(runWorker(m_provider.get(), image), expected);
    }

private:
    // Windows as toolkits draw them: backgrounds of either polarity side by side, controls beside labels,
    // code, and the rest of a line cut off by the region's edge.
    static void addApplicationWindowRows()
    {
        const QColor text(0x1d, 0x1d, 0x1f);
        const auto stacked = [](const QList<QImage> &rows) {
            int height = 0, width = 0;
            for (const QImage &row : rows) {
                height += row.height();
                width = std::max(width, row.width());
            }
            QImage image(width + 40, height + 16, QImage::Format_RGB32);
            image.fill(Qt::white);
            QPainter painter(&image);
            int y = 8;
            for (const QImage &row : rows) {
                // Each row as wide as the list, in the row's own background.
                painter.fillRect(8, y, width + 24, row.height(), row.pixel(0, 0));
                painter.drawImage(20, y, row);
                y += row.height();
            }
            return image;
        };
        const QColor selection(0x35, 0x84, 0xe4);
        QTest::newRow("selected row, white on blue")
            << stacked({TextImage::render({QStringLiteral("Wired connection")}, 14, text),
                        TextImage::render({QStringLiteral("Office network")}, 14, Qt::white, selection),
                        TextImage::render({QStringLiteral("Guest network")}, 14, text)})
            << QStringLiteral("Wired connection\nOffice network\nGuest network");
        QTest::newRow("selected row, Chinese")
            << stacked({TextImage::render({QStringLiteral("有线连接")}, 14, text),
                        TextImage::render({QStringLiteral("办公室网络")}, 14, Qt::white, selection),
                        TextImage::render({QStringLiteral("访客网络")}, 14, text)})
            << QStringLiteral("有线连接\n办公室网络\n访客网络");

        // Unchecked check boxes: a grey rounded square about as tall as the label's letters.
        const QStringList labels = {QStringLiteral("Connect automatically"), QStringLiteral("自动连接")};
        const QImage plain = TextImage::render(labels, 15, text);
        QImage boxes(plain.width() + 28, plain.height(), QImage::Format_RGB32);
        boxes.fill(Qt::white);
        {
            QPainter painter(&boxes);
            painter.drawImage(28, 0, plain);
            painter.setRenderHint(QPainter::Antialiasing);
            painter.setPen(QPen(QColor(0x9a, 0x9a, 0x9a), 1));
            const int line = plain.height() / 2;
            for (int row = 0; row < 2; ++row)
                painter.drawRoundedRect(QRectF(6.5, row * line + line / 2.0 - 6.5, 14, 14), 3, 3);
        }
        QTest::newRow("check boxes before labels") << boxes << labels.join(QLatin1Char('\n'));

        // A brace alone on its line is code, not a speck.
        const QStringList code = {QStringLiteral("if (ready) {"), QStringLiteral("start();"),
                                  QStringLiteral("}")};
        QTest::newRow("brace alone on a line")
            << TextImage::render(code, 15, text) << code.join(QLatin1Char('\n'));
        const QStringList indented = {QStringLiteral("function greet(name) {"),
                                      QStringLiteral("    if (ready) {"), QStringLiteral("        return;"),
                                      QStringLiteral("    }"), QStringLiteral("}")};
        QTest::newRow("indented code at ratio 2")
            << TextImage::render(indented, 13, text, Qt::white, 2.0)
            << QStringLiteral("function greet(name) {\nif (ready) {\nreturn;\n}\n}");

        // The region starts through the middle of a line: what is left of it is not guessed at.
        const QImage three = TextImage::render({QStringLiteral("Download the latest version"),
                                                QStringLiteral("Save changes before closing?"),
                                                QStringLiteral("Open Recent Files")},
                                               15, text);
        const int cut = three.height() * 2 / 10;
        QTest::newRow("line cut off above")
            << three.copy(0, cut, three.width(), three.height() - cut)
            << QStringLiteral("Save changes before closing?\nOpen Recent Files");
    }

private slots:
    // Stretches the engine reads with near-zero confidence are read again on their own.
    void readsDoubtfulStretchesAgain()
    {
        const auto read = [this](const char *name) {
            const QImage capture(TestEnv::sourceDir() + QStringLiteral("/tests/ocr/data/") +
                                 QLatin1String(name));
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
    std::unique_ptr<TesseractOcrProvider> m_provider;
};

QTEST_MAIN(TestTesseractOcrProvider)
#include "test_tesseractocrprovider.moc"
