#include "platform/PermissionGuideDialog.h"
#include "platform/Permissions.h"

#include <QPushButton>
#include <QTest>

using Guide = PermissionGuideDialog;

class TestPermissionGuide : public QObject
{
    Q_OBJECT

    qint64 m_now = 1000;
    bool m_granted[2] = {}; // by type
    QList<int> m_shown;     // types of the guides run, in order

private slots:
    void init()
    {
        Guide::resetStateForTesting();
        Guide::setClockForTesting([this]() { return m_now; });
        Permissions::setProbesForTesting([this]() { return m_granted[Guide::Accessibility]; },
                                         [this]() { return m_granted[Guide::ScreenRecording]; });
    }
    void cleanup()
    {
        Guide::setClockForTesting({});
        Guide::setRunnerForTesting({});
        Permissions::setProbesForTesting({}, {});
    }

    void oneGuideAtATimeAndThrottledPerType()
    {
        bool nested = true;
        Guide::setRunnerForTesting([&](Guide *dialog) {
            m_shown << dialog->permissionType();
            // A hotkey pressed while a guide is open, even for the other permission, only raises it.
            if (m_shown.size() == 1)
                nested = Guide::ensurePermission(Guide::Accessibility) || Guide::openGuide() == nullptr;
            return int(QDialog::Rejected);
        });
        QVERIFY(!Guide::ensurePermission(Guide::ScreenRecording));
        QVERIFY(!nested);
        m_now += 29999; // within 30 s of its last guide a type shows nothing; the other type has its own 30 s
        QVERIFY(!Guide::ensurePermission(Guide::ScreenRecording) &&
                !Guide::ensurePermission(Guide::Accessibility));
        m_now += 1;
        QVERIFY(!Guide::ensurePermission(Guide::ScreenRecording) &&
                !Guide::ensurePermission(Guide::Accessibility));
        m_granted[Guide::ScreenRecording] = true; // granted: nothing shown
        QVERIFY(Guide::ensurePermission(Guide::ScreenRecording));
        QCOMPARE(m_shown, (QList<int>{Guide::ScreenRecording, Guide::Accessibility, Guide::ScreenRecording}));
    }

    void recheckAcceptsOnlyOnceGranted()
    {
        bool acceptedEarly = true;
        Guide::setRunnerForTesting([&](Guide *dialog) {
            dialog->show();
            QPushButton *recheck = nullptr;
            for (QPushButton *b : dialog->findChildren<QPushButton *>())
                recheck = b->text().contains(QLatin1String("recheck")) ? b : recheck;
            QTest::mouseClick(recheck, Qt::LeftButton);
            acceptedEarly = !dialog->isVisible() || dialog->result() == QDialog::Accepted;
            m_granted[Guide::Accessibility] = true; // the user enabled it meanwhile
            QTest::mouseClick(recheck, Qt::LeftButton);
            return dialog->result();
        });
        QVERIFY(Guide::ensurePermission(Guide::Accessibility));
        QVERIFY(!acceptedEarly);
    }
};

QTEST_MAIN(TestPermissionGuide)
#include "test_permissionguide.moc"
