#include "platform/PermissionGuideDialog.h"
#include "platform/Permissions.h"

#include <QLabel>
#include <QPushButton>
#include <QTest>

#include <algorithm>

using Guide = PermissionGuideDialog;

class TestPermissionGuide : public QObject
{
    Q_OBJECT

    qint64 m_now = 0;
    bool m_granted[2] = {}; // by type
    QList<int> m_shown;     // types of the guides run, in order

    // Runs every guide through the function instead of a modal loop.
    void run(const std::function<int(Guide *)> &body)
    {
        Guide::setRunnerForTesting([this, body](Guide *dialog) {
            m_shown << dialog->permissionType();
            return body(dialog);
        });
    }
    // The visible buttons from left to right.
    static QList<QPushButton *> buttons(const QDialog *dialog)
    {
        QList<QPushButton *> list = dialog->findChildren<QPushButton *>();
        list.removeIf([](const QPushButton *b) { return b->isHidden(); });
        std::sort(list.begin(), list.end(), [](auto *a, auto *b) { return a->x() < b->x(); });
        return list;
    }

private slots:
    void init()
    {
        m_now = 1000;
        m_granted[0] = m_granted[1] = false;
        m_shown.clear();
        Guide::resetStateForTesting();
        Guide::setClockForTesting([this]() { return m_now; });
        Permissions::setProbesForTesting([this]() { return m_granted[Guide::Accessibility]; },
                                         [this]() { return m_granted[Guide::ScreenRecording]; });
        run([](Guide *) { return int(QDialog::Rejected); });
    }
    void cleanup()
    {
        Guide::setClockForTesting({});
        Guide::setRunnerForTesting({});
        Guide::setUrlOpenerForTesting({});
        Permissions::setProbesForTesting({}, {});
    }

    void oneGuideAtATimeAndThrottledPerType()
    {
        bool nested = true;
        run([&](Guide *) {
            // A hotkey pressed while a guide is open, even for the other permission, only raises it.
            if (m_shown.size() == 1)
                nested = Guide::ensurePermission(Guide::Accessibility) || Guide::openGuide() == nullptr;
            return int(QDialog::Rejected);
        });
        QVERIFY(!Guide::ensurePermission(Guide::ScreenRecording));
        QVERIFY(!nested);
        QCOMPARE(Guide::openGuide(), nullptr);
        m_now += 29999; // within 30 s of its last guide a type shows nothing; the other type has its own 30 s
        QVERIFY(!Guide::ensurePermission(Guide::ScreenRecording));
        QVERIFY(!Guide::ensurePermission(Guide::Accessibility));
        m_now += 1;
        QVERIFY(!Guide::ensurePermission(Guide::ScreenRecording));
        QVERIFY(!Guide::ensurePermission(Guide::Accessibility));
        m_granted[Guide::ScreenRecording] = true; // granted: nothing shown
        QVERIFY(Guide::ensurePermission(Guide::ScreenRecording));
        QCOMPARE(m_shown, (QList<int>{Guide::ScreenRecording, Guide::Accessibility, Guide::ScreenRecording}));
    }

    void laterAndRecheck()
    {
        bool acceptedEarly = true;
        run([&](Guide *dialog) {
            dialog->show();
            const QList<QPushButton *> b = buttons(dialog); // [Open System Settings,] recheck, Later
            if (dialog->permissionType() == Guide::ScreenRecording) {
                QTest::mouseClick(b.last(), Qt::LeftButton);
                return dialog->result();
            }
            QTest::mouseClick(b[b.size() - 2], Qt::LeftButton);
            acceptedEarly = !dialog->isVisible() || dialog->result() == QDialog::Accepted;
            m_granted[Guide::Accessibility] = true; // the user enabled it meanwhile
            QTest::mouseClick(b[b.size() - 2], Qt::LeftButton);
            return dialog->result();
        });
        QVERIFY(!Guide::ensurePermission(Guide::ScreenRecording));
        QVERIFY(Guide::ensurePermission(Guide::Accessibility));
        QVERIFY(!acceptedEarly);
    }

    void dialogTextsAndButtons_data()
    {
        QTest::addColumn<int>("type");
        QTest::addColumn<QString>("title");
        const bool panes = Permissions::hasSystemSettingsPanes();
        QTest::newRow("screen recording")
            << int(Guide::ScreenRecording)
            << (panes ? "Screen Recording permission required" : "Screen capture needs an X11 session");
        QTest::newRow("accessibility")
            << int(Guide::Accessibility)
            << (panes ? "Accessibility permission required" : "Reading the selection needs an X11 session");
    }
    void dialogTextsAndButtons()
    {
        QFETCH(int, type);
        QFETCH(QString, title);
        Guide dialog{Guide::PermissionType(type)};
        dialog.show();
        QVERIFY(QTest::qWaitForWindowExposed(&dialog));
        QCOMPARE(dialog.windowTitle(), QStringLiteral("Vontrel Permissions"));
        QVERIFY(dialog.windowFlags() & Qt::WindowStaysOnTopHint);
        QStringList texts;
        for (const QLabel *label : dialog.findChildren<QLabel *>())
            texts << label->text();
        QVERIFY2(texts.contains(title), qPrintable(texts.join(u'\n')));
        // Without a settings pane to open, recheck comes first and is the default.
        texts.clear();
        for (const QPushButton *b : buttons(&dialog))
            texts << b->text();
        QStringList expected{"Open System Settings", "I've enabled it, recheck", "Later"};
        QCOMPARE(texts, Permissions::hasSystemSettingsPanes() ? expected : expected.mid(1));
        QVERIFY(buttons(&dialog).first()->isDefault());
    }

    void settingsPaneFallsBackToGeneralPane()
    {
        QStringList opened;
        Guide::setUrlOpenerForTesting([&](const QString &url) {
            opened << url;
            return !url.contains(QLatin1String("ScreenCapture"));
        });
        Guide(Guide::ScreenRecording).openSystemSettings();
        Guide(Guide::Accessibility).openSystemSettings();
        const QString pane = QStringLiteral("x-apple.systempreferences:com.apple.preference.security");
        QCOMPARE(opened,
                 (QStringList{pane + "?Privacy_ScreenCapture", pane, pane + "?Privacy_Accessibility"}));
    }
};

QTEST_MAIN(TestPermissionGuide)
#include "test_permissionguide.moc"
