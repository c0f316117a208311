#include "log/LogCategories.h"
#include "platform/mac/MacKeyCodes.h"
#include "platform/mac/MacNative.h"

#include <Carbon/Carbon.h>

#include <QDebug>

#include <array>

namespace {

constexpr OSType kHotkeySignature = 'vont';

class MacHotkeyBackend final : public IHotkeyBackend
{
public:
    ~MacHotkeyBackend() override
    {
        for (int id = 1; id <= int(m_hotkeys.size()); ++id)
            unregisterHotkey(id);
        removeHandler();
    }

    QString platformTag() const override { return QStringLiteral("mac"); }

    std::pair<quint32, quint32> nativeKey(const HotkeyChord &chord) const override
    {
        const int keyCode = macVirtualKeyCode(chord.key);
        if (keyCode < 0)
            return {0, 0};
        return {quint32(keyCode), macModifierMask(chord.modifiers)};
    }

    // The manager words the message from the status.
    int installHandler(QString *) override
    {
        const EventTypeSpec pressed = {kEventClassKeyboard, kEventHotKeyPressed};
        return int(InstallEventHandler(GetApplicationEventTarget(), &onHotkeyPressed, 1, &pressed, this,
                                       &m_handler));
    }

    void removeHandler() override
    {
        if (m_handler)
            RemoveEventHandler(m_handler);
        m_handler = nullptr;
    }

    int registerHotkey(int id, const HotkeyChord &chord, const QString &, QString *) override
    {
        const auto [keyCode, modifiers] = nativeKey(chord);
        const EventHotKeyID hotkeyId = {kHotkeySignature, UInt32(id)};
        EventHotKeyRef ref = nullptr;
        const OSStatus status =
            RegisterEventHotKey(keyCode, modifiers, hotkeyId, GetApplicationEventTarget(), 0, &ref);
        if (status == noErr)
            m_hotkeys[slot(id)] = ref;
        return int(status);
    }

    void unregisterHotkey(int id) override
    {
        EventHotKeyRef &ref = m_hotkeys[slot(id)];
        if (ref)
            UnregisterEventHotKey(ref);
        ref = nullptr;
    }

private:
    static std::size_t slot(int id) { return std::size_t(id - 1); }

    // Carbon calls this on the main run loop for every press of a hot key this process registered; the
    // handler is removed before the backend goes, so userData is always alive. The manager queues the press,
    // so nothing of ours runs inside the Carbon dispatch.
    static OSStatus onHotkeyPressed(EventHandlerCallRef, EventRef event, void *userData)
    {
        EventHotKeyID hotkeyId{};
        const OSStatus status = GetEventParameter(event, kEventParamDirectObject, typeEventHotKeyID, nullptr,
                                                  sizeof(hotkeyId), nullptr, &hotkeyId);
        if (status != noErr) {
            qCWarning(lcPlatform).noquote()
                << "HotkeyManager(mac): hotkey event without an id, status =" << status;
            return noErr;
        }
        // Carbon's key events carry no timestamp that activation could use.
        emit static_cast<MacHotkeyBackend *>(userData)->pressed(int(hotkeyId.id), 0);
        return noErr;
    }

    std::array<EventHotKeyRef, 3> m_hotkeys{}; // one per HotkeyManager::HotkeyId, index = id - 1
    EventHandlerRef m_handler = nullptr;
};

} // namespace

std::unique_ptr<IHotkeyBackend> macCreateHotkeyBackend()
{
    return std::make_unique<MacHotkeyBackend>();
}
