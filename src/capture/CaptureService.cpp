#include "capture/CaptureService.h"

#include "capture/CaptureOverlay.h"

#include <QDebug>
#include <QTimer>

CaptureService::CaptureService(QObject *parent)
    : IRegionCapture(parent)
{}

CaptureService::~CaptureService()
{
    if (m_overlay)
        m_overlay->deleteLater();
}

void CaptureService::startCapture()
{
    if (m_isCapturing)
        return;
    m_isCapturing = true;
    releaseOverlay();

    m_overlay = new CaptureOverlay();
    connect(m_overlay, &CaptureOverlay::captureDone, this, &CaptureService::onCaptureDone);
    connect(m_overlay, &CaptureOverlay::captureCancelled, this, &CaptureService::onCaptureCancelled);

    if (!m_overlay->hasScreenshot()) {
        // Nothing was shown, so the user has nothing to finish: end the capture from the event loop, as a
        // cancelled one would, and accept the next request.
        QTimer::singleShot(0, this, &CaptureService::onCaptureCancelled);
    }
}

void CaptureService::onCaptureDone(const QImage &image)
{
    m_isCapturing = false;
    releaseOverlay();
    emit captureDone(image);
}

void CaptureService::onCaptureCancelled()
{
    if (!m_isCapturing)
        return;
    m_isCapturing = false;
    releaseOverlay();
    emit captureCancelled();
}

void CaptureService::releaseOverlay()
{
    if (m_overlay)
        m_overlay->deleteLater();
    m_overlay = nullptr;
}
