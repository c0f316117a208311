#pragma once

#include <QString>

#include <memory>

// Reads the text the user has selected in the frontmost application.
class ISelectedTextProvider
{
public:
    virtual ~ISelectedTextProvider() = default;
    // The selection with surrounding white space removed; empty when nothing is selected or it cannot be
    // read.
    virtual QString selectedText() = 0;
};

// The platform's provider: the X11 PRIMARY selection on Linux, the Accessibility reader on macOS.
std::unique_ptr<ISelectedTextProvider> vontrelCreateSelectedTextProvider();
