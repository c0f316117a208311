#pragma once

// Whether the X screen has a compositing manager, so translucent windows show the desktop through them.
bool x11ComposesTranslucentWindows();
