#include "ui/result/ResultWindowStyle.h"

namespace ResultWindowStyle {

namespace {

QString cornerButtonWith(const QString &border, const QString &hover, const QString &disabledBorder,
                         const QString &background)
{
    return QStringLiteral("QToolButton { background-color: %4; border: 1px solid %1; border-radius: 4px; "
                          "padding: 1px; }\n"
                          "QToolButton:hover { background-color: %2; }\n"
                          "QToolButton:disabled { background-color: %4; border-color: %3; }")
        .arg(border, hover, disabledBorder, background);
}

} // namespace

QString window(const ThemeColors &colors, int cornerRadius)
{
    return QStringLiteral("ResultWindow { background-color: %1; border: 1px solid %2; border-radius: %3px; }")
        .arg(colors.windowBackground, colors.windowBorder)
        .arg(cornerRadius);
}

QString title(const ThemeColors &colors)
{
    return QStringLiteral("font-weight: bold; font-size: 15px; color: %1;").arg(colors.textPrimary);
}

QString closeButton(const ThemeColors &colors)
{
    return QStringLiteral("QPushButton { background-color: transparent; border: 1px solid %1; "
                          "border-radius: 4px; }\n"
                          "QPushButton:hover { background-color: %2; }\n"
                          "QPushButton:pressed { background-color: %2; }")
        .arg(colors.errorColor, colors.errorHoverBackground);
}

QString message(const ThemeColors &colors)
{
    return QStringLiteral("color: %1; font-size: 12px;").arg(colors.textSecondary);
}

QString preview(const ThemeColors &colors)
{
    return QStringLiteral(
               "QLabel { background-color: %1; color: %2; border: 1px solid %3; border-radius: 6px; }")
        .arg(colors.inputBackground, colors.textSecondary, colors.inputBorder);
}

QString textArea(const char *className, const ThemeColors &colors)
{
    return QStringLiteral("%4 { background-color: %1; color: %2; border: 1px solid %3; border-radius: 6px; "
                          "padding: 8px; font-size: 13px; }")
        .arg(colors.inputBackground, colors.textPrimary, colors.inputBorder, QLatin1String(className));
}

QString cornerButton(const ThemeColors &colors)
{
    return cornerButtonWith(colors.iconColor, colors.iconButtonHover, colors.disabledBorder,
                            colors.inputBackground);
}

QString destructiveCornerButton(const ThemeColors &colors)
{
    return cornerButtonWith(colors.errorColor, colors.errorHoverBackground, colors.errorDisabledBorder,
                            colors.inputBackground);
}

QString pinButton(bool pinned, const ThemeColors &colors)
{
    if (pinned) {
        return QStringLiteral(
                   "QPushButton { background-color: %1; color: %2; border: none; border-radius: 4px; }")
            .arg(colors.accentColor, colors.accentText);
    }
    return QStringLiteral("QPushButton { background-color: transparent; color: %1; border: 1px solid %2; "
                          "border-radius: 4px; }\n"
                          "QPushButton:hover { background-color: %3; }")
        .arg(colors.textSecondary, colors.iconColor, colors.toggleHover);
}

QString placeholderHtml(const QString &text, const ThemeColors &colors)
{
    return QStringLiteral("<span style='color: %1; font-style: italic;'>%2</span>")
        .arg(colors.placeholderText, text);
}

QString errorHtml(const QString &text, const ThemeColors &colors)
{
    return QStringLiteral("<span style='color: %1;'>%2</span>").arg(colors.errorColor, text.toHtmlEscaped());
}

} // namespace ResultWindowStyle
