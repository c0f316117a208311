#pragma once

#include "ui/ThemeColors.h"

#include <QString>

// The result window's style sheets and inline formats, every colour taken from the theme table.
namespace ResultWindowStyle {

QString window(const ThemeColors &colors, int cornerRadius);
QString title(const ThemeColors &colors);
QString closeButton(const ThemeColors &colors);
QString message(const ThemeColors &colors);
QString preview(const ThemeColors &colors);
// For a QTextEdit or a QTextBrowser, named by its class.
QString textArea(const char *className, const ThemeColors &colors);
QString cornerButton(const ThemeColors &colors);
QString destructiveCornerButton(const ThemeColors &colors);
QString pinButton(bool pinned, const ThemeColors &colors);
// The waiting line in the result area, and an error shown there.
QString placeholderHtml(const QString &text, const ThemeColors &colors);
QString errorHtml(const QString &text, const ThemeColors &colors);

} // namespace ResultWindowStyle
