#pragma once

// Shows or hides the application's Dock icon while the Preferences window is open. Platforms without a Dock
// do nothing.
void setDockIconVisible(bool visible);
