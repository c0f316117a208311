#include "ocr/OcrPreprocessing.h"

#include "TextImage.h"

#include <QPainter>
#include <QTest>

#include <algorithm>

namespace {

// Heights of the bands of rows that hold ink (pixels darker than mid-grey), as a recogniser would see lines.
QList<int> bandHeights(const QImage &gray)
{
    QList<int> heights;
    int start = -1;
    for (int y = 0; y <= gray.height(); ++y) {
        bool ink = false;
        if (y < gray.height()) {
            const uchar *row = gray.constScanLine(y);
            ink = std::any_of(row, row + gray.width(), [](uchar v) { return v < 128; });
        }
        if (ink && start < 0)
            start = y;
        if (!ink && start >= 0) {
            heights << y - start;
            start = -1;
        }
    }
    return heights;
}

bool borderIs(const QImage &gray, int value)
{
    for (int x = 0; x < gray.width(); ++x) {
        if (gray.constScanLine(0)[x] != value || gray.constScanLine(gray.height() - 1)[x] != value)
            return false;
    }
    for (int y = 0; y < gray.height(); ++y) {
        if (gray.constScanLine(y)[0] != value || gray.constScanLine(y)[gray.width() - 1] != value)
            return false;
    }
    return true;
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
    void enlargesAShortWordInAWideRegion();
    void keepsLargeRegionsWithinBudget();
    void leavesBlankRegionsAlone();
    void flattensTransparencyOntoWhite();
};

void TestOcrPreprocessing::joinsLines_data()
{
    QTest::addColumn<QStringList>("lines");
    QTest::addColumn<QString>("expected");

    QTest::newRow("engine line ends")
        << QStringList{QStringLiteral("First line\n"), QStringLiteral("Second\n")}
        << QStringLiteral("First line\nSecond");
    QTest::newRow("blank lines dropped")
        << QStringList{QStringLiteral("  \n"), QStringLiteral("One\n"), QString(), QStringLiteral("\t\n"),
                       QStringLiteral("Two")}
        << QStringLiteral("One\nTwo");
    QTest::newRow("nothing") << QStringList{QStringLiteral("\n"), QStringLiteral(" ")} << QString();
    QTest::newRow("spaces between Chinese characters")
        << QStringList{QStringLiteral("打 开 最近 使用 的 文件 。\n")}
        << QStringLiteral("打开最近使用的文件。");
    QTest::newRow("spaces beside Latin words kept")
        << QStringList{QStringLiteral("使用 Python 3.11 运 行")} << QStringLiteral("使用 Python 3.11 运行");
    QTest::newRow("spaces inside Latin text kept")
        << QStringList{QStringLiteral("  for (auto &item : items) {  ")}
        << QStringLiteral("for (auto &item : items) {");
}

void TestOcrPreprocessing::joinsLines()
{
    QFETCH(QStringList, lines);
    QFETCH(QString, expected);
    QCOMPARE(vontrelJoinOcrLines(lines), expected);
}

void TestOcrPreprocessing::preparesScreenText_data()
{
    QTest::addColumn<int>("pixelSize");
    QTest::addColumn<qreal>("ratio");
    QTest::addColumn<QColor>("text");
    QTest::addColumn<QColor>("background");
    QTest::addColumn<bool>("inverted");

    const QColor black(0x1d, 0x1d, 0x1f);
    const QColor white(Qt::white);
    QTest::newRow("11 px light") << 11 << 1.0 << black << white << false;
    QTest::newRow("11 px dark") << 11 << 1.0 << QColor(0xe0, 0xe0, 0xe0) << QColor(0x1e, 0x1e, 0x1e) << true;
    QTest::newRow("13 px on a grey panel")
        << 13 << 1.0 << QColor(0x33, 0x33, 0x33) << QColor(0xec, 0xec, 0xec) << false;
    QTest::newRow("13 px at ratio 2, dark") << 13 << 2.0 << white << QColor(0x28, 0x2c, 0x34) << true;
    QTest::newRow("40 px headline") << 40 << 1.0 << black << white << false;
}

void TestOcrPreprocessing::preparesScreenText()
{
    QFETCH(int, pixelSize);
    QFETCH(qreal, ratio);
    QFETCH(QColor, text);
    QFETCH(QColor, background);
    QFETCH(bool, inverted);

    const QImage source = TextImage::render(
        {QStringLiteral("Save changes before closing?"), QStringLiteral("Open Recent Files")}, pixelSize,
        text, background, ratio);
    const OcrPreparedImage prepared = vontrelPrepareImageForOcr(source);

    QCOMPARE(prepared.image.format(), QImage::Format_Grayscale8);
    QCOMPARE(prepared.inverted, inverted);
    QCOMPARE(prepared.lineCount, 2);
    // Whatever the theme, the recogniser gets dark ink on a light page framed in the page's own shade.
    const int page = prepared.image.constScanLine(0)[0];
    QVERIFY2(page > 200, qPrintable(QString::number(page)));
    QVERIFY(borderIs(prepared.image, page));

    // Lines end up tall enough for the recogniser: capitals 20-50 px, that is a line band of roughly 25-65
    // px; text that is already large is not blown up further.
    const QList<int> bands = bandHeights(prepared.image);
    QCOMPARE(bands.size(), 2);
    for (int band : bands)
        QVERIFY2(band >= 25 && band <= 65, qPrintable(QStringLiteral("band of %1 px").arg(band)));
    if (pixelSize * ratio >= 40)
        QCOMPARE(prepared.scale, 1.0);
    else
        QVERIFY(prepared.scale > 1.0);
}

void TestOcrPreprocessing::enlargesAShortWordInAWideRegion()
{
    // A loose drag around one small button label: the word is a tiny fraction of the pixels.
    QImage region(900, 400, QImage::Format_RGB32);
    region.fill(Qt::white);
    QPainter painter(&region);
    painter.drawImage(QPoint(420, 190), TextImage::render({QStringLiteral("Save")}, 12));
    painter.end();

    const OcrPreparedImage prepared = vontrelPrepareImageForOcr(region);
    QCOMPARE(prepared.lineCount, 1);
    QVERIFY2(prepared.scale > 2.0, qPrintable(QString::number(prepared.scale)));
}

void TestOcrPreprocessing::keepsLargeRegionsWithinBudget()
{
    // Small text over a whole 4K screen must not become a page of hundreds of megapixels.
    QImage screen(3840, 2160, QImage::Format_RGB32);
    screen.fill(Qt::white);
    QPainter painter(&screen);
    const QImage lines =
        TextImage::render({QStringLiteral("Open Recent Files"), QStringLiteral("Preferences")}, 11);
    for (int y = 0; y + lines.height() <= screen.height(); y += lines.height())
        painter.drawImage(QPoint(0, y), lines);
    painter.end();

    const OcrPreparedImage prepared = vontrelPrepareImageForOcr(screen);
    QVERIFY(prepared.scale > 1.0);
    QVERIFY2(qint64(prepared.image.width()) * prepared.image.height() <= 25'000'000,
             qPrintable(QStringLiteral("%1 x %2").arg(prepared.image.width()).arg(prepared.image.height())));
}

void TestOcrPreprocessing::leavesBlankRegionsAlone()
{
    QImage blank(120, 40, QImage::Format_RGB32);
    blank.fill(QColor(0x2b, 0x2b, 0x2b));
    const OcrPreparedImage prepared = vontrelPrepareImageForOcr(blank);
    QCOMPARE(prepared.lineCount, 0);
    QCOMPARE(prepared.scale, 1.0);
    QVERIFY(borderIs(prepared.image, prepared.image.constScanLine(0)[0]));

    QVERIFY(vontrelPrepareImageForOcr(QImage()).image.isNull());
}

void TestOcrPreprocessing::flattensTransparencyOntoWhite()
{
    // Dark text on a transparent background (a saved screenshot of a text layer) must not read as
    // light-on-dark just because transparent pixels are black underneath.
    QImage layer(200, 40, QImage::Format_ARGB32);
    layer.fill(Qt::transparent);
    QPainter painter(&layer);
    QFont font(QStringLiteral("DejaVu Sans"));
    font.setPixelSize(14);
    painter.setFont(font);
    painter.setPen(Qt::black);
    painter.drawText(QPoint(6, 26), QStringLiteral("Transparent text"));
    painter.end();

    const OcrPreparedImage prepared = vontrelPrepareImageForOcr(layer);
    QVERIFY(!prepared.inverted);
    QCOMPARE(prepared.lineCount, 1);
    QCOMPARE(int(prepared.image.constScanLine(0)[0]), 255);
}

QTEST_MAIN(TestOcrPreprocessing)
#include "test_ocrpreprocessing.moc"
