#include "config/ConfigManager.h"
#include "ui/preferences/HotkeysPage.h"

#include <QtTest>
#include <QtWidgets>

namespace {

QKeySequence seq(const QString &portable)
{
    return QKeySequence::fromString(portable, QKeySequence::PortableText);
}

QString pair(const QKeySequence &capture, const QKeySequence &clip)
{
    return capture.toString(QKeySequence::PortableText) + '|' + clip.toString(QKeySequence::PortableText);
}

QKeySequenceEdit *editor(QWidget *page, bool capture)
{
    return page->findChild<QKeySequenceEdit *>(capture ? QStringLiteral("CaptureHotkeyEdit")
                                                       : QStringLiteral("ClipboardHotkeyEdit"));
}

} // namespace

class TestHotkeysPage : public QObject
{
    Q_OBJECT

private slots:
    void init()
    {
        ConfigManager::instance()->resetToDefaults();
        ConfigManager::instance()->setCaptureHotkey(QKeySequence());
        ConfigManager::instance()->setClipboardTextHotkey(QKeySequence());
    }

    void edits_data()
    {
        // Steps: "c:<keys>" sets the capture editor, "v:<keys>" the clipboard one; pairs are
        // "capture|clipboard".
        QTest::addColumn<QStringList>("steps");
        QTest::addColumn<QString>("warning");
        QTest::addColumn<QString>("shown");
        QTest::addColumn<int>("announced");
        const auto row = [](const char *name, const QStringList &steps, const QString &warning,
                            const char *shown, int announced) {
            QTest::newRow(name) << steps << warning << QString::fromLatin1(shown) << announced;
        };
        const QString modifier = QStringLiteral(" hotkey. Must include modifier (Ctrl/Cmd, Alt, or Shift)");
        const QString cleared =
            QStringLiteral(" hotkey was cleared due to conflict. Please set a different one.");
        row("capture takes the clipboard pair", {"c:Meta+Shift+2"}, "Clipboard" + cleared, "Meta+Shift+2|",
            1);
        row("clipboard takes the capture pair", {"v:Meta+Shift+1"}, "Capture" + cleared, "|Meta+Shift+1", 1);
        row("valid change", {"c:Ctrl+Alt+X"}, "", "Ctrl+Alt+X|Meta+Shift+2", 1);
        row("plain key in capture", {"c:F5"}, "Invalid capture" + modifier, "F5|Meta+Shift+2", 0);
        row("system shortcut", {"c:Ctrl+C"}, "Capture hotkey conflicts with a system shortcut",
            "Ctrl+C|Meta+Shift+2", 0);
        row("both emptied", {"c:", "v:"}, "At least one hotkey must be set", "|", 1);
        row("next valid edit hides the notice", {"c:Meta+Shift+2", "v:Ctrl+Alt+V"}, "",
            "Meta+Shift+2|Ctrl+Alt+V", 2);
    }

    void edits()
    {
        QFETCH(QStringList, steps);
        QFETCH(QString, warning);
        QFETCH(QString, shown);
        ConfigManager *config = ConfigManager::instance();
        HotkeysPage page;
        QSignalSpy spy(&page, &HotkeysPage::hotkeysChanged);
        QString before;
        for (const QString &step : std::as_const(steps)) {
            before = pair(config->captureHotkey(), config->clipboardTextHotkey());
            editor(&page, step.startsWith(QLatin1Char('c')))->setKeySequence(seq(step.mid(2)));
        }
        QCOMPARE(page.warningText(), warning);
        QCOMPARE(pair(page.captureHotkey(), page.clipboardTextHotkey()), shown);
        QTEST(int(spy.count()), "announced");
        // A valid pair is stored at once; after a rejected edit the store keeps what it had.
        const bool stored = warning.isEmpty() || warning.contains(QLatin1String("cleared"));
        QCOMPARE(pair(config->captureHotkey(), config->clipboardTextHotkey()), stored ? shown : before);
    }

    // The first two are what the page itself stores when one editor takes the other's default; the page shows
    // what is stored and warns only about a pair that uses one combination twice.
    void openingNeverShowsOneCombinationTwice_data()
    {
        QTest::addColumn<QString>("stored");
        QTest::addColumn<QString>("warning");
        QTest::newRow("capture took the clipboard default") << QStringLiteral("Meta+Shift+2|") << QString();
        QTest::newRow("clipboard took the capture default") << QStringLiteral("|Meta+Shift+1") << QString();
        QTest::newRow("the same pair edited into the file")
            << QStringLiteral("Ctrl+Alt+D|Ctrl+Alt+D")
            << QStringLiteral(
                   "The capture and clipboard hotkeys are both Ctrl+Alt+D. Please set a different one.");
    }

    void openingNeverShowsOneCombinationTwice()
    {
        QFETCH(QString, stored);
        ConfigManager::instance()->setCaptureHotkey(seq(stored.section('|', 0, 0)));
        ConfigManager::instance()->setClipboardTextHotkey(seq(stored.section('|', 1, 1)));
        HotkeysPage page;
        QCOMPARE(pair(page.captureHotkey(), page.clipboardTextHotkey()), stored);
        QTEST(page.warningText(), "warning");
    }
};

QTEST_MAIN(TestHotkeysPage)
#include "test_hotkeyspage.moc"
