#include "config/ConfigManager.h"
#include "i18n/LanguageManager.h"
#include "ui/preferences/HotkeysPage.h"

#include <QApplication>
#include <QKeySequenceEdit>
#include <QLineEdit>
#include <QPushButton>
#include <QSignalSpy>
#include <QTest>
#include <QVBoxLayout>

namespace {

QKeySequence seq(const QString &portable)
{
    return QKeySequence::fromString(portable, QKeySequence::PortableText);
}

} // namespace

class TestHotkeysPage : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void edits_data();
    void edits();
    void loadsDefaultsForEmptySettingsWithoutStoring();
    void unusableStoredPairIsReportedButNotStored();
    void restoreDefaultsStoresAndAnnounces();
    void recordsOneCombinationOnly();
    void focusMovingBetweenEditorsReportsEditingUntilBothAreLeft();
    void warningFollowsTheInterfaceLanguage();
};

void TestHotkeysPage::initTestCase()
{
    QCoreApplication::setOrganizationName(QStringLiteral("Vontrel"));
    QCoreApplication::setApplicationName(QStringLiteral("Vontrel"));
}

void TestHotkeysPage::init()
{
    LanguageManager::instance()->applyLanguage(QStringLiteral("en"));
    ConfigManager::instance()->resetToDefaults();
    ConfigManager::instance()->setCaptureHotkey(QKeySequence());
    ConfigManager::instance()->setClipboardTextHotkey(QKeySequence());
}

void TestHotkeysPage::edits_data()
{
    QTest::addColumn<QStringList>(
        "steps"); // "c:<sequence>" types into the capture editor, "v:" into the other
    QTest::addColumn<QString>("warning");
    QTest::addColumn<QString>("storedCapture");
    QTest::addColumn<QString>("storedClip");
    QTest::addColumn<int>("announced");
    QTest::addColumn<QString>("shownCapture");
    QTest::addColumn<QString>("shownClip");

    const QString clipboardCleared =
        QStringLiteral("Clipboard hotkey was cleared due to conflict. Please set a different one.");
    const QString captureCleared =
        QStringLiteral("Capture hotkey was cleared due to conflict. Please set a different one.");

    QTest::newRow("capture takes the clipboard pair")
        << QStringList{"c:Meta+Shift+2"} << clipboardCleared << "Meta+Shift+2"
        << "" << 1 << "Meta+Shift+2"
        << "";
    QTest::newRow("clipboard takes the capture pair") << QStringList{"v:Meta+Shift+1"} << captureCleared << ""
                                                      << "Meta+Shift+1" << 1 << ""
                                                      << "Meta+Shift+1";
    QTest::newRow("valid change") << QStringList{"c:Ctrl+Alt+X"} << ""
                                  << "Ctrl+Alt+X"
                                  << "Meta+Shift+2" << 1 << "Ctrl+Alt+X"
                                  << "Meta+Shift+2";
    QTest::newRow("plain key in capture")
        << QStringList{"c:F5"} << "Invalid capture hotkey. Must include modifier (Ctrl/Cmd, Alt, or Shift)"
        << ""
        << "" << 0 << "F5"
        << "Meta+Shift+2";
    QTest::newRow("plain key in clipboard")
        << QStringList{"v:F5"} << "Invalid clipboard hotkey. Must include modifier (Ctrl/Cmd, Alt, or Shift)"
        << ""
        << "" << 0 << "Meta+Shift+1"
        << "F5";
    QTest::newRow("copy in capture") << QStringList{"c:Ctrl+C"}
                                     << "Capture hotkey conflicts with a system shortcut"
                                     << ""
                                     << "" << 0 << "Ctrl+C"
                                     << "Meta+Shift+2";
    // The platform's own binding of Quit: Ctrl+Q on X11 desktops, none on the offscreen platform.
    const QString quit = QKeySequence(QKeySequence::Quit).toString(QKeySequence::PortableText);
    if (!quit.isEmpty())
        QTest::newRow("quit in clipboard")
            << QStringList{"v:" + quit} << "Clipboard hotkey conflicts with a system shortcut"
            << ""
            << "" << 0 << "Meta+Shift+1" << quit;
    QTest::newRow("select all in capture")
        << QStringList{"c:Ctrl+A"} << "Capture hotkey conflicts with a system shortcut"
        << ""
        << "" << 0 << "Ctrl+A"
        << "Meta+Shift+2";
    QTest::newRow("other control combination") << QStringList{"v:Ctrl+Shift+C"} << ""
                                               << "Meta+Shift+1"
                                               << "Ctrl+Shift+C" << 1 << "Meta+Shift+1"
                                               << "Ctrl+Shift+C";
    QTest::newRow("keypad modifier alone passes here") << QStringList{"c:Num+5"} << ""
                                                       << "Num+5"
                                                       << "Meta+Shift+2" << 1 << "Num+5"
                                                       << "Meta+Shift+2";
    QTest::newRow("one editor emptied is fine") << QStringList{"c:"} << ""
                                                << ""
                                                << "Meta+Shift+2" << 1 << ""
                                                << "Meta+Shift+2";
    QTest::newRow("both emptied") << QStringList{"c:", "v:"} << "At least one hotkey must be set"
                                  << ""
                                  << "Meta+Shift+2" << 1 << ""
                                  << "";
    QTest::newRow("invalid edit then fixed") << QStringList{"c:F5", "c:Alt+F5"} << ""
                                             << "Alt+F5"
                                             << "Meta+Shift+2" << 1 << "Alt+F5"
                                             << "Meta+Shift+2";
    QTest::newRow("duplicate notice stays while the pair is stored")
        << QStringList{"c:Meta+Shift+2", "v:Ctrl+Alt+V"} << ""
        << "Meta+Shift+2"
        << "Ctrl+Alt+V" << 2 << "Meta+Shift+2"
        << "Ctrl+Alt+V";
}

void TestHotkeysPage::edits()
{
    QFETCH(QStringList, steps);
    QFETCH(QString, warning);
    QFETCH(QString, storedCapture);
    QFETCH(QString, storedClip);
    QFETCH(int, announced);
    QFETCH(QString, shownCapture);
    QFETCH(QString, shownClip);

    HotkeysPage page;
    QSignalSpy spy(&page, &HotkeysPage::hotkeysChanged);
    auto *capture = page.findChild<QKeySequenceEdit *>(QStringLiteral("CaptureHotkeyEdit"));
    auto *clip = page.findChild<QKeySequenceEdit *>(QStringLiteral("ClipboardHotkeyEdit"));
    QVERIFY(capture && clip);

    for (const QString &step : std::as_const(steps)) {
        QKeySequenceEdit *editor = step.startsWith(QLatin1String("c:")) ? capture : clip;
        editor->setKeySequence(seq(step.mid(2)));
    }

    QCOMPARE(page.warningText(), warning);
    QCOMPARE(spy.count(), announced);
    ConfigManager *config = ConfigManager::instance();
    QCOMPARE(config->captureHotkey(), seq(storedCapture));
    QCOMPARE(config->clipboardTextHotkey(), seq(storedClip));
    QCOMPARE(page.captureHotkey(), seq(shownCapture));
    QCOMPARE(page.clipboardTextHotkey(), seq(shownClip));
}

void TestHotkeysPage::loadsDefaultsForEmptySettingsWithoutStoring()
{
    HotkeysPage page;
    QCOMPARE(page.captureHotkey(), QKeySequence(Qt::META | Qt::SHIFT | Qt::Key_1));
    QCOMPARE(page.clipboardTextHotkey(), QKeySequence(Qt::META | Qt::SHIFT | Qt::Key_2));
    QVERIFY(ConfigManager::instance()->captureHotkey().isEmpty());
    QVERIFY(ConfigManager::instance()->clipboardTextHotkey().isEmpty());
    QVERIFY(page.warningText().isEmpty());
}

void TestHotkeysPage::unusableStoredPairIsReportedButNotStored()
{
    ConfigManager *config = ConfigManager::instance();
    config->setCaptureHotkey(seq(QStringLiteral("F5")));
    config->setClipboardTextHotkey(seq(QStringLiteral("Ctrl+Alt+V")));
    QSignalSpy changed(config, &ConfigManager::configChanged);

    HotkeysPage page;
    QCOMPARE(page.warningText(),
             QStringLiteral("Invalid capture hotkey. Must include modifier (Ctrl/Cmd, Alt, or Shift)"));
    QCOMPARE(page.captureHotkey(), seq(QStringLiteral("F5")));
    QCOMPARE(changed.count(), 0);
}

void TestHotkeysPage::restoreDefaultsStoresAndAnnounces()
{
    HotkeysPage page;
    auto *capture = page.findChild<QKeySequenceEdit *>(QStringLiteral("CaptureHotkeyEdit"));
    capture->setKeySequence(seq(QStringLiteral("F5")));
    QVERIFY(!page.warningText().isEmpty());

    QSignalSpy spy(&page, &HotkeysPage::hotkeysChanged);
    QPushButton *restore = nullptr;
    for (QPushButton *button : page.findChildren<QPushButton *>()) {
        if (button->text() == QLatin1String("Restore Defaults"))
            restore = button;
    }
    QVERIFY(restore);
    restore->click();

    QVERIFY(page.warningText().isEmpty());
    QVERIFY(spy.count() >= 1);
    QCOMPARE(ConfigManager::instance()->captureHotkey(), QKeySequence(Qt::META | Qt::SHIFT | Qt::Key_1));
    QCOMPARE(ConfigManager::instance()->clipboardTextHotkey(),
             QKeySequence(Qt::META | Qt::SHIFT | Qt::Key_2));
}

void TestHotkeysPage::recordsOneCombinationOnly()
{
    HotkeysPage page;
    page.show();
    QVERIFY(QTest::qWaitForWindowExposed(&page));
    auto *capture = page.findChild<QKeySequenceEdit *>(QStringLiteral("CaptureHotkeyEdit"));
    capture->setFocus();
    QTest::keyClick(capture, Qt::Key_X, Qt::ControlModifier | Qt::AltModifier);
    QTest::keyClick(capture, Qt::Key_Y, Qt::ControlModifier | Qt::AltModifier);
    QTRY_COMPARE_WITH_TIMEOUT(capture->keySequence(), seq(QStringLiteral("Ctrl+Alt+X")), 10000);
    QTRY_COMPARE_WITH_TIMEOUT(ConfigManager::instance()->captureHotkey(), seq(QStringLiteral("Ctrl+Alt+X")),
                              10000);
}

void TestHotkeysPage::focusMovingBetweenEditorsReportsEditingUntilBothAreLeft()
{
    QWidget window;
    auto *layout = new QVBoxLayout(&window);
    auto *page = new HotkeysPage(&window);
    auto *elsewhere = new QLineEdit(&window);
    layout->addWidget(page);
    layout->addWidget(elsewhere);
    window.show();
    QApplication::setActiveWindow(&window);
    QVERIFY(QTest::qWaitForWindowActive(&window));
    elsewhere->setFocus();
    QTRY_VERIFY(elsewhere->hasFocus());

    auto *capture = page->findChild<QKeySequenceEdit *>(QStringLiteral("CaptureHotkeyEdit"));
    auto *clip = page->findChild<QKeySequenceEdit *>(QStringLiteral("ClipboardHotkeyEdit"));
    QSignalSpy spy(page, &HotkeysPage::hotkeyEditingChanged);

    capture->setFocus();
    QTRY_VERIFY(capture->hasFocus());
    clip->setFocus();
    QTRY_VERIFY(clip->hasFocus());
    // Let the deferred focus-out decision run before looking.
    QTRY_VERIFY_WITH_TIMEOUT(spy.count() >= 3, 5000);
    for (const QList<QVariant> &call : std::as_const(spy))
        QCOMPARE(call.at(0).toBool(), true);

    const int beforeLeaving = int(spy.count());
    elsewhere->setFocus();
    QTRY_COMPARE_WITH_TIMEOUT(spy.count(), beforeLeaving + 1, 5000);
    QCOMPARE(spy.last().at(0).toBool(), false);
    QTest::qWait(50);
    QCOMPARE(spy.count(), beforeLeaving + 1);
}

void TestHotkeysPage::warningFollowsTheInterfaceLanguage()
{
    HotkeysPage page;
    auto *capture = page.findChild<QKeySequenceEdit *>(QStringLiteral("CaptureHotkeyEdit"));
    capture->setKeySequence(seq(QStringLiteral("Meta+Shift+2")));
    const QString english = page.warningText();
    QVERIFY(english.startsWith(QLatin1String("Clipboard hotkey was cleared")));
    QSignalSpy spy(&page, &HotkeysPage::hotkeysChanged);

    LanguageManager::instance()->applyLanguage(QStringLiteral("zh-CN"));
    QTRY_VERIFY_WITH_TIMEOUT(page.warningText() != english, 5000);
    QCOMPARE(page.warningText(),
             QCoreApplication::translate(
                 "HotkeysPage", "Clipboard hotkey was cleared due to conflict. Please set a different one."));
    // Re-showing the notice in another language stores and announces nothing.
    QCOMPARE(spy.count(), 0);
    LanguageManager::instance()->applyLanguage(QStringLiteral("en"));
    QTRY_COMPARE_WITH_TIMEOUT(page.warningText(), english, 5000);
}

QTEST_MAIN(TestHotkeysPage)
#include "tst_hotkeyspage.moc"
