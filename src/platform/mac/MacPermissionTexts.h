#pragma once

#include "platform/Platform.h"

// What the permission guide says on macOS, and the System Settings panes that grant each permission.
Platform::GuideText macPermissionGuideText(Platform::Permission permission);
// The privacy pane of the permission ("x-apple.systempreferences:...").
QString macPermissionPaneUrl(Platform::Permission permission);
// The general Privacy & Security pane, for when the specific one does not open.
QString macSecurityPaneUrl();
