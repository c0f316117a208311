#pragma once

#include <QKeyCombination>
#include <QtGlobal>

#include <optional>

// One global hotkey in a platform-neutral form: a key of the supported set and at least one of Shift, Alt,
// Control and Meta. Every backend accepts the same set, so a configuration works the same on each platform.
struct HotkeyChord
{
    Qt::Key key = Qt::Key_unknown;   // Key_Enter is folded into Key_Return
    Qt::KeyboardModifiers modifiers; // only Shift, Alt, Control and Meta
    friend bool operator==(const HotkeyChord &a, const HotkeyChord &b)
    {
        return a.key == b.key && a.modifiers == b.modifiers;
    }
};

// The chord of one key combination; empty when the key is outside the supported set or no modifier is held.
// The keypad flag is dropped, so keypad digits stand for the main-row digits.
std::optional<HotkeyChord> vontrelHotkeyChord(QKeyCombination combination);
