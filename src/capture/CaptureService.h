#pragma once

#include "platform/Platform.h"
#include "session/IRegionCapture.h"

#include <QList>
#include <QPointer>

#include <functional>

class CaptureOverlay;
class QScreen;

// Runs one region capture at a time and reports its outcome.
class CaptureService final : public IRegionCapture
{
    Q_OBJECT

public:
    // Takes a screenshot of the screen (or of the whole desktop, see ScreenGrab::area) and hands it, or an
    // empty image and the reason, to `done`, now or later; `context` going away cancels the answer.
    using ScreenSource = std::function<void(QScreen *screen, QObject *context,
                                            std::function<void(const ScreenGrab &grab)> done)>;

    explicit CaptureService(QObject *parent = nullptr);
    ~CaptureService() override;

    // Where screenshots come from; without one the selector grabs the screen itself.
    void setScreenSource(ScreenSource source) { m_screenSource = std::move(source); }

    // Shows the region selector on the screen under the cursor, or on every screen when the screenshot shows
    // the whole desktop; does nothing while a capture is running.
    void startCapture() override;
    bool isCapturing() const { return m_isCapturing; }

    // The part of a whole-desktop image that shows one screen, with the device pixel ratio that maps it onto
    // the screen's logical geometry. `desktop` is the logical area the image shows. The desktop image may be
    // in logical or in device pixels, and scaled per axis: each screen's part is cut by its share of the
    // area.
    static QImage screenPart(const QImage &whole, const QRect &desktop, const QRect &screen);

private slots:
    void onCaptureDone(const QImage &image);
    void onCaptureCancelled();

private:
    void releaseOverlays();
    void showOverlay(CaptureOverlay *overlay);
    void showDesktop(const ScreenGrab &grab);

    ScreenSource m_screenSource;
    quint64 m_generation = 0;
    QList<QPointer<CaptureOverlay>> m_overlays;
    bool m_isCapturing = false;
};
