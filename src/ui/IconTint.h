#pragma once

#include <QColor>
#include <QIcon>
#include <QString>

// The SVG at resourcePath recoloured to one colour, keeping the SVG's alpha. Falls back to the plain icon
// from the resource when the SVG cannot be rendered.
QIcon tintedMenuIcon(const QString &resourcePath, const QColor &color);
