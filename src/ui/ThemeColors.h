#pragma once

#include <QString>

// Every colour role of the light and the dark appearance; each value is "#rrggbb" in lower case.
struct ThemeColors
{
    bool isDark = false;
    QString windowBackground;
    QString cardBackground;
    QString windowBorder;
    QString textPrimary;
    QString textSecondary;
    QString inputBackground;
    QString inputBorder;
    QString inputFocusBorder;
    QString sidebarSelected;
    QString sidebarHover;
    QString buttonBackground;
    QString buttonHover;
    QString buttonPressed;
    QString buttonText;
    QString buttonBorder;
    QString buttonDisabledBackground;
    QString buttonDisabledText;
    QString iconColor;
    QString iconButtonHover;
    QString errorColor;
    QString errorHoverBackground;
    QString errorDisabledBorder;
    // Check boxes and radio buttons: the unchecked outline must stand out from a card, and the checked fill
    // carries a white mark.
    QString indicatorBorder;
    QString indicatorChecked;
    // The result window: a disabled button's outline, the waiting line, the pin when on.
    QString disabledBorder;
    QString placeholderText;
    QString accentColor;
    QString accentText;
    QString toggleHover;
};

// True when the system appearance is dark.
bool vontrelIsDarkMode();
// The colours of the current appearance; fetched anew by each caller, never cached.
ThemeColors vontrelThemeColors();
// The colours of a given appearance.
ThemeColors vontrelThemeColorsFor(bool dark);
