#pragma once

#include "platform/Platform.h"

// The X11 PRIMARY selection: whatever the user last selected in any X client, without a copy keystroke.
class X11SelectedTextProvider final : public ISelectedTextProvider
{
public:
    QString selectedText() override;
};
