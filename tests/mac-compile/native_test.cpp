// Runs the Mac layers against the recording stubs of sdk/: what they ask of the system, in what order, and
// that every native object they create is released exactly once.
#include "StubRecorder.h"

#include "platform/HotkeyManager.h"
#include "platform/mac/MacCf.h"
#include "platform/mac/MacNative.h"
#include "platform/mac/MacOcrAdapter.h"
#include "platform/mac/MacPlatform.h"

#include <QSignalSpy>
#include <QTest>

namespace {

int releasesOf(CFTypeRef ref)
{
    const auto it = stubRecorder().releases.find(ref);
    return it == stubRecorder().releases.end() ? 0 : it->second;
}

constexpr OSType kSignature = ('v' << 24) | ('o' << 16) | ('n' << 8) | 't';

} // namespace

class MacNativeTest : public QObject
{
    Q_OBJECT

private slots:
    void init() { stubRecorder().reset(); }

    void cfRefReleasesOnce()
    {
        int value = 0;
        auto *first = static_cast<CFTypeRef>(&value);
        auto *second = static_cast<CFTypeRef>(&value + 1);
        {
            CfRef<CFTypeRef> held(first);
            CfRef<CFTypeRef> moved(std::move(held));
            QCOMPARE(releasesOf(first), 0);
            *moved.out() = second; // a Copy call writing over a held value releases the old one first
            QCOMPARE(releasesOf(first), 1);
            CfRef<CFTypeRef> handedOn(moved.take());
            QCOMPARE(releasesOf(second), 0);
        }
        QCOMPARE(releasesOf(first), 1);
        QCOMPARE(releasesOf(second), 1);
    }

    void copyKeystroke_data()
    {
        QTest::addColumn<bool>("trusted");
        QTest::addColumn<int>("creatable");
        QTest::addColumn<bool>("sent");
        QTest::newRow("both events") << true << 2 << true;
        QTest::newRow("release event fails") << true << 1 << false;
        QTest::newRow("no events") << true << 0 << false;
        // The system would drop the events silently; none are even made.
        QTest::newRow("not trusted for Accessibility") << false << 2 << false;
    }
    void copyKeystroke()
    {
        QFETCH(bool, trusted);
        QFETCH(int, creatable);
        QFETCH(bool, sent);
        StubRecorder &recorder = stubRecorder();
        recorder.accessibilityTrusted = trusted;
        recorder.keyEventsToCreate = creatable;

        MacPlatform platform;
        QCOMPARE(platform.sendCopyKeystroke(), sent);

        QCOMPARE(int(recorder.keyEvents.size()), trusted ? creatable : 0);
        for (const auto &[event, keyEvent] : recorder.keyEvents) {
            QCOMPARE(keyEvent.key, CGKeyCode(8));
            QCOMPARE(releasesOf(event), 1);
        }
        if (!sent) {
            QVERIFY(recorder.posted.empty());
            return;
        }
        QCOMPARE(int(recorder.posted.size()), 2);
        const StubKeyEvent &press = recorder.keyEvents[recorder.posted[0].second];
        const StubKeyEvent &release = recorder.keyEvents[recorder.posted[1].second];
        QVERIFY(press.down);
        QVERIFY(!release.down);
        // Command alone: the Shift or Control of the hotkey, still held, must not turn the copy into another
        // command.
        QCOMPARE(press.flags, kCGEventFlagMaskCommand);
        QCOMPARE(release.flags, kCGEventFlagMaskCommand);
        QCOMPARE(recorder.posted[0].first, kCGHIDEventTap);
        QCOMPARE(recorder.posted[1].first, kCGHIDEventTap);
    }

    void hotkeysRegisterAndDeliverQueued()
    {
        StubRecorder &recorder = stubRecorder();
        HotkeyManager manager(macCreateHotkeyBackend());
        QVERIFY(manager.registerHotkeys(QKeySequence(Qt::META | Qt::SHIFT | Qt::Key_1),
                                        QKeySequence(Qt::CTRL | Qt::ALT | Qt::Key_F2)));

        QCOMPARE(recorder.handlersInstalled, 1);
        QCOMPARE(int(recorder.handledTypes.size()), 1);
        QCOMPARE(recorder.handledTypes[0].eventClass, OSType(kEventClassKeyboard));
        QCOMPARE(recorder.handledTypes[0].eventKind, UInt32(kEventHotKeyPressed));
        QMap<UInt32, StubHotKey> byId;
        for (const auto &[ref, hotKey] : recorder.hotKeys)
            byId.insert(hotKey.id.id, hotKey);
        QCOMPARE(byId.keys(), (QList<UInt32>{1, 3}));
        QCOMPARE(byId[1].id.signature, kSignature);
        QCOMPARE(byId[1].keyCode, UInt32(18));       // kVK_ANSI_1
        QCOMPARE(byId[1].modifiers, UInt32(0x0300)); // cmdKey | shiftKey
        QCOMPARE(byId[3].keyCode, UInt32(120));      // kVK_F2
        QCOMPARE(byId[3].modifiers, UInt32(0x1800)); // controlKey | optionKey

        QSignalSpy triggered(&manager, &HotkeyManager::hotkeyTriggered);
        const auto press = [&recorder] {
            return recorder.handler(nullptr, nullptr, recorder.handlerUserData);
        };
        recorder.pressedId = {kSignature, 3};
        QCOMPARE(press(), OSStatus(noErr));
        QCOMPARE(triggered.count(), 0); // never inside the Carbon callback
        QVERIFY(triggered.wait(1000));
        QCOMPARE(triggered.at(0).at(0).toInt(), 3);
        // A press whose id cannot be read is dropped rather than guessed.
        recorder.pressedStatus = -9870; // eventParameterNotFoundErr
        QCOMPARE(press(), OSStatus(noErr));
        QTest::qWait(50);
        QCOMPARE(triggered.count(), 1);

        manager.unregisterHotkeys();
        QCOMPARE(recorder.handlersInstalled, 0);
        for (const auto &[ref, hotKey] : recorder.hotKeys)
            QVERIFY(!hotKey.registered);
    }

    void hotkeyTakenElsewhereUndoesTheOther()
    {
        StubRecorder &recorder = stubRecorder();
        recorder.registerStatuses = {noErr, -9878}; // eventHotKeyExistsErr for the second
        HotkeyManager manager(macCreateHotkeyBackend());
        QVERIFY(!manager.registerHotkeys(QKeySequence(Qt::META | Qt::SHIFT | Qt::Key_1),
                                         QKeySequence(Qt::META | Qt::SHIFT | Qt::Key_2)));
        QCOMPARE(manager.lastError(),
                 QStringLiteral("RegisterEventHotKey failed for clipboard text (status=-9878)"));
        QCOMPARE(int(recorder.hotKeys.size()), 1);
        QVERIFY(!recorder.hotKeys.begin()->second.registered);
        QCOMPARE(recorder.handlersInstalled, 0);
    }

    void visionLanguages_data()
    {
        QTest::addColumn<QStringList>("supported");
        QTest::addColumn<QStringList>("chosen");
        QTest::addColumn<int>("chinese");
        QTest::newRow("Chinese first, others dropped") << QStringList{"en-US", "fr-FR", "zh-Hans", "zh-Hant"}
                                                       << QStringList{"zh-Hans", "zh-Hant", "en-US"} << 2;
        QTest::newRow("bare codes") << QStringList{"en", "zh"} << QStringList{"zh", "en"} << 1;
        QTest::newRow("look-alikes are other languages")
            << QStringList{"zhx", "eng-GB", "de-DE"} << QStringList{} << 0;
    }
    void visionLanguages()
    {
        QFETCH(QStringList, supported);
        QFETCH(QStringList, chosen);
        QFETCH(int, chinese);
        qsizetype chineseCount = -1;
        QCOMPARE(MacOcrAdapter::recognitionLanguages(supported, &chineseCount), chosen);
        QCOMPARE(int(chineseCount), chinese);
    }

    void recognisedLinesJoined()
    {
        QString text;
        for (const QString &line : {QString(), QStringLiteral("first"), QStringLiteral("second"), QString(),
                                    QStringLiteral("third")})
            MacOcrAdapter::appendLine(text, line);
        // A line that comes back empty adds nothing before the first real one, and an empty line later on
        // stays visible as a blank line, as Vision reported it.
        QCOMPARE(text, QStringLiteral("first\nsecond\n\nthird"));
    }
};

QTEST_GUILESS_MAIN(MacNativeTest)
#include "native_test.moc"
