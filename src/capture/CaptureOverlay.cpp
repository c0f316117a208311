#include "capture/CaptureOverlay.h"

#include "log/LogCategories.h"

#include <QCursor>
#include <QDebug>
#include <QGuiApplication>
#include <QHideEvent>
#include <QKeyEvent>
#include <QMouseEvent>
#include <QPaintEvent>
#include <QPainter>
#include <QScreen>
#include <QWindow>

namespace {

// Selections smaller than this (logical pixels, either side) are taken for a slipped click.
constexpr int kMinimumSelectionSide = 6;

// The rectangle with both corner pixels inside, whichever way the user dragged. QRect::normalized() would
// shift the edges of a rectangle dragged up or to the left by one pixel each, so a backward drag would select
// less than the same forward one.
QRect spannedRect(const QPoint &a, const QPoint &b)
{
    return QRect(QPoint(qMin(a.x(), b.x()), qMin(a.y(), b.y())),
                 QPoint(qMax(a.x(), b.x()), qMax(a.y(), b.y())));
}

bool isInverted(const QRect &rect)
{
    return rect.left() > rect.right() || rect.top() > rect.bottom();
}

} // namespace

CaptureOverlay::CaptureOverlay(QWidget *parent)
    : CaptureOverlay(nullptr, QImage(), ScreenGeometry, parent)
{
    captureScreen();
}

CaptureOverlay::CaptureOverlay(QScreen *screen, const QImage &screenshot, Placement placement,
                               QWidget *parent)
    : QWidget(parent)
{
    setWindowFlags(Qt::Tool | Qt::FramelessWindowHint | Qt::WindowStaysOnTopHint |
                   Qt::BypassWindowManagerHint);
    setAttribute(Qt::WA_TranslucentBackground, false);
    setAttribute(Qt::WA_ShowWithoutActivating, false);
    setMouseTracking(true);
    setCursor(Qt::CrossCursor);
    if (!screen || screenshot.isNull())
        return;
    m_devicePixelRatio = screenshot.devicePixelRatio();
    m_screenshot = QPixmap::fromImage(screenshot);
    showOn(screen, placement);
}

void CaptureOverlay::captureScreen()
{
    QScreen *screen = QGuiApplication::screenAt(QCursor::pos());
    if (!screen)
        screen = QGuiApplication::primaryScreen();
    if (!screen) {
        qCWarning(lcCapture).noquote() << "CaptureOverlay: No screen to capture";
        return;
    }

    setScreen(screen);
    m_devicePixelRatio = screen->devicePixelRatio();
    m_screenshot = screen->grabWindow(0);
    if (m_screenshot.isNull()) {
        qCWarning(lcCapture).noquote() << "CaptureOverlay: Grabbing the screen failed";
        return;
    }
    showOn(screen, ScreenGeometry);
}

void CaptureOverlay::showOn(QScreen *screen, Placement placement)
{
    setScreen(screen);
    setGeometry(screen->geometry());
    if (placement == FullScreenState) {
        // The native window must know its screen before it is mapped: the full-screen request names the
        // output, and a compositor puts the window on the output it was asked for.
        create();
        windowHandle()->setScreen(screen);
        showFullScreen();
    } else {
        show();
    }
    if (QWindow *window = windowHandle())
        window->setScreen(screen);
    raise();
    activateWindow();
    setFocus(Qt::OtherFocusReason);
    // A window manager may refuse focus to a window it does not manage; holding the keyboard keeps Esc
    // working wherever the focus went. hideEvent() gives it back.
    grabKeyboard();
}

void CaptureOverlay::paintEvent(QPaintEvent *)
{
    QPainter painter(this);
    painter.setRenderHint(QPainter::SmoothPixmapTransform, true);
    painter.drawPixmap(rect(), m_screenshot);
    painter.fillRect(rect(), QColor(0, 0, 0, 100));

    if (m_selecting) {
        if (isInverted(m_selection))
            return;

        painter.drawPixmap(m_selection, m_screenshot, sourceRect(m_selection));

        painter.setPen(QPen(Qt::white, 2.0, Qt::SolidLine, Qt::SquareCap, Qt::BevelJoin));
        painter.setBrush(Qt::NoBrush);
        painter.drawRects(&m_selection, 1);

        const QString sizeText = QStringLiteral("%1 x %2").arg(m_selection.width()).arg(m_selection.height());
        QFont font = painter.font();
        font.setPointSize(12);
        painter.setFont(font);
        const QRect bounds = painter.fontMetrics().boundingRect(sizeText);
        // Near the top edge there is no room above the selection: put the label below it.
        const int baseline =
            m_selection.top() < 25 ? m_selection.bottom() + bounds.height() + 5 : m_selection.top() - 5;
        painter.fillRect(QRect(m_selection.left() - 2, baseline - bounds.height(), bounds.width() + 4,
                               bounds.height() + 4),
                         QColor(0, 0, 0, 180));
        painter.setPen(Qt::white);
        painter.drawText(QPoint(m_selection.left(), baseline), sizeText);
        return;
    }

    const QString hint = tr("Drag to select area, ESC to cancel");
    QFont font = painter.font();
    font.setPointSize(14);
    painter.setFont(font);
    painter.setPen(Qt::white);
    const QRect bounds = painter.fontMetrics().boundingRect(hint);
    const int cx = (width() - bounds.width()) / 2;
    const int cy = height() / 2;
    painter.fillRect(QRect(cx - 10, cy - bounds.height() - 5, bounds.width() + 20, bounds.height() + 10),
                     QColor(0, 0, 0, 180));
    painter.drawText(QPoint(cx, cy), hint);
}

void CaptureOverlay::mousePressEvent(QMouseEvent *event)
{
    if (event->button() != Qt::LeftButton)
        return;
    m_selecting = true;
    m_selectionStart = event->position().toPoint();
    m_selectionEnd = m_selectionStart;
    m_selection = QRect();
    update();
}

void CaptureOverlay::mouseMoveEvent(QMouseEvent *event)
{
    if (!m_selecting)
        return;
    m_selectionEnd = event->position().toPoint();
    m_selection = spannedRect(m_selectionStart, m_selectionEnd);
    update();
}

void CaptureOverlay::mouseReleaseEvent(QMouseEvent *event)
{
    if (event->button() != Qt::LeftButton || !m_selecting)
        return;
    m_selecting = false;
    m_selectionEnd = event->position().toPoint();
    m_selection = spannedRect(m_selectionStart, m_selectionEnd);

    if (m_selection.width() >= kMinimumSelectionSide && m_selection.height() >= kMinimumSelectionSide) {
        const QImage image = captureSelectedRegion();
        hide();
        emit captureDone(image);
        return;
    }
    m_selection = QRect();
    update();
}

void CaptureOverlay::hideEvent(QHideEvent *event)
{
    releaseKeyboard();
    QWidget::hideEvent(event);
}

void CaptureOverlay::keyPressEvent(QKeyEvent *event)
{
    if (event->key() != Qt::Key_Escape)
        return;
    hide();
    emit captureCancelled();
}

QRect CaptureOverlay::sourceRect(const QRect &logical) const
{
    // Scaled by what the widget actually shows, not by the screen's ratio: should a compositor give the
    // selector another size than its screen's, the pixels selected are still the pixels the user saw.
    const qreal sx = width() > 0 ? m_screenshot.width() / qreal(width()) : m_devicePixelRatio;
    const qreal sy = height() > 0 ? m_screenshot.height() / qreal(height()) : m_devicePixelRatio;
    return QRect(int(logical.left() * sx), int(logical.top() * sy), int(logical.width() * sx),
                 int(logical.height() * sy));
}

QImage CaptureOverlay::captureSelectedRegion() const
{
    if (isInverted(m_selection))
        return QImage();
    QImage image = m_screenshot.copy(sourceRect(m_selection)).toImage();
    image.setDevicePixelRatio(m_devicePixelRatio);
    return image;
}
