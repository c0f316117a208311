#pragma once

#include "platform/HotkeyKeys.h"

#include <QString>

#include <memory>

// The native half of global hotkeys. HotkeyManager owns the bookkeeping (all or nothing, teardown, the
// instance pointer); a backend only installs its event source and grabs or releases single keys. A press is
// reported through HotkeyManager::dispatchHotkeyPress().
class IHotkeyBackend
{
public:
    virtual ~IHotkeyBackend() = default;

    // Short platform tag used in log lines ("mac", "x11").
    virtual QString platformTag() const = 0;
    // Native key code and modifier mask for the log; {0, 0} when the chord has no native key.
    virtual std::pair<quint32, quint32> nativeKey(const HotkeyChord &chord) const = 0;
    // Starts delivering presses. On failure returns a non-zero status and sets *error to the user-facing
    // reason.
    virtual int installHandler(QString *error) = 0;
    // Stops delivering presses; safe when nothing is installed.
    virtual void removeHandler() = 0;
    // Grabs one hotkey system-wide under the id. On failure returns a non-zero status, sets *error to a
    // message naming the combination, and leaves nothing grabbed for this id. `what` is "capture" or
    // "clipboard text".
    virtual int registerHotkey(int id, const HotkeyChord &chord, const QString &what, QString *error) = 0;
    // Releases the hotkey of the id; safe when it is not grabbed.
    virtual void unregisterHotkey(int id) = 0;
};

// The platform's backend (defined by the backend folder that is compiled in).
std::unique_ptr<IHotkeyBackend> vontrelCreateHotkeyBackend();
