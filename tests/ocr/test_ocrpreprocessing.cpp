#include "ocr/OcrPreprocessing.h"

#include "TextImage.h"

#include <QPainter>
#include <QTest>

#include <algorithm>

namespace {

// Heights of the bands of rows that hold ink (darker than mid-grey), as a recogniser sees lines.
QList<int> bandHeights(const QImage &gray)
{
    QList<int> heights;
    int start = -1;
    for (int y = 0; y <= gray.height(); ++y) {
        const uchar *row = y < gray.height() ? gray.constScanLine(y) : nullptr;
        const bool ink = row && std::any_of(row, row + gray.width(), [](uchar v) { return v < 128; });
        if (ink && start < 0)
            start = y;
        if (!ink && start >= 0)
            heights << y - std::exchange(start, -1);
    }
    return heights;
}

// The lines drawn at `at`, and below it over and over, on a white canvas.
QImage onCanvas(QSize size, const QImage &lines, QPoint at)
{
    QImage canvas(size, QImage::Format_RGB32);
    canvas.fill(Qt::white);
    QPainter painter(&canvas);
    for (int y = at.y(); y + lines.height() <= size.height(); y += lines.height())
        painter.drawImage(QPoint(at.x(), y), lines);
    return canvas;
}

// Black text whose background is transparent black, as in a saved screenshot of a text layer.
QImage transparentText(const QString &text)
{
    QImage layer = TextImage::render({text}, 14, Qt::white, Qt::black).convertToFormat(QImage::Format_ARGB32);
    layer.setAlphaChannel(layer.convertToFormat(QImage::Format_Grayscale8));
    QPainter painter(&layer);
    painter.setCompositionMode(QPainter::CompositionMode_SourceIn);
    painter.fillRect(layer.rect(), Qt::black);
    return layer;
}

} // namespace

class TestOcrPreprocessing : public QObject
{
    Q_OBJECT

private slots:
    void joinsLines_data();
    void joinsLines();
    void preparesScreenText_data();
    void preparesScreenText();
};

void TestOcrPreprocessing::joinsLines_data()
{
    QTest::addColumn<QStringList>("lines");
    QTest::addColumn<QString>("expected");

    QTest::newRow("line ends, blank lines")
        << QStringList{QStringLiteral("  \n"), QStringLiteral("One\n"), QString(), QStringLiteral("Two\n")}
        << QStringLiteral("One\nTwo");
    QTest::newRow("nothing") << QStringList{QStringLiteral("\n"), QStringLiteral(" ")} << QString();
    QTest::newRow("spaces between Chinese characters")
        << QStringList{QStringLiteral("打 开 最近 使用 的 文件 。\n")}
        << QStringLiteral("打开最近使用的文件。");
    QTest::newRow("spaces beside and inside Latin text kept")
        << QStringList{QStringLiteral(" 使用 Python 3.11 运 行"), QStringLiteral("for (auto &i : items) { ")}
        << QStringLiteral("使用 Python 3.11 运行\nfor (auto &i : items) {");
}

void TestOcrPreprocessing::joinsLines()
{
    QFETCH(QStringList, lines);
    QFETCH(QString, expected);
    QCOMPARE(vontrelJoinOcrLines(lines), expected);
}

void TestOcrPreprocessing::preparesScreenText_data()
{
    QTest::addColumn<QImage>("source");
    QTest::addColumn<bool>("inverted");
    QTest::addColumn<int>("lineCount");
    QTest::addColumn<bool>("enlarged");

    const QStringList two = {QStringLiteral("Save changes before closing?"),
                             QStringLiteral("Open Recent Files")};
    const QColor darkBackground(0x1e, 0x1e, 0x1e);
    QTest::newRow("11 px light") << TextImage::render(two, 11) << false << 2 << true;
    QTest::newRow("11 px dark") << TextImage::render(two, 11, QColor(0xe0, 0xe0, 0xe0), darkBackground)
                                << true << 2 << true;
    QTest::newRow("13 px at ratio 2, dark")
        << TextImage::render(two, 13, Qt::white, QColor(0x28, 0x2c, 0x34), 2.0) << true << 2 << true;
    QTest::newRow("40 px is not blown up") << TextImage::render(two, 40) << false << 2 << false;
    // A loose drag around one small button label: the word is a tiny fraction of the pixels.
    const QImage save = TextImage::render({QStringLiteral("Save")}, 12);
    QTest::newRow("short word in a wide region")
        << onCanvas({900, 400}, save, {420, 400 - save.height()}) << false << 1 << true;
    // Transparent pixels are black underneath: they must not make dark text read as light-on-dark.
    QTest::newRow("transparent background")
        << transparentText(QStringLiteral("Transparent text")) << false << 1 << true;
    QTest::newRow("blank") << TextImage::render({}, 11, Qt::white, darkBackground) << true << 0 << false;
    // Small text over a whole 4K screen must not become a page of hundreds of megapixels.
    const QImage lines =
        TextImage::render({QStringLiteral("Open Recent Files"), QStringLiteral("Preferences")}, 11);
    QTest::newRow("4K screen of small text")
        << onCanvas({3840, 2160}, lines, {0, 0}) << false << 2 * (2160 / lines.height()) << true;
}

void TestOcrPreprocessing::preparesScreenText()
{
    QFETCH(QImage, source);
    QFETCH(bool, inverted);
    QFETCH(int, lineCount);
    QFETCH(bool, enlarged);

    const OcrPreparedImage prepared = vontrelPrepareImageForOcr(source);
    const QImage &image = prepared.image;
    QCOMPARE(image.format(), QImage::Format_Grayscale8);
    QCOMPARE(prepared.inverted, inverted);
    QCOMPARE(prepared.lineCount, lineCount);
    QCOMPARE(prepared.scale > 1.0, enlarged);
    QVERIFY(qint64(image.width()) * image.height() <= 25'000'000);
    // Dark ink on a light page, framed in the page's own shade.
    const uchar page = image.constScanLine(0)[0];
    QVERIFY2(page > 200 || lineCount == 0, qPrintable(QString::number(page)));
    for (int y = 0; y < image.height(); ++y) {
        const uchar *row = image.constScanLine(y);
        const bool edge = y == 0 || y == image.height() - 1;
        QVERIFY(edge ? std::all_of(row, row + image.width(), [page](uchar v) { return v == page; })
                     : row[0] == page && row[image.width() - 1] == page);
    }
    // Capitals 20-50 px tall, a line band of roughly 25-65 px, unless that would break the pixel budget.
    const QList<int> bands = bandHeights(image);
    QCOMPARE(bands.size(), lineCount);
    for (int band : bands)
        QVERIFY2((band >= 25 || lineCount > 2) && band <= 65, qPrintable(QStringLiteral("%1 px").arg(band)));
}

QTEST_MAIN(TestOcrPreprocessing)
#include "test_ocrpreprocessing.moc"
