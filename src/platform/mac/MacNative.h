#pragma once

#include "platform/Platform.h"

#include <memory>

class IAccessibilityApi;
class QWindow;

// The native calls of the macOS backend, one Objective-C++ file per area; MacPlatform puts them together.

// MacHotkeyBackend.mm: Carbon hot keys.
std::unique_ptr<IHotkeyBackend> macCreateHotkeyBackend();
// MacAccessibilityApi.mm: the Accessibility calls the selected-text reader makes.
std::unique_ptr<IAccessibilityApi> macCreateAccessibilityApi();
// MacCopyShortcut.mm: Command+C as two Core Graphics keyboard events; false when they cannot be made.
bool macPostCopyKeystroke();
// MacPermissions.mm: the privacy probes (never prompting) and the system's own prompts.
bool macIsAccessibilityTrusted();
bool macRequestAccessibilityTrust();
bool macHasScreenCaptureAccess();
bool macRequestScreenCaptureAccess();
// MacApplication.mm: activation, the Dock icon and the layer corners of a window.
void macActivateApplication();
void macSetDockIconVisible(bool visible);
void macRoundWindowCorners(QWindow *window, int radius);
