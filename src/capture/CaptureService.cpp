#include "capture/CaptureService.h"

#include "capture/CaptureOverlay.h"

#include <QCursor>
#include <QDebug>
#include <QGuiApplication>
#include <QScreen>
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

    if (!m_screenSource) {
        showOverlay(new CaptureOverlay());
        return;
    }
    QScreen *screen = QGuiApplication::screenAt(QCursor::pos());
    if (!screen)
        screen = QGuiApplication::primaryScreen();
    const quint64 generation = ++m_generation;
    m_screenSource(
        screen, this,
        [this, generation, screen = QPointer<QScreen>(screen)](const QImage &image, const QString &error) {
            // An answer to a capture that was given up and replaced meanwhile is dropped.
            if (!m_isCapturing || m_overlay || generation != m_generation)
                return;
            if (image.isNull() || !screen) {
                qWarning().noquote() << "CaptureService: no screenshot:" << error;
                emit captureFailed(error);
                onCaptureCancelled();
                return;
            }
            showOverlay(new CaptureOverlay(screen, image));
        });
}

void CaptureService::showOverlay(CaptureOverlay *overlay)
{
    m_overlay = overlay;
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
