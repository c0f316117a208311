#include "FakeHotkeyBackend.h"
#include "platform/HotkeyManager.h"

#include <QRegularExpression>
#include <QSignalSpy>
#include <QTest>

namespace {

struct Fixture
{
    std::unique_ptr<FakeHotkeyBackend> backend = std::make_unique<FakeHotkeyBackend>();
    std::shared_ptr<FakeHotkeyBackend::State> state = backend->state();
    std::unique_ptr<HotkeyManager> manager = std::make_unique<HotkeyManager>(std::move(backend));
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
        QTest::addColumn<QString>("error"); // null: success
        QTest::addColumn<QStringList>("registered");
        const QKeySequence none;
        const QKeySequence keypad5(QKeyCombination(Qt::KeypadModifier, Qt::Key_5));
        QTest::newRow("both empty") << none << none << "No hotkeys configured" << QStringList{};
        QTest::newRow("capture empty")
            << none << QKeySequence("Ctrl+Alt+T") << QString() << QStringList{"register 3 Ctrl+Alt+T"};
        QTest::newRow("no modifier") << keypad5 << none << "Unsupported capture hotkey: Num+5"
                                     << QStringList{};
        QTest::newRow("unsupported key")
            << QKeySequence("Ctrl+F13") << none << "Unsupported capture hotkey: Ctrl+F13" << QStringList{};
        QTest::newRow("second unsupported")
            << QKeySequence("Ctrl+1") << QKeySequence("Ctrl+Home")
            << "Unsupported clipboard text hotkey: Ctrl+Home" << QStringList{};
        QTest::newRow("keypad digit, enter, first chord")
            << QKeySequence(QKeyCombination(Qt::KeypadModifier | Qt::ControlModifier, Qt::Key_5))
            << QKeySequence(QKeyCombination(Qt::AltModifier, Qt::Key_Enter), Qt::CTRL | Qt::Key_B)
            << QString() << QStringList{"register 1 Ctrl+5", "register 3 Alt+Return"};
    }
    void registration()
    {
        QFETCH(QKeySequence, capture);
        QFETCH(QKeySequence, clipboardText);
        QFETCH(QString, error);
        QFETCH(QStringList, registered);
        Fixture f;
        f.manager->unregisterHotkeys();        // safe with nothing registered
        QVERIFY(f.manager->registerHotkeys()); // torn down whatever the outcome of the next one
        QCOMPARE(f.manager->registerHotkeys(capture, clipboardText), error.isNull());
        QCOMPARE(f.manager->isRegistered(), error.isNull());
        QCOMPARE(f.manager->lastError(), error);
        QCOMPARE(f.state->calls.mid(Defaults.size()).filter(QRegularExpression("^(install|register)")),
                 (error.isNull() ? QStringList{"install"} + registered : QStringList{}));
        QCOMPARE(f.state->grabbed.size(), registered.size());
        QCOMPARE(f.state->handlerInstalled, error.isNull());
    }

    void failureReleasesEverything_data()
    {
        QTest::addColumn<int>("installStatus");
        QTest::addColumn<QString>("backendError");
        QTest::addColumn<QString>("error");
        QTest::newRow("handler") << -50 << QString() << "InstallApplicationEventHandler failed (status=-50)";
        QTest::newRow("clipboard text after capture")
            << 0 << QString() << "RegisterEventHotKey failed for clipboard text (status=-9878)";
        QTest::newRow("backend names the reason")
            << 0 << "Cannot register the clipboard text hotkey Meta+Shift+2: taken"
            << "Cannot register the clipboard text hotkey Meta+Shift+2: taken";
    }
    void failureReleasesEverything()
    {
        QFETCH(int, installStatus);
        Fixture f;
        f.state->installStatus = installStatus;
        f.state->registerStatus.insert(3, -9878);
        QFETCH(QString, backendError);
        f.state->errorText = backendError;
        QVERIFY(!f.manager->registerHotkeys());
        QTEST(f.manager->lastError(), "error");
        QVERIFY(!f.manager->isRegistered());
        QCOMPARE(f.state->calls,
                 (installStatus ? QStringList{"install"} : Defaults + QStringList{"unregister 1", "remove"}));
        QVERIFY(f.state->grabbed.isEmpty() && !f.state->handlerInstalled);
    }

    void reRegistrationTearsDownFirst()
    {
        Fixture f;
        QVERIFY(f.manager->registerHotkeys());
        QVERIFY(f.manager->registerHotkeys(QKeySequence("Ctrl+Alt+1"), QKeySequence("Ctrl+Alt+2")));
        f.manager.reset(); // destruction releases them
        QCOMPARE(f.state->calls, (Defaults + QStringList{"unregister 1", "unregister 3", "remove", "install",
                                                         "register 1 Ctrl+Alt+1", "register 3 Ctrl+Alt+2",
                                                         "unregister 1", "unregister 3", "remove"}));
    }

    void pressesArriveQueuedAndOnlyWhileAlive()
    {
        Fixture f;
        QVERIFY(f.manager->registerHotkeys());
        QSignalSpy spy(f.manager.get(), &HotkeyManager::hotkeyTriggered);
        HotkeyManager::dispatchHotkeyPress(HotkeyManager::ClipboardTextHotkey);
        HotkeyManager::dispatchHotkeyPress(HotkeyManager::CaptureHotkey);
        QCOMPARE(spy.count(), 0); // never delivered inside the native callback
        QTRY_COMPARE_WITH_TIMEOUT(spy.count(), 2, 10000);
        QCOMPARE(spy.at(0).at(0).toInt() * 10 + spy.at(1).at(0).toInt(), 31);
        // A press queued just before the manager goes away, and one after: neither reaches anything.
        HotkeyManager::dispatchHotkeyPress(HotkeyManager::CaptureHotkey);
        f.manager.reset();
        HotkeyManager::dispatchHotkeyPress(HotkeyManager::CaptureHotkey);
        QCoreApplication::processEvents();
        QCOMPARE(spy.count(), 2);
    }

    void macKeyCodesAndModifiers()
    {
        // kVK_ANSI_* follow the physical layout; Qt::Key_A == 'A'.
        const QString table = "A0 B11 C8 D2 E14 F3 G5 H4 I34 J38 K40 L37 M46 N45 O31 P35 Q12 R15 S1 T17 U32 "
                              "V9 W13 X7 Y16 Z6 029 118 219 320 421 523 622 726 828 925";
        for (const QString &entry : table.split(u' '))
            QCOMPARE(vontrelMacVirtualKeyCode(Qt::Key(entry.at(0).unicode())), entry.mid(1).toInt());
        const int codes[] = {122, 120, 99, 118, 96, 97, 98, 100, 101, 109, 103, 111};
        for (int i = 0; i < 12; ++i)
            QCOMPARE(vontrelMacVirtualKeyCode(Qt::Key(Qt::Key_F1 + i)), codes[i]);
        const std::pair<Qt::Key, int> named[] = {
            {Qt::Key_Escape, 53},  {Qt::Key_Tab, 48},   {Qt::Key_Backspace, 51}, {Qt::Key_Return, 36},
            {Qt::Key_Enter, 36},   {Qt::Key_Left, 123}, {Qt::Key_Up, 126},       {Qt::Key_Right, 124},
            {Qt::Key_Down, 125},   {Qt::Key_Space, 49}, {Qt::Key_Home, -1},      {Qt::Key_Delete, -1},
            {Qt::Key_Backtab, -1}, {Qt::Key_F13, -1},   {Qt::Key_Comma, -1},     {Qt::Key_Exclam, -1}};
        for (const auto &[key, code] : named)
            QCOMPARE(vontrelMacVirtualKeyCode(key), code);
        // Meta becomes Command, Control stays Control, Alt is Option; the keypad flag adds nothing.
        QCOMPARE(vontrelMacModifierMask(Qt::MetaModifier | Qt::ShiftModifier | Qt::KeypadModifier), 0x0300u);
        QCOMPARE(vontrelMacModifierMask(Qt::ControlModifier | Qt::AltModifier), 0x1800u);
    }
};

QTEST_GUILESS_MAIN(TestHotkeyManager)
#include "test_hotkeymanager.moc"
