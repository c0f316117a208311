#include "ui/ThemeColors.h"

#include <QGuiApplication>
#include <QPalette>
#include <QStyleHints>

bool vontrelIsDarkMode()
{
#if QT_VERSION >= QT_VERSION_CHECK(6, 5, 0)
    if (const QStyleHints *hints = QGuiApplication::styleHints()) {
        if (hints->colorScheme() == Qt::ColorScheme::Dark)
            return true;
        if (hints->colorScheme() == Qt::ColorScheme::Light)
            return false;
    }
#endif
    // Perceived brightness of the window colour, scaled by 1000 to stay in integers.
    const QColor window = QGuiApplication::palette().brush(QPalette::Current, QPalette::Window).color();
    const int brightness = 299 * window.red() + 587 * window.green() + 114 * window.blue();
    return brightness < 128000;
}

ThemeColors vontrelThemeColorsFor(bool dark)
{
    ThemeColors c;
    c.isDark = dark;
    auto pick = [dark](const char *darkValue, const char *lightValue) {
        return QString::fromLatin1(dark ? darkValue : lightValue);
    };
    c.windowBackground = pick("#2d2d2d", "#ffffff");
    c.cardBackground = pick("#1e1e1e", "#ffffff");
    c.windowBorder = pick("#404040", "#d0d0d0");
    c.textPrimary = pick("#e0e0e0", "#333333");
    c.textSecondary = pick("#a0a0a0", "#666666");
    c.inputBackground = pick("#1e1e1e", "#ffffff");
    c.inputBorder = pick("#505050", "#c0c0c0");
    c.inputFocusBorder = pick("#6a6a6a", "#8a8a8a");
    c.sidebarSelected = pick("#404040", "#e9e9e9");
    c.sidebarHover = pick("#353535", "#f2f2f2");
    c.buttonBackground = pick("#404040", "#f0f0f0");
    c.buttonHover = pick("#505050", "#e0e0e0");
    c.buttonPressed = pick("#353535", "#d0d0d0");
    c.buttonText = c.textPrimary;
    c.buttonBorder = pick("#555555", "#c0c0c0");
    c.buttonDisabledBackground = pick("#353535", "#f5f5f5");
    c.buttonDisabledText = pick("#555555", "#aaaaaa");
    c.iconColor = pick("#909090", "#c0c0c0");
    c.iconButtonHover = pick("#2a2a2a", "#f5f5f5");
    c.errorColor = pick("#ff6b6b", "#d64545");
    c.errorHoverBackground = pick("#2a1e1e", "#fff3f3");
    c.errorDisabledBorder = pick("#663b3b", "#e0b4b4");
    c.indicatorBorder = pick("#9a9a9a", "#808080");
    c.indicatorChecked = pick("#3b82f6", "#2563eb");
    c.disabledBorder = pick("#505050", "#d0d0d0");
    c.placeholderText = pick("#888888", "#888888");
    c.accentColor = pick("#0066cc", "#007aff");
    c.accentText = pick("#ffffff", "#ffffff");
    c.toggleHover = pick("#404040", "#e0e0e0");
    return c;
}

ThemeColors vontrelThemeColors()
{
    return vontrelThemeColorsFor(vontrelIsDarkMode());
}
