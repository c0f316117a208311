#pragma once

#include <QImage>
#include <QObject>

// The region selector as the session sees it. The selector itself is a widget, so it lives in the widgets
// library (capture/CaptureService); the session only starts it and hears how it ended.
class IRegionCapture : public QObject
{
    Q_OBJECT

public:
    using QObject::QObject;

    // Lets the user select a region; captureDone() or captureCancelled() follows. Ignored while one runs.
    virtual void startCapture() = 0;

signals:
    // The selected region at full device resolution (its device pixel ratio set to the screen's).
    void captureDone(QImage image);
    // The user pressed Esc, or there was no screen to capture.
    void captureCancelled();
    // No screenshot could be taken (a desktop portal refused or failed); followed by captureCancelled().
    void captureFailed(const QString &reason);
};
