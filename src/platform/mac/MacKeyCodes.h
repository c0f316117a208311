#pragma once

#include <Qt>
#include <QtGlobal>

// macOS virtual key code (kVK_ANSI_... and friends) of a key of the hotkey set; -1 for any other key.
int macVirtualKeyCode(Qt::Key key);

// Carbon modifier mask (cmdKey, shiftKey, optionKey, controlKey) of Qt's modifiers: Meta becomes Command and
// Control stays Control. Other bits contribute nothing.
quint32 macModifierMask(Qt::KeyboardModifiers modifiers);
