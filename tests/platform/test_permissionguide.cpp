#include "platform/PermissionGuideDialog.h"
#include "platform/Permissions.h"

#include <QLabel>
#include <QLayout>
#include <QPushButton>
#include <QTest>

namespace {

QList<QPushButton *> visibleButtons(const QDialog *dialog)
{
    QList<QPushButton *> buttons;
    for (QPushButton *button : dialog->findChildren<QPushButton *>()) {
        if (!button->isHidden())
            buttons << button;
    }
    std::sort(buttons.begin(), buttons.end(), [](QPushButton *a, QPushButton *b) { return a->x() < b->x(); });
    return buttons;
}

QPushButton *buttonWithText(const QDialog *dialog, const QString &text)
{
    for (QPushButton *button : dialog->findChildren<QPushButton *>()) {
        if (button->text() == text)
            return button;
    }
    return nullptr;
}

} // namespace

class TestPermissionGuide : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup();
    void grantedPermissionShowsNothing();
    void oneGuideAtATimeAndThrottledPerType();
    void recheckKeepsGuideUntilGranted();
    void laterLeavesPermissionMissing();
    void dialogLayoutAndTexts_data();
    void dialogLayoutAndTexts();
    void settingsPaneFallsBackToGeneralPane();

private:
    qint64 m_now = 0;
    bool m_screen = false;
    bool m_accessibility = false;
    int m_runs = 0;
    QList<int> m_shownTypes;
};

void TestPermissionGuide::init()
{
    m_now = 1000;
    m_screen = m_accessibility = false;
    m_runs = 0;
    m_shownTypes.clear();
    PermissionGuideDialog::resetStateForTesting();
    PermissionGuideDialog::setClockForTesting([this]() { return m_now; });
    Permissions::setProbesForTesting([this]() { return m_accessibility; }, [this]() { return m_screen; });
    PermissionGuideDialog::setRunnerForTesting([this](PermissionGuideDialog *dialog) {
        ++m_runs;
        m_shownTypes << dialog->permissionType();
        dialog->reject();
        return int(dialog->result());
    });
}

void TestPermissionGuide::cleanup()
{
    PermissionGuideDialog::setClockForTesting({});
    PermissionGuideDialog::setRunnerForTesting({});
    PermissionGuideDialog::setUrlOpenerForTesting({});
    PermissionGuideDialog::resetStateForTesting();
    Permissions::setProbesForTesting({}, {});
}

void TestPermissionGuide::grantedPermissionShowsNothing()
{
    m_screen = m_accessibility = true;
    QVERIFY(PermissionGuideDialog::ensurePermission(PermissionGuideDialog::ScreenRecording));
    QVERIFY(PermissionGuideDialog::ensurePermission(PermissionGuideDialog::Accessibility));
    QVERIFY(PermissionGuideDialog::ensurePermission(PermissionGuideDialog::PermissionType(7)));
    QCOMPARE(m_runs, 0);
}

void TestPermissionGuide::oneGuideAtATimeAndThrottledPerType()
{
    bool nestedResult = true;
    PermissionGuideDialog *nestedOpen = nullptr;
    PermissionGuideDialog::setRunnerForTesting([&](PermissionGuideDialog *dialog) {
        ++m_runs;
        m_shownTypes << dialog->permissionType();
        // A hotkey pressed while the guide is open (even for the other permission) only raises it.
        if (m_runs == 1) {
            nestedResult = PermissionGuideDialog::ensurePermission(PermissionGuideDialog::Accessibility);
            nestedOpen = PermissionGuideDialog::openGuide();
        }
        dialog->reject();
        return int(dialog->result());
    });

    QVERIFY(!PermissionGuideDialog::ensurePermission(PermissionGuideDialog::ScreenRecording));
    QCOMPARE(m_runs, 1);
    QVERIFY(!nestedResult);
    QVERIFY(nestedOpen != nullptr);
    QCOMPARE(PermissionGuideDialog::openGuide(), nullptr);

    // Presses within 30 s of opening show nothing; the other type has its own 30 s.
    m_now += 29999;
    QVERIFY(!PermissionGuideDialog::ensurePermission(PermissionGuideDialog::ScreenRecording));
    QCOMPARE(m_runs, 1);
    QVERIFY(!PermissionGuideDialog::ensurePermission(PermissionGuideDialog::Accessibility));
    QCOMPARE(m_runs, 2);
    m_now += 1;
    QVERIFY(!PermissionGuideDialog::ensurePermission(PermissionGuideDialog::ScreenRecording));
    QCOMPARE(m_runs, 3);
    QVERIFY(!PermissionGuideDialog::ensurePermission(PermissionGuideDialog::Accessibility));
    QCOMPARE(m_runs, 3);
    QCOMPARE(m_shownTypes, (QList<int>{0, 1, 0}));
}

void TestPermissionGuide::recheckKeepsGuideUntilGranted()
{
    bool acceptedEarly = false;
    PermissionGuideDialog::setRunnerForTesting([&](PermissionGuideDialog *dialog) {
        ++m_runs;
        dialog->show();
        QTest::mouseClick(buttonWithText(dialog, QStringLiteral("I've enabled it, recheck")), Qt::LeftButton);
        acceptedEarly = !dialog->isVisible() || dialog->result() == QDialog::Accepted;
        m_accessibility = true; // the user enabled it meanwhile
        QTest::mouseClick(buttonWithText(dialog, QStringLiteral("I've enabled it, recheck")), Qt::LeftButton);
        return int(dialog->result());
    });
    QVERIFY(PermissionGuideDialog::ensurePermission(PermissionGuideDialog::Accessibility));
    QVERIFY(!acceptedEarly);
    QCOMPARE(m_runs, 1);
}

void TestPermissionGuide::laterLeavesPermissionMissing()
{
    int result = -1;
    PermissionGuideDialog::setRunnerForTesting([&](PermissionGuideDialog *dialog) {
        dialog->show();
        QTest::mouseClick(buttonWithText(dialog, QStringLiteral("Later")), Qt::LeftButton);
        result = dialog->result();
        return result;
    });
    QVERIFY(!PermissionGuideDialog::ensurePermission(PermissionGuideDialog::ScreenRecording));
    QCOMPARE(result, int(QDialog::Rejected));
}

void TestPermissionGuide::dialogLayoutAndTexts_data()
{
    QTest::addColumn<int>("type");
    QTest::newRow("screen recording") << int(PermissionGuideDialog::ScreenRecording);
    QTest::newRow("accessibility") << int(PermissionGuideDialog::Accessibility);
}

void TestPermissionGuide::dialogLayoutAndTexts()
{
    QFETCH(int, type);
    PermissionGuideDialog dialog{PermissionGuideDialog::PermissionType(type)};
    dialog.show();
    QVERIFY(QTest::qWaitForWindowExposed(&dialog));

    QCOMPARE(dialog.windowTitle(), QStringLiteral("Vontrel Permissions"));
    QVERIFY(dialog.windowFlags() & Qt::WindowStaysOnTopHint);
    QCOMPARE(dialog.windowModality(), Qt::ApplicationModal);
    QCOMPARE(dialog.width(), 520);
    QCOMPARE(dialog.layout()->contentsMargins(), QMargins(16, 16, 16, 16));
    QCOMPARE(dialog.layout()->spacing(), 12);

    const QList<QLabel *> labels = dialog.findChildren<QLabel *>();
    QCOMPARE(labels.size(), 2);
    QLabel *title = labels[0]->y() < labels[1]->y() ? labels[0] : labels[1];
    QLabel *body = title == labels[0] ? labels[1] : labels[0];
    QVERIFY(title->font().bold());
    QCOMPARE(title->font().pointSize(), dialog.font().pointSize() + 2);
    QVERIFY(!title->text().isEmpty());
    QVERIFY(body->wordWrap());
    QCOMPARE(body->textFormat(), Qt::RichText);
    QVERIFY(body->textInteractionFlags() & Qt::TextSelectableByMouse);
    QVERIFY(body->textInteractionFlags() & Qt::LinksAccessibleByMouse);
    QVERIFY(body->text().contains(QLatin1String("<ol>")));
    QVERIFY(body->width() <= 520);

    // Buttons from left to right; without a settings pane to open, recheck is the default.
    QStringList texts;
    for (QPushButton *button : visibleButtons(&dialog))
        texts << button->text();
    QStringList expected{"Open System Settings", "I've enabled it, recheck", "Later"};
    if (!Permissions::hasSystemSettingsPanes())
        expected.removeFirst();
    QCOMPARE(texts, expected);
    QVERIFY(buttonWithText(&dialog, expected.first())->isDefault());
}

void TestPermissionGuide::settingsPaneFallsBackToGeneralPane()
{
    QStringList opened;
    bool paneOpens = false;
    PermissionGuideDialog::setUrlOpenerForTesting([&](const QString &url) {
        opened << url;
        return paneOpens || !url.contains(u'?');
    });
    PermissionGuideDialog dialog(PermissionGuideDialog::ScreenRecording);
    dialog.openSystemSettings();
    QCOMPARE(opened,
             (QStringList{"x-apple.systempreferences:com.apple.preference.security?Privacy_ScreenCapture",
                          "x-apple.systempreferences:com.apple.preference.security"}));
    opened.clear();
    paneOpens = true;
    PermissionGuideDialog accessibility(PermissionGuideDialog::Accessibility);
    accessibility.openSystemSettings();
    QCOMPARE(opened,
             (QStringList{"x-apple.systempreferences:com.apple.preference.security?Privacy_Accessibility"}));
}

QTEST_MAIN(TestPermissionGuide)
#include "test_permissionguide.moc"
