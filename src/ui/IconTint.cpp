#include "ui/IconTint.h"

#include <QImage>
#include <QPainter>
#include <QPixmap>
#include <QSvgRenderer>

QIcon tintedMenuIcon(const QString &resourcePath, const QColor &color)
{
    QIcon icon;
    QSvgRenderer renderer(resourcePath);
    const QSize size = renderer.defaultSize();
    if (renderer.isValid() && size.width() >= 1 && size.height() >= 1) {
        QImage shape(size, QImage::Format_ARGB32);
        shape.fill(Qt::transparent);
        {
            QPainter painter(&shape);
            painter.setCompositionMode(QPainter::CompositionMode_Source);
            renderer.render(&painter);
        }
        QImage tinted(size, QImage::Format_ARGB32);
        tinted.fill(color);
        {
            QPainter painter(&tinted);
            painter.setCompositionMode(QPainter::CompositionMode_DestinationIn);
            painter.drawImage(0, 0, shape);
        }
        icon.addPixmap(QPixmap::fromImage(tinted), QIcon::Normal, QIcon::Off);
    }
    if (icon.isNull())
        return QIcon(resourcePath);
    return icon;
}
