#include "ui/result/PreviewArea.h"

#include <QPixmap>
#include <QTimer>

#include <algorithm>
#include <cmath>

namespace {

constexpr int kMinHeight = 48;
constexpr int kMaxHeight = 160;

} // namespace

PreviewArea::PreviewArea(QWidget *parent)
    : QLabel(parent)
{
    setObjectName(QStringLiteral("previewLabel"));
    setAlignment(Qt::AlignCenter);
    setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Fixed);
    setMinimumHeight(kMinHeight);
    setMaximumHeight(180);
    setMargin(3);
}

void PreviewArea::setImage(const QImage &image)
{
    m_image = image;
    if (m_image.isNull()) {
        clear();
        return;
    }
    fit();
}

void PreviewArea::fit()
{
    if (!isVisible() || m_image.isNull())
        return;
    const int w = std::max(contentsRect().width(), 1);
    const qreal dpr = std::max(m_image.devicePixelRatio(), 1.0);
    const qreal imageWidth = m_image.width() / dpr;
    const qreal ratio = imageWidth > 0 ? m_image.height() / dpr / imageWidth : 1.0;
    const int desired = static_cast<int>(std::ceil(w * ratio)) + 2 * margin();
    const int clamped = std::clamp(desired, kMinHeight, kMaxHeight);
    if (height() != clamped)
        setFixedHeight(clamped);
    scheduleScale();
}

void PreviewArea::resizeEvent(QResizeEvent *event)
{
    QLabel::resizeEvent(event);
    scheduleScale();
}

void PreviewArea::scheduleScale()
{
    // After the layout has settled: scaling to a size about to change would be wasted.
    QTimer::singleShot(0, this, [this] { scale(); });
}

void PreviewArea::scale()
{
    if (m_image.isNull()) {
        clear();
        return;
    }
    const QPixmap pixmap = QPixmap::fromImage(m_image);
    const qreal r = pixmap.devicePixelRatio();
    // The label draws its pixmap inside its margin; scaling to the whole contents would clip the image.
    const QSize contents = contentsRect().size() - QSize(2 * margin(), 2 * margin());
    const QSize target(qRound(contents.width() * r), qRound(contents.height() * r));
    if (target.isEmpty())
        return;
    QPixmap scaled = pixmap.scaled(target, Qt::KeepAspectRatio, Qt::SmoothTransformation);
    scaled.setDevicePixelRatio(r);
    setPixmap(scaled);
}
