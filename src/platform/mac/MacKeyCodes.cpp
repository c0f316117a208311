#include "platform/mac/MacKeyCodes.h"

namespace {

// Carbon modifier bits (Events.h).
constexpr quint32 MacCmdKey = 0x0100;
constexpr quint32 MacShiftKey = 0x0200;
constexpr quint32 MacOptionKey = 0x0800;
constexpr quint32 MacControlKey = 0x1000;

} // namespace

int macVirtualKeyCode(Qt::Key key)
{
    // kVK_ANSI_A ... kVK_ANSI_Z follow the physical ANSI layout, not the alphabet.
    static constexpr int letters[26] = {0,  11, 8,  2,  14, 3, 5,  4,  34, 38, 40, 37, 46,
                                        45, 31, 35, 12, 15, 1, 17, 32, 9,  13, 7,  16, 6};
    static constexpr int digits[10] = {29, 18, 19, 20, 21, 23, 22, 26, 28, 25};
    static constexpr int functionKeys[12] = {122, 120, 99, 118, 96, 97, 98, 100, 101, 109, 103, 111};

    if (key >= Qt::Key_A && key <= Qt::Key_Z)
        return letters[key - Qt::Key_A];
    if (key >= Qt::Key_0 && key <= Qt::Key_9)
        return digits[key - Qt::Key_0];
    if (key >= Qt::Key_F1 && key <= Qt::Key_F12)
        return functionKeys[key - Qt::Key_F1];
    switch (key) {
    case Qt::Key_Escape:
        return 53;
    case Qt::Key_Tab:
        return 48;
    case Qt::Key_Backspace:
        return 51;
    case Qt::Key_Return:
    case Qt::Key_Enter:
        return 36;
    case Qt::Key_Left:
        return 123;
    case Qt::Key_Up:
        return 126;
    case Qt::Key_Right:
        return 124;
    case Qt::Key_Down:
        return 125;
    case Qt::Key_Space:
        return 49;
    default:
        return -1;
    }
}

quint32 macModifierMask(Qt::KeyboardModifiers modifiers)
{
    quint32 mask = 0;
    if (modifiers & Qt::ShiftModifier)
        mask |= MacShiftKey;
    if (modifiers & Qt::AltModifier)
        mask |= MacOptionKey;
    if (modifiers & Qt::ControlModifier)
        mask |= MacControlKey;
    if (modifiers & Qt::MetaModifier)
        mask |= MacCmdKey;
    return mask;
}
