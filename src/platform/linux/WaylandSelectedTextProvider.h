#pragma once

#include "platform/Platform.h"

// The primary selection on Wayland: through data control where the compositor offers it, so it is read while
// another application has the focus; otherwise (and for a selection of this process's own) through Qt, which
// sees it only while one of our windows has the keyboard focus.
class WaylandSelectedTextProvider final : public ISelectedTextProvider
{
public:
    QString selectedText() override;
};
