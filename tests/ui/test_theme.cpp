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

    void colourSets()
    {
        for (bool dark : {false, true})
            QCOMPARE(vontrelThemeColorsFor(dark).buttonText, vontrelThemeColorsFor(dark).textPrimary);
        QCOMPARE(vontrelThemeColorsFor(true).errorColor, QStringLiteral("#ff6b6b"));
        QCOMPARE(vontrelThemeColorsFor(false).inputFocusBorder, QStringLiteral("#8a8a8a"));
    }

    void tintKeepsAlpha()
    {
        const QString path = QStringLiteral(":/icons/copy.svg");
        QSvgRenderer renderer(path);
        QVERIFY(renderer.isValid());
        QImage reference(renderer.defaultSize(), QImage::Format_ARGB32);
        reference.fill(Qt::transparent);
        {
            QPainter painter(&reference);
            renderer.render(&painter);
        }

        const QColor tint(QStringLiteral("#d64545"));
        const QIcon icon = tintedMenuIcon(path, tint);
        QVERIFY(!icon.isNull());
        const QImage tinted =
            icon.pixmap(renderer.defaultSize()).toImage().convertToFormat(QImage::Format_ARGB32);
        QCOMPARE(tinted.size(), reference.size());

        int covered = 0;
        for (int y = 0; y < tinted.height(); ++y) {
            for (int x = 0; x < tinted.width(); ++x) {
                const QColor want = reference.pixelColor(x, y);
                const QColor got = tinted.pixelColor(x, y);
                QVERIFY(qAbs(got.alpha() - want.alpha()) <= 1);
                if (got.alpha() > 128) {
                    ++covered;
                    QVERIFY(qAbs(got.red() - tint.red()) <= 2);
                    QVERIFY(qAbs(got.green() - tint.green()) <= 2);
                    QVERIFY(qAbs(got.blue() - tint.blue()) <= 2);
                }
            }
        }
        QVERIFY(covered > 0);
    }
};

QTEST_MAIN(TestTheme)
#include "test_theme.moc"
