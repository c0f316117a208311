#include "config/ConfigManager.h"
#include "i18n/LanguageManager.h"
#include "ui/preferences/PreferencesWindow.h"

#include <QAbstractButton>
#include <QApplication>
#include <QComboBox>
#include <QDir>
#include <QLabel>
#include <QTest>

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
        QTRY_VERIFY(
            m_window->styleSheet().contains(dark ? QLatin1String("#2d2d2d") : QLatin1String("#ffffff")));

        QStringList clipped;
        for (QWidget *widget : m_window->findChildren<QWidget *>()) {
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
                clipped << QStringLiteral("%1 (%2 < %3)").arg(text).arg(widget->width()).arg(needed.width());
        }
        QVERIFY2(clipped.isEmpty(), qPrintable(clipped.join(QStringLiteral(", "))));
        const QString dir = qEnvironmentVariable("VONTREL_SCREENSHOT_DIR");
        if (!dir.isEmpty())
            QVERIFY(QDir().mkpath(dir) &&
                    m_window->grab().save(dir + '/' + QTest::currentDataTag() + ".png"));
    }
};

QTEST_MAIN(TestPreferencesScreens)
#include "tst_preferencesscreens.moc"
