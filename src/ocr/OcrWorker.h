#pragma once

#include <QImage>
#include <QPointer>
#include <QRunnable>

class IOcrProvider;
class OcrWorkerResult;

// Recognises one image on a pool thread and reports to an OcrWorkerResult by queued signal. Deletes itself
// after run(). Create it on the thread the result object lives in.
class OcrWorker final : public QRunnable
{
public:
    // The image is deep-copied here, so the pool thread never shares pixel data with the caller. The provider
    // must outlive the run; the result object may be deleted meanwhile (the outcome is then dropped).
    OcrWorker(const QImage &image, IOcrProvider *provider, OcrWorkerResult *result);

    void run() override;

private:
    void deliver(const char *signal, const QString &value);

    QImage m_image;
    IOcrProvider *m_provider = nullptr;
    QPointer<OcrWorkerResult> m_result;
    bool m_resultOnAppThread = false;
};
