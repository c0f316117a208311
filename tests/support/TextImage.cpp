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

QImage TextImage::framed(const QImage &image, int gap, const QColor &line, int slack, const QColor &outside,
                         int width)
{
    const QSize inner = image.size() + QSize(2 * gap, 2 * gap);
    QImage out(inner + QSize(2 * (slack + width), 2 * (slack + width)), QImage::Format_RGB32);
    out.fill(outside);
    QPainter painter(&out);
    painter.fillRect(QRect(QPoint(slack, slack), inner + QSize(2 * width, 2 * width)), line);
    painter.fillRect(QRect(QPoint(slack + width, slack + width), inner), image.pixelColor(0, 0));
    QImage source = image;
    source.setDevicePixelRatio(1.0);
    painter.drawImage(slack + width + gap, slack + width + gap, source);
    return out;
}
