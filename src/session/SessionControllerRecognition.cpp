// SessionController, recognition: a captured image read on the pool thread, its text shown, and the request
// started after a pause in which the user can still abandon a wrong capture.
#include "session/SessionController.h"

#include "log/LogCategories.h"
#include "ocr/OcrWorker.h"
#include "ocr/OcrWorkerResult.h"

#include <QDebug>
#include <QThreadPool>
#include <QTimer>

namespace {

// The user sees the recognised text for this long before the request starts, and can still press the hotkey
// again to abandon a wrong capture without spending a request.
constexpr int kAiStartDelayMs = 1000;

using Phase = WindowRun::Phase;

} // namespace

void SessionController::runOcr(WindowRun &run, const QImage &image)
{
    if (image.isNull()) {
        emit error(tr("Invalid image"));
        setPhase(run, Phase::Idle);
        return;
    }
    if (!m_ocrProvider) {
        emit error(tr("OCR provider not available"));
        setPhase(run, Phase::Idle);
        return;
    }
    setPhase(run, Phase::Recognising);
    if (IResultView *view = this->view(run))
        view->showRecognising(image);
    present(run);

    // One receiver per recognition, tagged with its run: a result that arrives after the run was replaced
    // (the next capture may already be recognising) is dropped whatever the order.
    auto *result = new OcrWorkerResult(this);
    const quint64 number = run.number;
    connect(result, &OcrWorkerResult::finished, this, [this, result, number](const QString &text) {
        result->deleteLater();
        onOcrFinished(number, text);
    });
    connect(result, &OcrWorkerResult::error, this, [this, result, number](const QString &message) {
        result->deleteLater();
        onOcrError(number, message);
    });
    QThreadPool::globalInstance()->start(new OcrWorker(image, m_ocrProvider, result), 0);
}

void SessionController::onOcrFinished(quint64 runNumber, const QString &text)
{
    qCInfo(lcSession).noquote() << "SessionController: OCR finished, text length:" << text.length();
    WindowRun *run = runNumbered(runNumber);
    if (!run || run->phase != Phase::Recognising)
        return;
    const bool hasText = !text.trimmed().isEmpty();
    run->text = hasText ? text : QString();
    if (IResultView *view = this->view(*run))
        view->showSource(run->text, false);
    if (!hasText) {
        setPhase(*run, Phase::Waiting);
        return;
    }
    setPhase(*run, Phase::Pausing);
    // A window the session has left (pinned meanwhile) shows its text but sends it only when the user asks.
    if (!run->automatic) {
        stopRun(*run);
        return;
    }
    QTimer::singleShot(kAiStartDelayMs, Qt::PreciseTimer, this, [this, runNumber, text] {
        WindowRun *paused = runNumbered(runNumber);
        if (paused && paused->phase == Phase::Pausing && paused->automatic)
            runAiAction(*paused, ActionService::Translate, text);
    });
}

void SessionController::onOcrError(quint64 runNumber, const QString &message)
{
    qCWarning(lcSession).noquote() << "SessionController: OCR error:" << message;
    WindowRun *run = runNumbered(runNumber);
    if (!run || run->phase != Phase::Recognising)
        return;
    if (IResultView *view = this->view(*run))
        view->showError(tr("OCR failed: %1").arg(message));
    setPhase(*run, Phase::Failed);
}
