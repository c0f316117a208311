#pragma once

#include <QImage>
#include <QObject>
#include <QPointer>

class CaptureOverlay;

// Runs one region capture at a time and reports its outcome.
class CaptureService final : public QObject
{
    Q_OBJECT

public:
    explicit CaptureService(QObject *parent = nullptr);
    ~CaptureService() override;

    // Shows the region selector on the screen under the cursor; does nothing while a capture is running.
    void startCapture();
    bool isCapturing() const { return m_isCapturing; }

signals:
    // The selected region at full device resolution (its device pixel ratio set to the screen's).
    void captureDone(QImage image);
    // The user pressed Esc, or there was no screen to capture.
    void captureCancelled();

private slots:
    void onCaptureDone(const QImage &image);
    void onCaptureCancelled();

private:
    void releaseOverlay();

    QPointer<CaptureOverlay> m_overlay;
    bool m_isCapturing = false;
};
