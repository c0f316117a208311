#include "capture/CaptureService.h"

#include "capture/CaptureOverlay.h"

#include <QCursor>
#include <QDebug>
#include <QGuiApplication>
#include <QScreen>
#include <QTimer>

#include <cmath>

CaptureService::CaptureService(QObject *parent)
    : IRegionCapture(parent)
{}

CaptureService::~CaptureService()
{
    releaseOverlays();
}

void CaptureService::startCapture()
{
    if (m_isCapturing)
        return;
    m_isCapturing = true;
    releaseOverlays();

    if (!m_screenSource) {
        showOverlay(new CaptureOverlay());
        return;
    }
    QScreen *screen = QGuiApplication::screenAt(QCursor::pos());
    if (!screen)
        screen = QGuiApplication::primaryScreen();
    const quint64 generation = ++m_generation;
    m_screenSource(screen, this,
                   [this, generation, screen = QPointer<QScreen>(screen)](const ScreenGrab &grab) {
                       // An answer to a capture that was given up and replaced meanwhile is dropped.
                       if (!m_isCapturing || !m_overlays.isEmpty() || generation != m_generation)
                           return;
                       if (grab.image.isNull() || (grab.area.isNull() && !screen)) {
                           qWarning().noquote() << "CaptureService: no screenshot:" << grab.error;
                           emit captureFailed(grab.error);
                           onCaptureCancelled();
                           return;
                       }
                       if (grab.area.isNull())
                           showOverlay(new CaptureOverlay(screen, grab.image));
                       else
                           showDesktop(grab);
                   });
}

void CaptureService::showDesktop(const ScreenGrab &grab)
{
    // Every screen is covered at once: the pointer's position is unknown to a Wayland client until it is
    // over one of its surfaces, so "the screen under the cursor" cannot be chosen beforehand.
    const QList<QScreen *> screens = QGuiApplication::screens();
    for (QScreen *screen : screens) {
        const QImage part = screenPart(grab.image, grab.area, screen->geometry());
        if (!part.isNull())
            showOverlay(new CaptureOverlay(screen, part, CaptureOverlay::FullScreenState));
    }
    if (m_overlays.isEmpty())
        showOverlay(new CaptureOverlay(nullptr, QImage()));
}

void CaptureService::showOverlay(CaptureOverlay *overlay)
{
    m_overlays << overlay;
    connect(overlay, &CaptureOverlay::captureDone, this, &CaptureService::onCaptureDone);
    connect(overlay, &CaptureOverlay::captureCancelled, this, &CaptureService::onCaptureCancelled);

    if (!overlay->hasScreenshot()) {
        // Nothing was shown, so the user has nothing to finish: end the capture from the event loop, as a
        // cancelled one would, and accept the next request.
        QTimer::singleShot(0, this, &CaptureService::onCaptureCancelled);
    }
}

void CaptureService::onCaptureDone(const QImage &image)
{
    m_isCapturing = false;
    releaseOverlays();
    emit captureDone(image);
}

void CaptureService::onCaptureCancelled()
{
    if (!m_isCapturing)
        return;
    m_isCapturing = false;
    releaseOverlays();
    emit captureCancelled();
}

void CaptureService::releaseOverlays()
{
    for (const QPointer<CaptureOverlay> &overlay : std::as_const(m_overlays)) {
        if (!overlay)
            continue;
        // The other screens' selectors go away at once with the one that reported.
        overlay->hide();
        overlay->deleteLater();
    }
    m_overlays.clear();
}

QImage CaptureService::screenPart(const QImage &whole, const QRect &desktop, const QRect &screen)
{
    const QRect visible = screen.intersected(desktop);
    if (whole.isNull() || visible.isEmpty())
        return {};
    // The edges are rounded, not truncated, so that two neighbouring screens share no pixel column and lose
    // none, whatever the scale.
    const qreal sx = qreal(whole.width()) / desktop.width();
    const qreal sy = qreal(whole.height()) / desktop.height();
    const int left = int(std::lround((visible.left() - desktop.left()) * sx));
    const int top = int(std::lround((visible.top() - desktop.top()) * sy));
    const int right = int(std::lround((visible.left() + visible.width() - desktop.left()) * sx));
    const int bottom = int(std::lround((visible.top() + visible.height() - desktop.top()) * sy));
    QImage part = whole.copy(QRect(left, top, right - left, bottom - top));
    part.setDevicePixelRatio(qreal(part.width()) / visible.width());
    return part;
}
