#include "config/ConfigManager.h"
#include "i18n/LanguageManager.h"
#include "ui/preferences/PreferencesWindow.h"

#include <QAbstractButton>
#include <QApplication>
#include <QComboBox>
#include <QDir>
#include <QLabel>
#include <QTest>

#include <memory>

// Shows every page in both languages and palettes under X11 and fails when a text is cut off (a word-wrapped
// label wraps instead); saves the pictures to $VONTREL_SCREENSHOT_DIR when it is set.
class TestPreferencesScreens : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void pages_data();
    void pages();

private:
    std::unique_ptr<PreferencesWindow> m_window;
};

void TestPreferencesScreens::initTestCase()
{
    QApplication::setStyle(QStringLiteral("Fusion"));
    QCoreApplication::setApplicationVersion(QStringLiteral("0.2.7"));
    ConfigManager::instance()->setApiKey(QStringLiteral("sk-example-key"));
    ConfigManager::instance()->setTargetLanguage(QStringLiteral("Chinese"));
    m_window = std::make_unique<PreferencesWindow>();
}

void TestPreferencesScreens::pages_data()
{
    QTest::addColumn<QString>("language");
    QTest::addColumn<bool>("dark");
    QTest::addColumn<int>("page");
    const QStringList names = {"general", "hotkeys", "ai-provider", "ai-actions", "about"};
    for (const char *language : {"en", "zh-CN"})
        for (bool dark : {false, true})
            for (int page = 0; page < names.size(); ++page)
                QTest::addRow("%s-%s-%s", qPrintable(names.at(page)), dark ? "dark" : "light", language)
                    << QString::fromLatin1(language) << dark << page;
}

void TestPreferencesScreens::pages()
{
    QFETCH(QString, language);
    QFETCH(bool, dark);
    QFETCH(int, page);
    PreferencesWindow *window = m_window.get();
    QPalette palette;
    const QList<std::pair<QPalette::ColorRole, QColor>> colors = {
        {QPalette::Window, dark ? 0x2d2d2d : 0xefefef},
        {QPalette::WindowText, dark ? 0xe0e0e0 : 0x333333},
        {QPalette::Base, dark ? 0x1e1e1e : 0xffffff},
        {QPalette::AlternateBase, dark ? 0x2d2d2d : 0xefefef},
        {QPalette::Text, dark ? 0xe0e0e0 : 0x333333},
        {QPalette::Button, dark ? 0x2d2d2d : 0xefefef},
        {QPalette::ButtonText, dark ? 0xe0e0e0 : 0x333333},
        {QPalette::Highlight, 0x3d7ad6},
        {QPalette::HighlightedText, 0xffffff},
        {QPalette::Link, dark ? 0x6cb4ff : 0x1a5fb4},
        {QPalette::PlaceholderText, dark ? 0x808080 : 0x999999}};
    for (const auto &[role, color] : colors)
        palette.setColor(role, color);
    LanguageManager::instance()->applyLanguage(language);
    QApplication::setPalette(palette);
    window->showPage(page);
    window->show();
    QVERIFY(QTest::qWaitForWindowExposed(window));
    QTRY_VERIFY(window->styleSheet().contains(dark ? QLatin1String("#2d2d2d") : QLatin1String("#ffffff")));

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
            clipped << QStringLiteral("%1 (%2 < %3)").arg(text).arg(widget->width()).arg(needed.width());
    }
    QVERIFY2(clipped.isEmpty(), qPrintable(clipped.join(QStringLiteral(", "))));

    const QString dir = qEnvironmentVariable("VONTREL_SCREENSHOT_DIR");
    if (!dir.isEmpty())
        QVERIFY(QDir().mkpath(dir) && window->grab().save(dir + '/' + QTest::currentDataTag() + ".png"));
}

QTEST_MAIN(TestPreferencesScreens)
#include "tst_preferencesscreens.moc"
