#include "config/ConfigManager.h"
#include "i18n/LanguageManager.h"
#include "ui/preferences/PreferencesWindow.h"

#include <QAbstractButton>
#include <QApplication>
#include <QCheckBox>
#include <QComboBox>
#include <QDir>
#include <QLabel>
#include <QStyle>
#include <QStyleOptionButton>
#include <QTest>

#include <cmath>

namespace {

// WCAG contrast ratio of two colours (1 to 21).
double contrast(const QColor &a, const QColor &b)
{
    const auto luminance = [](const QColor &c) {
        const auto channel = [](double v) {
            return v <= 0.03928 ? v / 12.92 : std::pow((v + 0.055) / 1.055, 2.4);
        };
        return 0.2126 * channel(c.redF()) + 0.7152 * channel(c.greenF()) + 0.0722 * channel(c.blueF());
    };
    const double la = luminance(a) + 0.05, lb = luminance(b) + 0.05;
    return la > lb ? la / lb : lb / la;
}

// The strongest contrast between the indicator's pixels and the card just left of it, as the window shows
// them; an outline a user can find stands out by at least 3:1.
double indicatorContrast(const QImage &window, QWidget *windowWidget, QCheckBox *box)
{
    QStyleOptionButton option;
    option.initFrom(box);
    const QRect local = box->style()->subElementRect(QStyle::SE_CheckBoxIndicator, &option, box);
    const QRect indicator(box->mapTo(windowWidget, local.topLeft()), local.size());
    const qreal ratio = window.devicePixelRatio();
    const QColor around =
        window.pixelColor(int((indicator.left() - 4) * ratio), int(indicator.center().y() * ratio));
    double best = 1;
    for (int y = int(indicator.top() * ratio); y <= int(indicator.bottom() * ratio); ++y)
        for (int x = int(indicator.left() * ratio); x <= int(indicator.right() * ratio); ++x)
            best = std::max(best, contrast(window.pixelColor(x, y), around));
    return best;
}

// The texts of the window's visible labels (not word-wrapped), buttons and combo boxes that are cut off.
QString clippedTexts(QWidget *window)
{
    QStringList clipped;
    for (QWidget *widget : window->findChildren<QWidget *>()) {
        auto *label = qobject_cast<QLabel *>(widget);
        auto *button = qobject_cast<QAbstractButton *>(widget);
        auto *combo = qobject_cast<QComboBox *>(widget);
        const QString text = label    ? (label->wordWrap() ? QString() : label->text())
                             : button ? button->text()
                             : combo  ? combo->currentText()
                                      : QString();
        const QSize needed = widget->minimumSizeHint();
        if (widget->isVisible() && !text.isEmpty() &&
            (widget->width() < needed.width() || widget->height() < needed.height()))
            clipped << QStringLiteral("%1 (%2x%3 < %4x%5)")
                           .arg(text)
                           .arg(widget->width())
                           .arg(widget->height())
                           .arg(needed.width())
                           .arg(needed.height());
    }
    return clipped.join(QStringLiteral(", "));
}

} // namespace

// Shows every page under X11, in English on a light palette and in Chinese on a dark one, and fails when a
// text is cut off (a word-wrapped label wraps instead); saves the pictures to $VONTREL_SCREENSHOT_DIR when
// set.
class TestPreferencesScreens : public QObject
{
    Q_OBJECT
    PreferencesWindow *m_window = nullptr;

private slots:
    void initTestCase()
    {
        QApplication::setStyle(QStringLiteral("Fusion"));
        QCoreApplication::setApplicationVersion(QStringLiteral("0.2.7"));
        ConfigManager::instance()->setApiKey(QStringLiteral("sk-example-key"));
        m_window = new PreferencesWindow;
    }
    void cleanupTestCase() { delete m_window; }

    void pages_data()
    {
        QTest::addColumn<bool>("dark");
        QTest::addColumn<int>("page");
        const char *names[] = {"general", "hotkeys", "ai-provider", "ai-actions", "about"};
        for (bool dark : {false, true})
            for (int page = 0; page < 5; ++page)
                QTest::addRow("%s-%s", names[page], dark ? "dark-zh-CN" : "light-en") << dark << page;
    }
    void pages()
    {
        QFETCH(bool, dark);
        QFETCH(int, page);
        QPalette palette(dark ? QColor(0x2d2d2d) : QColor(0xefefef));
        palette.setColor(QPalette::Base, dark ? 0x1e1e1e : 0xffffff);
        LanguageManager::instance()->applyLanguage(dark ? QStringLiteral("zh-CN") : QStringLiteral("en"));
        QApplication::setPalette(palette);
        m_window->showPage(page);
        m_window->show();
        QVERIFY(QTest::qWaitForWindowExposed(m_window));
        // The window is shown already after the first row: the language change and the relayouts it brings
        // are posted, so the texts are checked once they have settled.
        QTRY_COMPARE(m_window->windowTitle(),
                     QCoreApplication::translate("PreferencesWindow", "Preferences"));
        QTRY_VERIFY(
            m_window->styleSheet().contains(dark ? QLatin1String("#2d2d2d") : QLatin1String("#ffffff")));
        const bool settled = QTest::qWaitFor([this] { return clippedTexts(m_window).isEmpty(); });
        // Saved before the checks, so a failing page can be looked at.
        const QString dir = qEnvironmentVariable("VONTREL_SCREENSHOT_DIR");
        if (!dir.isEmpty())
            QVERIFY(QDir().mkpath(dir) &&
                    m_window->grab().save(dir + '/' + QTest::currentDataTag() + ".png"));
        QVERIFY2(settled, qPrintable(clippedTexts(m_window)));
        const QImage shown = m_window->grab().toImage();
        for (QCheckBox *box : m_window->findChildren<QCheckBox *>()) {
            if (box->isVisible())
                QVERIFY2(indicatorContrast(shown, m_window, box) >= 3.0, "a check box is hard to see");
        }
    }
};

QTEST_MAIN(TestPreferencesScreens)
#include "test_preferencesscreens.moc"
