#include "ocr/OcrWorker.h"

#include "log/LogCategories.h"
#include "ocr/IOcrProvider.h"
#include "ocr/OcrWorkerResult.h"

#include <QCoreApplication>
#include <QDebug>
#include <QThread>

OcrWorker::OcrWorker(const QImage &image, IOcrProvider *provider, OcrWorkerResult *result)
    : m_image(image.copy())
    , m_provider(provider)
    , m_result(result)
{
    setAutoDelete(true);
    QCoreApplication *app = QCoreApplication::instance();
    m_resultOnAppThread = result && app && result->thread() == app->thread();
}

void OcrWorker::run()
{
    if (!m_provider) {
        deliver("error", QStringLiteral("OCR provider not available"));
        return;
    }
    if (m_image.isNull()) {
        deliver("error", QStringLiteral("Invalid image"));
        return;
    }
    if (!m_provider->isAvailable()) {
        deliver("error", QStringLiteral("OCR not available on this system"));
        return;
    }
    const OcrOutcome outcome = m_provider->recognizeRegion(m_image);
    if (!outcome.error.isEmpty()) {
        deliver("error", outcome.error);
        return;
    }
    if (outcome.text.isEmpty())
        qCDebug(lcOcr).noquote() << "OcrWorker: OCR returned empty result";
    deliver("finished", outcome.text);
}

void OcrWorker::deliver(const char *signal, const QString &value)
{
    if (m_resultOnAppThread) {
        // The session may delete its receiver while recognition runs. Checking the guard on the receiver's
        // own thread, where that deletion happens, is the only race-free way to drop such a late outcome.
        QMetaObject::invokeMethod(
            QCoreApplication::instance(),
            [guard = m_result, signal = QByteArray(signal), value] {
                if (guard)
                    QMetaObject::invokeMethod(guard.data(), signal.constData(), Qt::DirectConnection,
                                              Q_ARG(QString, value));
            },
            Qt::QueuedConnection);
        return;
    }
    if (OcrWorkerResult *result = m_result.data())
        QMetaObject::invokeMethod(result, signal, Qt::QueuedConnection, Q_ARG(QString, value));
}
