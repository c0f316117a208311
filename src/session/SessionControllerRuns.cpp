// SessionController, the windows' side: each window's run, its requests and their answers. A window's Retry,
// Enter, Stop and Close act on its own run only; the sessions and their inputs are in SessionController.cpp.
#include "session/SessionController.h"

#include "config/ConfigManager.h"
#include "log/LogCategories.h"
#include "session/AiRuns.h"

#include <QDebug>

using Phase = WindowRun::Phase;

IResultView::Requests SessionController::requestsFor(const QString &windowId)
{
    IResultView::Requests requests;
    requests.translate = [this, windowId](const QString &text) {
        onTranslateRequested(windowId, text);
    };
    requests.stop = [this, windowId] {
        onStopRequested(windowId);
    };
    requests.retry = [this, windowId] {
        onRetryRequested(windowId);
    };
    requests.closed = [this, windowId] {
        onWindowClosed(windowId);
    };
    return requests;
}

WindowRun &SessionController::beginRun(const QString &windowId, WindowRun::Phase phase)
{
    forgetRun(windowId);
    WindowRun &run = m_runs[windowId];
    run.windowId = windowId;
    run.number = ++m_lastRunNumber;
    setPhase(run, phase);
    return run;
}

WindowRun *SessionController::run(const QString &windowId)
{
    const auto found = m_runs.find(windowId);
    return found == m_runs.end() ? nullptr : &found->second;
}

WindowRun *SessionController::runNumbered(quint64 number)
{
    for (auto &[windowId, run] : m_runs) {
        if (run.number == number)
            return &run;
    }
    return nullptr;
}

WindowRun *SessionController::currentRun()
{
    return run(m_windows.currentId());
}

void SessionController::setPhase(WindowRun &run, WindowRun::Phase phase)
{
    run.phase = phase;
    updateState();
}

void SessionController::present(WindowRun &run)
{
    run.presented = true;
    if (IResultView *view = this->view(run))
        view->present();
}

void SessionController::runAiAction(WindowRun &run, ActionService::ActionType type, const QString &text)
{
    // Kept even when the request cannot start, so Retry sends it once the cause is fixed.
    run.text = text;
    run.action = type;
    IResultView *view = this->view(run);
    const auto fail = [this, &run, view](const QString &message) {
        if (view)
            view->showError(message);
        setPhase(run, Phase::Failed);
    };
    if (!m_actionService) {
        fail(tr("AI service not available"));
        return;
    }
    if (!m_config || m_config->apiUrl().isEmpty() || m_config->apiKey().isEmpty()) {
        fail(tr("AI not configured. Please set API key."));
        return;
    }
    const QString prompt = m_actionService->buildPrompt(type, text);
    if (prompt.isEmpty()) {
        fail(tr("Failed to build prompt"));
        return;
    }
    if (run.phase == Phase::Streaming)
        m_aiRuns->cancel(run.number);
    // A new number: whatever the window's earlier request or pause still delivers is dropped.
    run.number = ++m_lastRunNumber;
    qCInfo(lcSession).noquote() << "SessionController: Starting streaming AI request for window"
                                << run.windowId;
    if (view)
        view->beginResult();
    setPhase(run, Phase::Streaming);
    m_aiRuns->start(run.number, prompt);
}

void SessionController::stopRun(WindowRun &run)
{
    if (run.phase == Phase::Streaming)
        m_aiRuns->cancel(run.number);
    if (IResultView *view = this->view(run))
        view->endResult(IResultView::ResultEnd::Stopped);
    setPhase(run, Phase::Stopped);
}

void SessionController::forgetRun(const QString &windowId)
{
    const auto found = m_runs.find(windowId);
    if (found == m_runs.end())
        return;
    if (found->second.phase == Phase::Streaming)
        m_aiRuns->cancel(found->second.number);
    m_runs.erase(found);
    updateState();
}

void SessionController::onAiChunk(quint64 runNumber, const QString &chunk)
{
    WindowRun *run = runNumbered(runNumber);
    if (!run || run->phase != Phase::Streaming)
        return;
    if (IResultView *view = this->view(*run))
        view->appendResult(chunk);
}

void SessionController::onAiFinished(quint64 runNumber)
{
    WindowRun *run = runNumbered(runNumber);
    if (!run || run->phase != Phase::Streaming)
        return;
    qCInfo(lcSession).noquote() << "SessionController: AI streaming finished for window" << run->windowId;
    if (IResultView *view = this->view(*run))
        view->endResult(IResultView::ResultEnd::Finished);
    setPhase(*run, Phase::Done);
}

void SessionController::onAiFailed(quint64 runNumber, const QString &message)
{
    WindowRun *run = runNumbered(runNumber);
    if (!run || run->phase != Phase::Streaming)
        return;
    qCWarning(lcSession).noquote() << "SessionController: AI streaming error for window" << run->windowId
                                   << ":" << message;
    if (IResultView *view = this->view(*run))
        view->showError(tr("AI failed: %1").arg(message));
    setPhase(*run, Phase::Failed);
}

void SessionController::onTranslateRequested(const QString &windowId, const QString &text)
{
    qCInfo(lcSession).noquote() << "SessionController: Translate requested, text length:" << text.length();
    WindowRun *run = this->run(windowId);
    if (!run)
        return;
    // Until the window's own text is known, or while its request runs, Enter has nothing to act on.
    if (run->isUnderWay()) {
        qCWarning(lcSession).noquote() << "SessionController: Cannot process action in current state";
        return;
    }
    if (text.trimmed().isEmpty()) {
        if (IResultView *view = this->view(*run))
            view->showError(tr("No text to process"));
        return;
    }
    runAiAction(*run, ActionService::Translate, text);
}

void SessionController::onStopRequested(const QString &windowId)
{
    WindowRun *run = this->run(windowId);
    if (run && (run->phase == Phase::Streaming || run->phase == Phase::Pausing))
        stopRun(*run);
}

void SessionController::onRetryRequested(const QString &windowId)
{
    qCInfo(lcSession).noquote() << "SessionController: Retry requested";
    WindowRun *run = this->run(windowId);
    if (!run || run->text.isEmpty() || run->phase == Phase::Capturing || run->phase == Phase::Recognising)
        return;
    runAiAction(*run, run->action, run->text);
}

void SessionController::onWindowClosed(const QString &windowId)
{
    qCInfo(lcSession).noquote() << "SessionController: Overlay closed" << windowId;
    forgetRun(windowId);
}
