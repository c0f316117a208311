#include "TextImage.h"

#include <QFont>
#include <QFontMetrics>
#include <QPainter>

QImage TextImage::render(const QStringList &lines, int pixelSize, const QColor &text,
                         const QColor &background, qreal ratio)
{
    QFont font;
    // Named, as fontconfig's fallback in the C locale draws Japanese glyph forms.
    font.setFamilies({QStringLiteral("DejaVu Sans"), QStringLiteral("Noto Sans CJK SC")});
    font.setPixelSize(pixelSize);
    const QFontMetrics metrics(font);
    int width = 0;
    for (const QString &line : lines)
        width = qMax(width, metrics.horizontalAdvance(line));
    const int margin = 8;
    const int lineStep = qRound(metrics.height() * 1.3);
    const QSize logical(width + 2 * margin,
                        lineStep * qMax(0, int(lines.size()) - 1) + metrics.height() + 2 * margin);

    QImage image(logical * ratio, QImage::Format_RGB32);
    image.setDevicePixelRatio(ratio);
    image.fill(background);
    QPainter painter(&image);
    painter.setRenderHint(QPainter::TextAntialiasing, true);
    painter.setFont(font);
    painter.setPen(text);
    for (int i = 0; i < lines.size(); ++i)
        painter.drawText(QPoint(margin, margin + metrics.ascent() + i * lineStep), lines.at(i));
    return image;
}
