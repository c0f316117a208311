#include "ui/IconTint.h"
#include "ui/ThemeColors.h"

#include <QApplication>
#include <QImage>
#include <QPainter>
#include <QPalette>
#include <QSvgRenderer>
#include <QTest>

class TestTheme : public QObject
{
    Q_OBJECT

private slots:
    void brightnessThreshold_data()
    {
        QTest::addColumn<QString>("window");
        QTest::addColumn<bool>("dark");
        QTest::newRow("mid grey counts as light") << "#808080" << false;
        QTest::newRow("just below is dark") << "#7f7f7f" << true;
    }

    void brightnessThreshold()
    {
        QFETCH(QString, window);
        QPalette palette = QApplication::palette();
        palette.setColor(QPalette::Window, QColor(window));
        QApplication::setPalette(palette);
        QTEST(vontrelIsDarkMode(), "dark");
        QTEST(vontrelThemeColors().isDark, "dark");
    }

    void tintKeepsAlpha()
    {
        QSvgRenderer renderer(QStringLiteral(":/icons/copy.svg"));
        QImage reference(renderer.defaultSize(), QImage::Format_ARGB32);
        reference.fill(Qt::transparent);
        QPainter painter(&reference);
        renderer.render(&painter);
        painter.end();
        const QColor tint(QStringLiteral("#d64545"));
        const QImage tinted = tintedMenuIcon(QStringLiteral(":/icons/copy.svg"), tint)
                                  .pixmap(renderer.defaultSize())
                                  .toImage()
                                  .convertToFormat(QImage::Format_ARGB32);
        // Same coverage as the SVG, and every covered pixel in the tint colour.
        QCOMPARE(tinted.convertToFormat(QImage::Format_Alpha8),
                 reference.convertToFormat(QImage::Format_Alpha8));
        for (int i = 0; i < tinted.width() * tinted.height(); ++i) {
            const QColor pixel = tinted.pixelColor(i % tinted.width(), i / tinted.width());
            if (pixel.alpha() == 255)
                QCOMPARE(pixel.name(), tint.name());
        }
    }
};

QTEST_MAIN(TestTheme)
#include "test_theme.moc"
