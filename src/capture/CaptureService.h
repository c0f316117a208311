#pragma once

#include "session/IRegionCapture.h"

#include <QPointer>

#include <functional>

class CaptureOverlay;
class QScreen;

// Runs one region capture at a time and reports its outcome.
class CaptureService final : public IRegionCapture
{
    Q_OBJECT

public:
    // Takes a screenshot of the screen and hands it (or an empty image and the reason) to `done`, now or
    // later; `context` going away cancels the answer.
    using ScreenSource =
        std::function<void(QScreen *screen, QObject *context,
                           std::function<void(const QImage &image, const QString &error)> done)>;

    explicit CaptureService(QObject *parent = nullptr);
    ~CaptureService() override;

    // Where screenshots come from; without one the selector grabs the screen itself.
    void setScreenSource(ScreenSource source) { m_screenSource = std::move(source); }

    // Shows the region selector on the screen under the cursor; does nothing while a capture is running.
    void startCapture() override;
    bool isCapturing() const { return m_isCapturing; }

private slots:
    void onCaptureDone(const QImage &image);
    void onCaptureCancelled();

private:
    void releaseOverlay();

    void showOverlay(CaptureOverlay *overlay);

    ScreenSource m_screenSource;
    quint64 m_generation = 0;
    QPointer<CaptureOverlay> m_overlay;
    bool m_isCapturing = false;
};
