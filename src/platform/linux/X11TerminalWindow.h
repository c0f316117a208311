#pragma once

#include <QString>

// Recognises terminal emulators by the WM_CLASS of the focused window: a synthetic Ctrl+C there interrupts
// the program running in it instead of copying, so the selection is read from PRIMARY instead.
namespace X11TerminalWindow {

// True when either WM_CLASS string names a terminal emulator (case-insensitive); false for empty strings.
bool isTerminalClass(const QString &instanceName, const QString &className);
// True when the window with the keyboard focus, or the nearest of its ancestors that carries a WM_CLASS,
// is a terminal; false without an X11 connection or when nothing has the focus.
bool focusedWindowIsTerminal();

} // namespace X11TerminalWindow
