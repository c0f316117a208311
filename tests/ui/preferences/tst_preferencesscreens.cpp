#include "config/ConfigManager.h"
#include "i18n/LanguageManager.h"
#include "ui/preferences/PreferencesWindow.h"

#include <QAbstractButton>
#include <QApplication>
#include <QComboBox>
#include <QDir>
#include <QLabel>
#include <QLineEdit>
#include <QPalette>
#include <QTest>

namespace {

QPalette palette(bool dark)
{
    QPalette p;
    const QColor window = dark ? QColor(0x2d, 0x2d, 0x2d) : QColor(0xef, 0xef, 0xef);
    const QColor text = dark ? QColor(0xe0, 0xe0, 0xe0) : QColor(0x33, 0x33, 0x33);
    const QColor base = dark ? QColor(0x1e, 0x1e, 0x1e) : QColor(0xff, 0xff, 0xff);
    p.setColor(QPalette::Window, window);
    p.setColor(QPalette::WindowText, text);
    p.setColor(QPalette::Base, base);
    p.setColor(QPalette::AlternateBase, window);
    p.setColor(QPalette::Text, text);
    p.setColor(QPalette::Button, window);
    p.setColor(QPalette::ButtonText, text);
    p.setColor(QPalette::Highlight, QColor(0x3d, 0x7a, 0xd6));
    p.setColor(QPalette::HighlightedText, Qt::white);
    p.setColor(QPalette::Link, dark ? QColor(0x6c, 0xb4, 0xff) : QColor(0x1a, 0x5f, 0xb4));
    p.setColor(QPalette::PlaceholderText, dark ? QColor(0x80, 0x80, 0x80) : QColor(0x99, 0x99, 0x99));
    return p;
}

// Texts that are not cut off: each fits the width its widget was given (word-wrapped labels wrap instead).
QStringList clippedTexts(QWidget *page)
{
    QStringList clipped;
    for (QWidget *widget : page->findChildren<QWidget *>()) {
        if (!widget->isVisible())
            continue;
        QString text;
        int needed = 0;
        if (auto *label = qobject_cast<QLabel *>(widget)) {
            if (label->wordWrap() || label->text().isEmpty())
                continue;
            text = label->text();
            needed = label->minimumSizeHint().width();
        } else if (auto *button = qobject_cast<QAbstractButton *>(widget)) {
            if (button->text().isEmpty())
                continue; // icon buttons, such as an editor's clear button
            text = button->text();
            needed = button->minimumSizeHint().width();
        } else if (auto *combo = qobject_cast<QComboBox *>(widget)) {
            text = combo->currentText();
            needed = combo->minimumSizeHint().width();
        } else {
            continue;
        }
        if (widget->width() < needed || widget->height() < widget->minimumSizeHint().height())
            clipped << QStringLiteral("%1 (%2 < %3)").arg(text).arg(widget->width()).arg(needed);
    }
    return clipped;
}

} // namespace

// Renders every page in both languages and both appearances, checks that nothing is cut off, and writes
// the pictures to $VONTREL_SCREENSHOT_DIR when it is set.
class TestPreferencesScreens : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void pages_data();
    void pages();

private:
    PreferencesWindow *m_window = nullptr;
};

void TestPreferencesScreens::initTestCase()
{
    QCoreApplication::setOrganizationName(QStringLiteral("Vontrel"));
    QCoreApplication::setApplicationName(QStringLiteral("Vontrel"));
    QCoreApplication::setApplicationVersion(QStringLiteral("0.2.7"));
    QApplication::setStyle(QStringLiteral("Fusion"));
    ConfigManager *config = ConfigManager::instance();
    config->resetToDefaults();
    config->setApiKey(QStringLiteral("sk-example-key"));
    config->setTargetLanguage(QStringLiteral("Chinese"));
    m_window = new PreferencesWindow;
    m_window->show();
    QVERIFY(QTest::qWaitForWindowExposed(m_window));
}

void TestPreferencesScreens::pages_data()
{
    QTest::addColumn<QString>("language");
    QTest::addColumn<bool>("dark");
    QTest::addColumn<int>("page");
    const QStringList names = {"general", "hotkeys", "ai-provider", "ai-actions", "about"};
    for (const QString &language : {QStringLiteral("en"), QStringLiteral("zh-CN")}) {
        for (bool dark : {false, true}) {
            for (int page = 0; page < names.size(); ++page) {
                const QString name =
                    QStringLiteral("%1-%2-%3").arg(names.at(page), dark ? "dark" : "light", language);
                QTest::newRow(qPrintable(name)) << language << dark << page;
            }
        }
    }
}

void TestPreferencesScreens::pages()
{
    QFETCH(QString, language);
    QFETCH(bool, dark);
    QFETCH(int, page);

    LanguageManager::instance()->applyLanguage(language);
    QApplication::setPalette(palette(dark));
    m_window->showPage(page);
    QCoreApplication::processEvents();
    QTRY_VERIFY(m_window->styleSheet().contains(dark ? QLatin1String("#2d2d2d") : QLatin1String("#ffffff")));

    QWidget *current = m_window->findChild<QWidget *>(QStringLiteral("PreferencesContent"));
    const QStringList clipped = clippedTexts(m_window);
    QVERIFY2(clipped.isEmpty(), qPrintable(clipped.join(QStringLiteral(", "))));
    QVERIFY(current);

    const QString dir = qEnvironmentVariable("VONTREL_SCREENSHOT_DIR");
    if (!dir.isEmpty()) {
        QDir().mkpath(dir);
        const QString file =
            QDir(dir).filePath(QString::fromLatin1(QTest::currentDataTag()) + QStringLiteral(".png"));
        QVERIFY(m_window->grab().save(file));
    }
}

QTEST_MAIN(TestPreferencesScreens)
#include "tst_preferencesscreens.moc"
