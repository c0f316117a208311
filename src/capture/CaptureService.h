#pragma once

#include "session/IRegionCapture.h"

#include <QPointer>

class CaptureOverlay;

// Runs one region capture at a time and reports its outcome.
class CaptureService final : public IRegionCapture
{
    Q_OBJECT

public:
    explicit CaptureService(QObject *parent = nullptr);
    ~CaptureService() override;

    // Shows the region selector on the screen under the cursor; does nothing while a capture is running.
    void startCapture() override;
    bool isCapturing() const { return m_isCapturing; }

private slots:
    void onCaptureDone(const QImage &image);
    void onCaptureCancelled();

private:
    void releaseOverlay();

    QPointer<CaptureOverlay> m_overlay;
    bool m_isCapturing = false;
};
