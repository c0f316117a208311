#pragma once

#include <QString>

#include <functional>

// Probes for what the features need from the system (the portable name of the macOS-only MacPermissions).
// On macOS: the Accessibility trust and the screen-capture access; on Linux: an X11 connection, which
// hotkeys, screen capture and the copy keystroke all need. The probes never prompt.
namespace Permissions {

// Whether the process may send synthetic input and read other applications' selection.
bool hasAccessibilityPermission();
// Whether the process may capture the screen.
bool hasScreenRecordingPermission();
// Brings this application's windows in front of other applications'.
void activateApp();

// Whether the platform has a settings pane that grants the permissions (macOS). Without one the permission
// guide explains what the session lacks instead of pointing at a pane.
bool hasSystemSettingsPanes();
// A translated sentence saying what does not work in this desktop session and why (for example a Wayland
// session without X11); empty when everything works. Meant to be shown to the user once at start-up.
QString sessionLimitation();

// Test hook: replaces the probes; an empty function restores the native probe.
void setProbesForTesting(std::function<bool()> accessibility, std::function<bool()> screenRecording);

} // namespace Permissions

// Native probes of the compiled-in backend; the Permissions functions call them unless a test replaced them.
bool vontrelNativeHasAccessibilityPermission();
bool vontrelNativeHasScreenRecordingPermission();
void vontrelNativeActivateApp();
bool vontrelNativeHasSystemSettingsPanes();
QString vontrelNativeSessionLimitation();
