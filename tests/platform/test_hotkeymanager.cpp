#include "FakeHotkeyBackend.h"
#include "platform/HotkeyManager.h"

#include <QSignalSpy>
#include <QTest>

namespace {

struct Fixture
{
    std::unique_ptr<FakeHotkeyBackend> owned = std::make_unique<FakeHotkeyBackend>();
    FakeHotkeyBackend *backend = owned.get();
    std::shared_ptr<FakeHotkeyBackend::State> state = owned->state();
    std::unique_ptr<HotkeyManager> manager = std::make_unique<HotkeyManager>(std::move(owned));
};

const QStringList Defaults{"install", "register 1 Meta+Shift+1", "register 3 Meta+Shift+2"};

} // namespace

class TestHotkeyManager : public QObject
{
    Q_OBJECT

private slots:
    void registration_data()
    {
        QTest::addColumn<QKeySequence>("capture");
        QTest::addColumn<QKeySequence>("clipboardText");
        QTest::addColumn<QStringList>("calls"); // after the defaults were torn down; empty: fails
        QTest::newRow("both empty") << QKeySequence() << QKeySequence() << QStringList{};
        QTest::newRow("capture empty") << QKeySequence() << QKeySequence("Ctrl+Alt+T")
                                       << QStringList{"install", "register 3 Ctrl+Alt+T"};
        QTest::newRow("second unsupported")
            << QKeySequence("Ctrl+1") << QKeySequence("Ctrl+Home") << QStringList{};
        QTest::newRow("keypad digit, enter, first chord")
            << QKeySequence(QKeyCombination(Qt::KeypadModifier | Qt::ControlModifier, Qt::Key_5))
            << QKeySequence(QKeyCombination(Qt::AltModifier, Qt::Key_Enter), Qt::CTRL | Qt::Key_B)
            << QStringList{"install", "register 1 Ctrl+5", "register 3 Alt+Return"};
    }
    void registration()
    {
        QFETCH(QKeySequence, capture);
        QFETCH(QKeySequence, clipboardText);
        QFETCH(QStringList, calls);
        Fixture f;
        QVERIFY(f.manager->registerHotkeys()); // torn down whatever the outcome of the next one
        QCOMPARE(f.manager->registerHotkeys(capture, clipboardText), !calls.isEmpty());
        QCOMPARE(f.state->calls.mid(Defaults.size() + 3), calls);
        QCOMPARE(f.state->grabbed.size(), qMax(0, calls.size() - 1));
    }

    // All or nothing: a failure gives back what was already held.
    void failureReleasesEverything()
    {
        for (int installStatus : {-50, 0}) {
            Fixture f;
            f.state->installStatus = installStatus;
            f.state->registerStatus.insert(3, -9878);
            QVERIFY(!f.manager->registerHotkeys() && !f.manager->isRegistered());
            QCOMPARE(f.state->calls, (installStatus ? QStringList{"install"}
                                                    : Defaults + QStringList{"unregister 1", "remove"}));
            QVERIFY(f.state->grabbed.isEmpty() && !f.state->handlerInstalled);
        }
    }

    void pressesArriveQueuedAndOnlyWhileAlive()
    {
        Fixture f;
        QVERIFY(f.manager->registerHotkeys());
        QSignalSpy spy(f.manager.get(), &HotkeyManager::hotkeyTriggered);
        f.backend->press(HotkeyManager::ClipboardTextHotkey);
        QCOMPARE(spy.count(), 0); // never delivered inside the native callback
        QTRY_COMPARE_WITH_TIMEOUT(spy.count(), 1, 10000);
        QCOMPARE(spy.at(0).at(0).toInt(), 3);
        f.backend->press(HotkeyManager::CaptureHotkey); // queued just before it goes
        f.manager.reset();
        QCoreApplication::processEvents();
        QCOMPARE(spy.count(), 1);
    }

    // A portal may refuse what it had accepted: the manager then holds nothing and says why.
    void laterRefusalReleasesEverything()
    {
        Fixture f;
        QVERIFY(f.manager->registerHotkeys());
        QSignalSpy failed(f.manager.get(), &HotkeyManager::registrationFailed);
        emit f.backend->bindingRefused(QStringLiteral("refused by the user"));
        QVERIFY(!f.manager->isRegistered() && f.state->grabbed.isEmpty() && !f.state->handlerInstalled);
        QCOMPARE(f.manager->lastError(), QStringLiteral("refused by the user"));
        QCOMPARE(failed.count(), 1);
    }
};

QTEST_GUILESS_MAIN(TestHotkeyManager)
#include "test_hotkeymanager.moc"
