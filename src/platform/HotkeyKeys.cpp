#include "platform/HotkeyKeys.h"

namespace {

constexpr Qt::KeyboardModifiers HotkeyModifiers =
    Qt::ShiftModifier | Qt::AltModifier | Qt::ControlModifier | Qt::MetaModifier;

// The keys every backend can grab: the smallest set the native key tables (X keysyms, macOS virtual key
// codes) all cover.
bool isSupportedKey(Qt::Key key)
{
    if ((key >= Qt::Key_A && key <= Qt::Key_Z) || (key >= Qt::Key_0 && key <= Qt::Key_9) ||
        (key >= Qt::Key_F1 && key <= Qt::Key_F12))
        return true;
    switch (key) {
    case Qt::Key_Escape:
    case Qt::Key_Tab:
    case Qt::Key_Backspace:
    case Qt::Key_Return:
    case Qt::Key_Enter:
    case Qt::Key_Left:
    case Qt::Key_Up:
    case Qt::Key_Right:
    case Qt::Key_Down:
    case Qt::Key_Space:
        return true;
    default:
        return false;
    }
}

} // namespace

std::optional<HotkeyChord> vontrelHotkeyChord(QKeyCombination combination)
{
    const Qt::KeyboardModifiers modifiers = combination.keyboardModifiers() & HotkeyModifiers;
    Qt::Key key = combination.key();
    if (modifiers == Qt::NoModifier || !isSupportedKey(key))
        return std::nullopt;
    if (key == Qt::Key_Enter)
        key = Qt::Key_Return;
    return HotkeyChord{key, modifiers};
}
