#include "FakePlatform.h"
#include "ui/PermissionGuideDialog.h"

#include <QPushButton>
#include <QTest>

using Guide = PermissionGuideDialog;

class TestPermissionGuide : public QObject
{
    Q_OBJECT

    qint64 m_now = 1000;
    FakePlatform m_platform;
    bool *m_granted = m_platform.granted; // by Platform::Permission
    QList<int> m_shown;                   // types of the guides run, in order

private slots:
    void init()
    {
        Guide::resetStateForTesting();
        Guide::setClockForTesting([this]() { return m_now; });
        m_granted[0] = m_granted[1] = false;
    }
    void cleanup()
    {
        Guide::setClockForTesting({});
        Guide::setRunnerForTesting({});
    }

    void oneGuideAtATimeAndThrottledPerType()
    {
        bool nested = true;
        Guide::setRunnerForTesting([&](Guide *dialog) {
            m_shown << dialog->permissionType();
            // A hotkey pressed while a guide is open, even for the other permission, only raises it.
            if (m_shown.size() == 1)
                nested = Guide::ensurePermission(m_platform, Guide::Accessibility) ||
                         Guide::openGuide() == nullptr;
            return int(QDialog::Rejected);
        });
        QVERIFY(!Guide::ensurePermission(m_platform, Guide::ScreenRecording));
        QVERIFY(!nested);
        m_now += 29999; // within 30 s of its last guide a type shows nothing; the other type has its own 30 s
        QVERIFY(!Guide::ensurePermission(m_platform, Guide::ScreenRecording) &&
                !Guide::ensurePermission(m_platform, Guide::Accessibility));
        m_now += 1;
        QVERIFY(!Guide::ensurePermission(m_platform, Guide::ScreenRecording) &&
                !Guide::ensurePermission(m_platform, Guide::Accessibility));
        m_granted[int(Platform::Permission::ScreenRecording)] = true; // granted: nothing shown
        QVERIFY(Guide::ensurePermission(m_platform, Guide::ScreenRecording));
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
            m_granted[int(Platform::Permission::Accessibility)] = true; // the user enabled it meanwhile
            QTest::mouseClick(recheck, Qt::LeftButton);
            return dialog->result();
        });
        QVERIFY(Guide::ensurePermission(m_platform, Guide::Accessibility));
        QVERIFY(!acceptedEarly);
    }
};

QTEST_MAIN(TestPermissionGuide)
#include "test_permissionguide.moc"
