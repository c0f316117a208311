#include "platform/linux/X11WindowCorners.h"

#include <QByteArray>
#include <QEvent>
#include <QGuiApplication>
#include <QPainterPath>
#include <QPolygon>
#include <QRegion>
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
void shapeNativeWindow(QWindow *qwindow, const QRegion &region)
{
    Display *display = x11Display();
    const WId window = qwindow->winId();
    if (!display || window == 0)
        return;
    const qreal dpr = qwindow->devicePixelRatio();
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
    explicit RoundedMaskKeeper(QWindow *window)
        : QObject(window)
        , m_window(window)
    {
        setObjectName(QLatin1String(kKeeperName));
        window->installEventFilter(this);
    }

    void apply() const
    {
        const int radius = m_window->property(kRadiusProperty).toInt();
        QRegion region;
        if (radius > 0 && !m_window->size().isEmpty())
            region = roundedRegion(m_window->size(), radius);
        m_window->setMask(region);
        shapeNativeWindow(m_window, region);
    }

protected:
    bool eventFilter(QObject *watched, QEvent *event) override
    {
        if (watched == m_window && event->type() == QEvent::Resize)
            apply();
        return QObject::eventFilter(watched, event);
    }

private:
    QWindow *m_window;
};

} // namespace

bool x11ComposesTranslucentWindows()
{
    return compositorRunning();
}

void x11RoundWindowCorners(QWindow *window, int radius)
{
    if (!window || window->winId() == 0 || !x11Display())
        return;

    auto *keeper =
        window->findChild<RoundedMaskKeeper *>(QLatin1String(kKeeperName), Qt::FindDirectChildrenOnly);
    // A translucent window on a compositing desktop shows the style sheet's antialiased border as it is.
    if (window->format().hasAlpha() && compositorRunning()) {
        delete keeper;
        window->setMask(QRegion());
        shapeNativeWindow(window, QRegion());
        return;
    }
    window->setProperty(kRadiusProperty, radius);
    if (!keeper)
        keeper = new RoundedMaskKeeper(window);
    keeper->apply();
}
