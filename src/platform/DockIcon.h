#pragma once

// Shows or hides the application's Dock icon while the Preferences window is open. Platforms without a Dock
// do nothing.
void setDockIconVisible(bool visible);

// Whether the system recolours a monochrome tray icon to suit its menu bar (a template image). Where it does
// not, a single-colour icon can vanish on a panel of the same colour, so the tray shows the full-colour icon.
bool vontrelTrayRecoloursIcons();
