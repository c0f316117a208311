#include "FakeHotkeyBackend.h"
#include "platform/HotkeyKeys.h"
#include "platform/HotkeyManager.h"

#include <QSignalSpy>
#include <QTest>

namespace {

struct Fixture
{
    std::shared_ptr<FakeHotkeyBackend::State> state;
    std::unique_ptr<HotkeyManager> manager;
};

Fixture makeManager()
{
    auto backend = std::make_unique<FakeHotkeyBackend>();
    Fixture f{backend->state(), nullptr};
    f.manager = std::make_unique<HotkeyManager>(std::move(backend));
    return f;
}

QList<int> grabbedIds(const FakeHotkeyBackend::State &state)
{
    return state.grabbed.keys();
}

} // namespace

class TestHotkeyManager : public QObject
{
    Q_OBJECT

private slots:
    void registration_data();
    void registration();
    void failureReleasesEverything_data();
    void failureReleasesEverything();
    void reRegistrationTearsDownFirst();
    void unregisterIsSafeAndKeepsError();
    void pressesArriveQueuedAndOnlyWhileAlive();
    void macKeyCodes_data();
    void macKeyCodes();
    void macModifierMask_data();
    void macModifierMask();
};

void TestHotkeyManager::registration_data()
{
    QTest::addColumn<QKeySequence>("capture");
    QTest::addColumn<QKeySequence>("clipboardText");
    QTest::addColumn<bool>("ok");
    QTest::addColumn<QString>("error");
    QTest::addColumn<QStringList>("registered"); // backend calls "register <id> <chord>"

    const QKeySequence none;
    QTest::newRow("defaults") << HotkeyManager::defaultCaptureHotkey()
                              << HotkeyManager::defaultClipboardTextHotkey() << true << QString()
                              << QStringList{"register 1 Meta+Shift+1", "register 3 Meta+Shift+2"};
    QTest::newRow("both empty") << none << none << false << "No hotkeys configured" << QStringList{};
    QTest::newRow("capture empty") << none << QKeySequence("Ctrl+Alt+T") << true << QString()
                                   << QStringList{"register 3 Ctrl+Alt+T"};
    QTest::newRow("clipboard text empty")
        << QKeySequence("Ctrl+F5") << none << true << QString() << QStringList{"register 1 Ctrl+F5"};
    QTest::newRow("no modifier") << QKeySequence("A") << none << false << "Unsupported capture hotkey: A"
                                 << QStringList{};
    QTest::newRow("home") << QKeySequence("Ctrl+Home") << none << false
                          << "Unsupported capture hotkey: Ctrl+Home" << QStringList{};
    QTest::newRow("delete") << QKeySequence("Ctrl+Shift+1") << QKeySequence("Ctrl+Del") << false
                            << "Unsupported clipboard text hotkey: Ctrl+Del" << QStringList{};
    QTest::newRow("F13") << QKeySequence("Ctrl+F13") << none << false
                         << "Unsupported capture hotkey: Ctrl+F13" << QStringList{};
    QTest::newRow("comma") << none << QKeySequence("Ctrl+,") << false
                           << "Unsupported clipboard text hotkey: Ctrl+," << QStringList{};
    QTest::newRow("keypad digit alone")
        << QKeySequence(QKeyCombination(Qt::KeypadModifier, Qt::Key_5)) << none << false
        << "Unsupported capture hotkey: Num+5" << QStringList{};
    QTest::newRow("keypad digit with Ctrl")
        << QKeySequence(QKeyCombination(Qt::KeypadModifier | Qt::ControlModifier, Qt::Key_5)) << none << true
        << QString() << QStringList{"register 1 Ctrl+5"};
    QTest::newRow("enter is return") << QKeySequence(QKeyCombination(Qt::AltModifier, Qt::Key_Enter)) << none
                                     << true << QString() << QStringList{"register 1 Alt+Return"};
    QTest::newRow("two chords: first only")
        << QKeySequence("Ctrl+A, Ctrl+B") << none << true << QString() << QStringList{"register 1 Ctrl+A"};
}

void TestHotkeyManager::registration()
{
    QFETCH(QKeySequence, capture);
    QFETCH(QKeySequence, clipboardText);
    QFETCH(bool, ok);
    QFETCH(QString, error);
    QFETCH(QStringList, registered);

    Fixture f = makeManager();
    // A previous registration must be gone whatever the outcome.
    QVERIFY(f.manager->registerHotkeys());
    f.state->calls.clear();

    QCOMPARE(f.manager->registerHotkeys(capture, clipboardText), ok);
    QCOMPARE(f.manager->isRegistered(), ok);
    QCOMPARE(f.manager->lastError(), error);
    QCOMPARE(f.manager->lastError().isNull(), ok);
    QStringList registerCalls = f.state->calls.filter(QStringLiteral("register "));
    registerCalls.removeIf([](const QString &c) { return c.startsWith(QLatin1String("unregister")); });
    QCOMPARE(registerCalls, registered);
    QCOMPARE(f.state->grabbed.size(), registered.size());
    QCOMPARE(f.state->handlerInstalled, ok);
}

void TestHotkeyManager::failureReleasesEverything_data()
{
    QTest::addColumn<int>("installStatus");
    QTest::addColumn<int>("failingId");
    QTest::addColumn<QString>("backendError");
    QTest::addColumn<QString>("error");
    QTest::addColumn<QStringList>("calls");

    QTest::newRow("handler") << -50 << 0 << QString() << "InstallApplicationEventHandler failed (status=-50)"
                             << QStringList{"install"};
    QTest::newRow("capture") << 0 << 1 << QString() << "RegisterEventHotKey failed for capture (status=-9878)"
                             << QStringList{"install", "register 1 Meta+Shift+1", "remove"};
    QTest::newRow("clipboard text after capture")
        << 0 << 3 << QString() << "RegisterEventHotKey failed for clipboard text (status=-9878)"
        << QStringList{"install", "register 1 Meta+Shift+1", "register 3 Meta+Shift+2", "unregister 1",
                       "remove"};
    QTest::newRow("backend names the reason")
        << 0 << 3 << "Cannot register the clipboard text hotkey Meta+Shift+2: taken"
        << "Cannot register the clipboard text hotkey Meta+Shift+2: taken"
        << QStringList{"install", "register 1 Meta+Shift+1", "register 3 Meta+Shift+2", "unregister 1",
                       "remove"};
}

void TestHotkeyManager::failureReleasesEverything()
{
    QFETCH(int, installStatus);
    QFETCH(int, failingId);
    QFETCH(QString, backendError);
    QFETCH(QString, error);
    QFETCH(QStringList, calls);

    Fixture f = makeManager();
    f.state->installStatus = installStatus;
    if (failingId)
        f.state->registerStatus.insert(failingId, -9878);
    f.state->errorText = backendError;

    QVERIFY(!f.manager->registerHotkeys());
    QCOMPARE(f.manager->lastError(), error);
    QVERIFY(!f.manager->isRegistered());
    QCOMPARE(f.state->calls, calls);
    QVERIFY(f.state->grabbed.isEmpty());
    QVERIFY(!f.state->handlerInstalled);
}

void TestHotkeyManager::reRegistrationTearsDownFirst()
{
    Fixture f = makeManager();
    QVERIFY(f.manager->registerHotkeys());
    QVERIFY(f.manager->registerHotkeys(QKeySequence("Ctrl+Alt+1"), QKeySequence("Ctrl+Alt+2")));
    QCOMPARE(f.state->calls, (QStringList{"install", "register 1 Meta+Shift+1", "register 3 Meta+Shift+2",
                                          "unregister 1", "unregister 3", "remove", "install",
                                          "register 1 Ctrl+Alt+1", "register 3 Ctrl+Alt+2"}));
    QCOMPARE(grabbedIds(*f.state), (QList<int>{1, 3}));

    // Destruction releases the hotkeys.
    f.state->calls.clear();
    f.manager.reset();
    QCOMPARE(f.state->calls, (QStringList{"unregister 1", "unregister 3", "remove"}));
}

void TestHotkeyManager::unregisterIsSafeAndKeepsError()
{
    Fixture f = makeManager();
    f.manager->unregisterHotkeys();
    QVERIFY(f.state->calls.isEmpty());

    QTest::ignoreMessage(QtWarningMsg,
                         "HotkeyManager(fake): map capture hotkey failed: Unsupported capture hotkey: A");
    QVERIFY(!f.manager->registerHotkeys(QKeySequence("A"), QKeySequence()));
    f.manager->unregisterHotkeys();
    QCOMPARE(f.manager->lastError(), QStringLiteral("Unsupported capture hotkey: A"));

    QVERIFY(f.manager->registerHotkeys());
    f.manager->unregisterHotkeys();
    QVERIFY(f.state->grabbed.isEmpty());
    QVERIFY(!f.state->handlerInstalled);
    QVERIFY(!f.manager->isRegistered());
    QVERIFY(f.manager->lastError().isNull());
}

void TestHotkeyManager::pressesArriveQueuedAndOnlyWhileAlive()
{
    Fixture f = makeManager();
    QVERIFY(f.manager->registerHotkeys());
    QSignalSpy spy(f.manager.get(), &HotkeyManager::hotkeyTriggered);

    HotkeyManager::dispatchHotkeyPress(HotkeyManager::ClipboardTextHotkey);
    HotkeyManager::dispatchHotkeyPress(HotkeyManager::CaptureHotkey);
    // Never delivered inside the native callback.
    QCOMPARE(spy.count(), 0);
    QTRY_COMPARE_WITH_TIMEOUT(spy.count(), 2, 10000);
    QCOMPARE(spy.at(0).at(0).toInt(), 3);
    QCOMPARE(spy.at(1).at(0).toInt(), 1);

    // A press queued just before the manager goes away, and one after: neither reaches anything.
    HotkeyManager::dispatchHotkeyPress(HotkeyManager::CaptureHotkey);
    f.manager.reset();
    HotkeyManager::dispatchHotkeyPress(HotkeyManager::CaptureHotkey);
    QCoreApplication::processEvents();
    QCOMPARE(spy.count(), 2);
}

void TestHotkeyManager::macKeyCodes_data()
{
    QTest::addColumn<int>("key");
    QTest::addColumn<int>("code");

    // kVK_ANSI_* follow the keyboard's physical layout.
    const char letters[] =
        "A 0, B 11, C 8, D 2, E 14, F 3, G 5, H 4, I 34, J 38, K 40, L 37, M 46, N 45, O 31, "
        "P 35, Q 12, R 15, S 1, T 17, U 32, V 9, W 13, X 7, Y 16, Z 6";
    const char digits[] = "0 29, 1 18, 2 19, 3 20, 4 21, 5 23, 6 22, 7 26, 8 28, 9 25";
    for (const char *table : {letters, digits}) {
        for (const QString &entry : QString::fromLatin1(table).split(QStringLiteral(", "))) {
            const QStringList parts = entry.split(u' ');
            const int key = parts[0].at(0).unicode(); // Qt::Key_A == 'A', Qt::Key_0 == '0'
            QTest::addRow("%s", qPrintable(parts[0])) << key << parts[1].toInt();
        }
    }
    const int functionCodes[] = {122, 120, 99, 118, 96, 97, 98, 100, 101, 109, 103, 111};
    for (int i = 0; i < 12; ++i)
        QTest::addRow("F%d", i + 1) << int(Qt::Key_F1 + i) << functionCodes[i];
    QTest::newRow("Escape") << int(Qt::Key_Escape) << 53;
    QTest::newRow("Tab") << int(Qt::Key_Tab) << 48;
    QTest::newRow("Backspace") << int(Qt::Key_Backspace) << 51;
    QTest::newRow("Return") << int(Qt::Key_Return) << 36;
    QTest::newRow("Enter") << int(Qt::Key_Enter) << 36;
    QTest::newRow("Left") << int(Qt::Key_Left) << 123;
    QTest::newRow("Up") << int(Qt::Key_Up) << 126;
    QTest::newRow("Right") << int(Qt::Key_Right) << 124;
    QTest::newRow("Down") << int(Qt::Key_Down) << 125;
    QTest::newRow("Space") << int(Qt::Key_Space) << 49;
    for (Qt::Key unsupported : {Qt::Key_Backtab, Qt::Key_Insert, Qt::Key_Delete, Qt::Key_Pause, Qt::Key_Print,
                                Qt::Key_SysReq, Qt::Key_Clear, Qt::Key_Home, Qt::Key_End, Qt::Key_PageUp,
                                Qt::Key_PageDown, Qt::Key_F13, Qt::Key_F35, Qt::Key_Comma, Qt::Key_Exclam})
        QTest::addRow("unsupported %s", qPrintable(QKeySequence(unsupported).toString()))
            << int(unsupported) << -1;
}

void TestHotkeyManager::macKeyCodes()
{
    QFETCH(int, key);
    QFETCH(int, code);
    QCOMPARE(vontrelMacVirtualKeyCode(Qt::Key(key)), code);
}

void TestHotkeyManager::macModifierMask_data()
{
    QTest::addColumn<int>("modifiers");
    QTest::addColumn<uint>("mask");
    QTest::newRow("Meta+Shift is Command+Shift") << int(Qt::MetaModifier | Qt::ShiftModifier) << 0x0300u;
    QTest::newRow("Control stays Control") << int(Qt::ControlModifier) << 0x1000u;
    QTest::newRow("Alt is Option") << int(Qt::AltModifier) << 0x0800u;
    QTest::newRow("all four") << int(Qt::MetaModifier | Qt::ShiftModifier | Qt::AltModifier |
                                     Qt::ControlModifier)
                              << 0x1B00u;
    QTest::newRow("keypad adds nothing") << int(Qt::KeypadModifier | Qt::ShiftModifier) << 0x0200u;
}

void TestHotkeyManager::macModifierMask()
{
    QFETCH(int, modifiers);
    QFETCH(uint, mask);
    QCOMPARE(vontrelMacModifierMask(Qt::KeyboardModifiers(modifiers)), quint32(mask));
}

QTEST_GUILESS_MAIN(TestHotkeyManager)
#include "test_hotkeymanager.moc"
