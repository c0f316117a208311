#include "platform/RoundedCornerHelper.h"

#include <QByteArray>
#include <QEvent>
#include <QGuiApplication>
#include <QPainterPath>
#include <QPolygon>
#include <QRegion>
#include <QWidget>
#include <QWindow>
#include <QtGui/qguiapplication_platform.h>

#include <X11/Xlib.h>
#include <X11/extensions/shape.h>

#include <vector>

namespace {

constexpr char kKeeperName[] = "_vontrelRoundedCornerMask";
constexpr char kRadiusProperty[] = "_vontrelCornerRadius";

// An X11 screen has a compositing manager when someone owns its _NET_WM_CM_Sn selection (EWMH). Only then
// does a translucent window show the desktop through its transparent corners; without one they turn black.
// The X display of the xcb platform plugin; null on other plugins (offscreen, Wayland), which cannot shape a
// window.
Display *x11Display()
{
    auto *x11 = qGuiApp ? qGuiApp->nativeInterface<QNativeInterface::QX11Application>() : nullptr;
    return x11 && QGuiApplication::platformName() == QLatin1String("xcb") ? x11->display() : nullptr;
}

bool compositorRunning()
{
    Display *display = x11Display();
    if (!display)
        return false;
    const QByteArray name = "_NET_WM_CM_S" + QByteArray::number(DefaultScreen(display));
    const Atom selection = XInternAtom(display, name.constData(), False);
    return XGetSelectionOwner(display, selection) != 0;
}

QRegion roundedRegion(const QSize &size, int radius)
{
    QPainterPath path;
    path.addRoundedRect(QRectF(QPointF(0, 0), QSizeF(size)), radius, radius);
    return QRegion(path.toFillPolygon().toPolygon());
}

// WORKAROUND(X11): QWidget::setMask and QWindow::setMask on Qt 6.4's xcb plugin leave the X window unshaped
// (xwininfo -shape reports no shape, the corners stay square), so the bounding shape is set here directly.
void shapeNativeWindow(QWidget *widget, const QRegion &region)
{
    Display *display = x11Display();
    const WId window = widget->winId();
    if (!display || window == 0)
        return;
    const qreal dpr = widget->devicePixelRatioF();
    std::vector<XRectangle> rects;
    for (const QRect &r : region) {
        const QRect n(QPoint(qRound(r.left() * dpr), qRound(r.top() * dpr)),
                      QPoint(qRound((r.right() + 1) * dpr) - 1, qRound((r.bottom() + 1) * dpr) - 1));
        rects.push_back({static_cast<short>(n.x()), static_cast<short>(n.y()),
                         static_cast<unsigned short>(n.width()), static_cast<unsigned short>(n.height())});
    }
    if (rects.empty())
        XShapeCombineMask(display, window, ShapeBounding, 0, 0, 0, ShapeSet);
    else
        XShapeCombineRectangles(display, window, ShapeBounding, 0, 0, rects.data(),
                                static_cast<int>(rects.size()), ShapeSet, Unsorted);
    XFlush(display);
}

// Keeps the window's rounded mask the size of the window: the overlay grows with its content after the
// corners were first applied, and a stale mask would cut off the new part.
class RoundedMaskKeeper final : public QObject
{
public:
    explicit RoundedMaskKeeper(QWidget *widget)
        : QObject(widget)
        , m_widget(widget)
    {
        setObjectName(QLatin1String(kKeeperName));
        widget->installEventFilter(this);
    }

    void apply() const
    {
        const int radius = m_widget->property(kRadiusProperty).toInt();
        QRegion region;
        if (radius > 0 && !m_widget->size().isEmpty())
            region = roundedRegion(m_widget->size(), radius);
        m_widget->setMask(region);
        shapeNativeWindow(m_widget, region);
    }

protected:
    bool eventFilter(QObject *watched, QEvent *event) override
    {
        if (watched == m_widget && event->type() == QEvent::Resize)
            apply();
        return QObject::eventFilter(watched, event);
    }

private:
    QWidget *m_widget;
};

} // namespace

void RoundedCornerHelper::prepareWindow(QWidget *widget)
{
    if (!widget || widget->testAttribute(Qt::WA_WState_Created))
        return;
    if (compositorRunning())
        widget->setAttribute(Qt::WA_TranslucentBackground, true);
}

void RoundedCornerHelper::applyRoundedCorners(QWidget *widget, int radius)
{
    if (!widget || !widget->windowHandle() || widget->windowHandle()->winId() == 0)
        return;
    if (!x11Display())
        return;

    auto *keeper =
        widget->findChild<RoundedMaskKeeper *>(QLatin1String(kKeeperName), Qt::FindDirectChildrenOnly);
    // A translucent window on a compositing desktop shows the style sheet's antialiased border as it is.
    if (widget->testAttribute(Qt::WA_TranslucentBackground) && compositorRunning()) {
        delete keeper;
        widget->clearMask();
        shapeNativeWindow(widget, QRegion());
        return;
    }
    widget->setProperty(kRadiusProperty, radius);
    if (!keeper)
        keeper = new RoundedMaskKeeper(widget);
    keeper->apply();
}
