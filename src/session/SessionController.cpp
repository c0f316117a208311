#include "session/SessionController.h"

#include "config/ConfigManager.h"
#include "log/LogCategories.h"
#include "ocr/IOcrProvider.h"
#include "ocr/OcrWorker.h"
#include "ocr/OcrWorkerResult.h"
#include "platform/HotkeyManager.h"
#include "platform/Platform.h"
#include "session/AiRuns.h"
#include "session/IRegionCapture.h"

#include <QDebug>
#include <QMetaEnum>
#include <QThreadPool>
#include <QTimer>

namespace {

// The user sees the recognised text for this long before the request starts, and can still press the hotkey
// again to abandon a wrong capture without spending a request.
constexpr int kAiStartDelayMs = 1000;

QString stateName(SessionController::SessionState state)
{
    return QString::fromLatin1(QMetaEnum::fromType<SessionController::SessionState>().valueToKey(state));
}

} // namespace

SessionController::SessionController(ResultWindows::Factory viewFactory, QObject *parent)
    : QObject(parent)
    , m_aiRuns(new AiRuns(this))
    , m_windows(std::move(viewFactory), [this](const QString &windowId) { return requestsFor(windowId); })
{
    connect(m_aiRuns, &AiRuns::chunk, this, &SessionController::onAiChunk);
    connect(m_aiRuns, &AiRuns::finished, this, [this](const QString &windowId) { onAiFinished(windowId); });
    connect(m_aiRuns, &AiRuns::failed, this, &SessionController::onAiFailed);
}

SessionController::~SessionController()
{
    // Before the windows go: a copy still outstanding hands the user's clipboard back.
    if (m_copier)
        m_copier->abandon();
    m_aiRuns->cancelAll();
}

int SessionController::runningRequestCount() const
{
    return m_aiRuns->runningCount();
}

void SessionController::setConfig(ConfigManager *config)
{
    if (m_config)
        disconnect(m_config, nullptr, this, nullptr);
    m_config = config;
    if (m_config)
        connect(m_config, &ConfigManager::configChanged, this, &SessionController::applyProvider);
    applyProvider();
}

void SessionController::applyProvider()
{
    if (m_config)
        m_aiRuns->setProvider({m_config->apiUrl(), m_config->apiKey(), m_config->model()});
}

void SessionController::setCaptureService(IRegionCapture *service)
{
    if (m_captureService)
        disconnect(m_captureService, nullptr, this, nullptr);
    m_captureService = service;
    if (m_captureService) {
        connect(m_captureService, &IRegionCapture::captureDone, this, &SessionController::onCaptureDone);
        connect(m_captureService, &IRegionCapture::captureCancelled, this,
                &SessionController::onCaptureCancelled);
        // The user pressed the hotkey and saw nothing: say why.
        connect(m_captureService, &IRegionCapture::captureFailed, this,
                [this](const QString &reason) { emit error(tr("Screen capture failed: %1").arg(reason)); });
    }
}

void SessionController::setPlatform(Platform *platform)
{
    m_platform = platform;
    if (m_copier)
        m_copier->setPlatform(platform);
}

void SessionController::setClipboardService(ClipboardService *service)
{
    m_clipboardService = service;
    delete m_copier;
    m_copier = new SelectionCopier(service, this);
    m_copier->setPlatform(m_platform);
    m_copier->setSelectedTextProvider(m_selectedTextProvider, m_preferSelectedTextProvider);
    connect(m_copier, &SelectionCopier::finished, this, &SessionController::onSelectionRead);
}

void SessionController::setSelectedTextProvider(ISelectedTextProvider *provider,
                                                std::function<bool()> preferProvider)
{
    m_selectedTextProvider = provider;
    m_preferSelectedTextProvider = std::move(preferProvider);
    if (m_copier)
        m_copier->setSelectedTextProvider(provider, m_preferSelectedTextProvider);
}

void SessionController::setHotkeyManager(HotkeyManager *manager)
{
    if (m_hotkeyManager)
        disconnect(m_hotkeyManager, nullptr, this, nullptr);
    m_hotkeyManager = manager;
    if (m_hotkeyManager)
        connect(m_hotkeyManager, &HotkeyManager::hotkeyTriggered, this,
                &SessionController::onHotkeyTriggered);
}

void SessionController::setOcrProvider(IOcrProvider *provider)
{
    m_ocrProvider = provider;
}

void SessionController::setActionService(ActionService *service)
{
    m_actionService = service;
}

void SessionController::setState(SessionState newState)
{
    if (newState == m_state)
        return;
    qCDebug(lcSession).noquote() << "SessionController: State changed from" << stateName(m_state) << "to"
                                 << stateName(newState);
    m_state = newState;
    emit stateChanged(newState);
}

void SessionController::reset()
{
    // A session replaced while its copy is still outstanding hands the clipboard back before anything else.
    if (m_copier)
        m_copier->abandon();
    m_aiRuns->cancelAll();
    m_sourceText.clear();
    ++m_sessionNumber;
    setState(Idle);
}

void SessionController::onHotkeyTriggered(int hotkeyId, quint64 timestamp)
{
    qCDebug(lcSession).noquote() << "SessionController: Hotkey triggered:" << hotkeyId;
    if (m_state != Idle)
        qCInfo(lcSession).noquote() << "SessionController: Interrupting current session to start new one";
    m_windows.releaseCurrent();
    reset();

    if (hotkeyId == HotkeyManager::ClipboardTextHotkey &&
        !m_platform->hasPermission(Platform::Permission::Accessibility)) {
        emit permissionMissing(Accessibility);
        return;
    }
    if (hotkeyId == HotkeyManager::CaptureHotkey &&
        !m_platform->hasPermission(Platform::Permission::ScreenRecording)) {
        emit permissionMissing(ScreenRecording);
        return;
    }

    m_windows.open(m_config && m_config->pinOverlayByDefault());
    if (IResultView *view = m_windows.current())
        view->setActivationTime(timestamp);
    switch (hotkeyId) {
    case HotkeyManager::ClipboardTextHotkey:
        startClipboardTextSession();
        break;
    case HotkeyManager::ClipboardHotkey:
        startClipboardImageSession();
        break;
    case HotkeyManager::CaptureHotkey:
        startCaptureSession();
        break;
    default:
        qCWarning(lcSession).noquote() << "SessionController: Unknown hotkey ID:" << hotkeyId;
        break;
    }
}

void SessionController::present()
{
    if (IResultView *view = m_windows.current())
        view->present();
}

// ---- Inputs -----------------------------------------------------------------------------------------------

void SessionController::startCaptureSession()
{
    if (!m_captureService) {
        emit error(tr("Capture service not available"));
        return;
    }
    qCInfo(lcSession).noquote() << "SessionController: Starting capture session";
    m_inputSource = ScreenCapture;
    setState(Capturing);
    m_captureService->startCapture();
}

void SessionController::onCaptureDone(const QImage &image)
{
    qCInfo(lcSession).noquote() << "SessionController: Capture done, image size:" << image.size();
    if (m_state != Capturing)
        return;
    runOcr(image);
}

void SessionController::onCaptureCancelled()
{
    qCInfo(lcSession).noquote() << "SessionController: Capture cancelled";
    reset();
}

void SessionController::startClipboardImageSession()
{
    if (!m_clipboardService) {
        emit error(tr("Clipboard service not available"));
        return;
    }
    qCInfo(lcSession).noquote() << "SessionController: Starting clipboard image session";
    m_inputSource = Clipboard;
    const QImage image = m_clipboardService->hasImage() ? m_clipboardService->getImage() : QImage();
    if (!image.isNull()) {
        runOcr(image);
        return;
    }
    if (IResultView *view = m_windows.current())
        view->showMessage(IResultView::Message::NoImageInClipboard);
    present();
}

void SessionController::startClipboardTextSession()
{
    qCInfo(lcSession).noquote() << "SessionController: Starting clipboard text session";
    setState(WaitingAction);
    if (!m_copier)
        return;
    if (!m_copier->start()) {
        if (IResultView *view = m_windows.current())
            view->showMessage(IResultView::Message::CopyFailed);
        present();
        setState(Idle);
    }
}

void SessionController::onSelectionRead(const QString &text, SelectionCopier::Source source)
{
    m_inputSource = source == SelectionCopier::SelectedText ? SelectedText : Clipboard;
    m_sourceText = text;
    IResultView *view = m_windows.current();
    if (!view)
        return;
    view->showSource(text, true);
    present();
    if (!text.isEmpty())
        runAiAction(ActionService::Translate, text, m_windows.currentId());
}

// ---- Recognition ------------------------------------------------------------------------------------------

void SessionController::runOcr(const QImage &image)
{
    if (image.isNull()) {
        emit error(tr("Invalid image"));
        reset();
        return;
    }
    if (!m_ocrProvider) {
        emit error(tr("OCR provider not available"));
        reset();
        return;
    }
    setState(OCRing);
    if (IResultView *view = m_windows.current())
        view->showRecognising(image);
    present();

    if (m_ocrResult)
        m_ocrResult->deleteLater();
    m_ocrResult = new OcrWorkerResult(this);
    connect(m_ocrResult, &OcrWorkerResult::finished, this, &SessionController::onOcrFinished);
    connect(m_ocrResult, &OcrWorkerResult::error, this, &SessionController::onOcrError);
    QThreadPool::globalInstance()->start(new OcrWorker(image, m_ocrProvider, m_ocrResult), 0);
}

void SessionController::onOcrFinished(const QString &text)
{
    qCInfo(lcSession).noquote() << "SessionController: OCR finished, text length:" << text.length();
    if (m_state != OCRing)
        return;
    const bool hasText = !text.trimmed().isEmpty();
    m_sourceText = hasText ? text : QString();
    setState(WaitingAction);
    IResultView *view = m_windows.current();
    if (!view)
        return;
    view->showSource(m_sourceText, false);
    if (!hasText)
        return;
    const quint64 session = m_sessionNumber;
    const QString windowId = m_windows.currentId();
    QTimer::singleShot(kAiStartDelayMs, Qt::PreciseTimer, this, [this, session, text, windowId] {
        if (session == m_sessionNumber && m_state == WaitingAction)
            runAiAction(ActionService::Translate, text, windowId);
    });
}

void SessionController::onOcrError(const QString &message)
{
    qCWarning(lcSession).noquote() << "SessionController: OCR error:" << message;
    if (m_state != OCRing)
        return;
    if (IResultView *view = m_windows.current())
        view->showError(tr("OCR failed: %1").arg(message));
    setState(Failed);
}

// ---- Windows and AI runs ----------------------------------------------------------------------------------

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

void SessionController::runAiAction(ActionService::ActionType type, const QString &text,
                                    const QString &windowId)
{
    IResultView *view = m_windows.find(windowId);
    if (!m_actionService) {
        if (view)
            view->showError(tr("AI service not available"));
        return;
    }
    if (!m_config || m_config->apiUrl().isEmpty() || m_config->apiKey().isEmpty()) {
        if (view)
            view->showError(tr("AI not configured. Please set API key."));
        return;
    }
    const QString prompt = m_actionService->buildPrompt(type, text);
    if (prompt.isEmpty()) {
        if (view)
            view->showError(tr("Failed to build prompt"));
        setState(Failed);
        return;
    }
    setState(ProcessingAI);
    if (view)
        view->beginResult();
    m_lastActionType = type;
    m_lastActionText = text;
    m_aiRuns->start(windowId, prompt);
}

void SessionController::onAiChunk(const QString &windowId, const QString &chunk)
{
    if (IResultView *view = m_windows.find(windowId))
        view->appendResult(chunk);
}

void SessionController::onAiFinished(const QString &windowId)
{
    qCInfo(lcSession).noquote() << "SessionController: AI streaming finished for window" << windowId;
    if (IResultView *view = m_windows.find(windowId))
        view->endResult(IResultView::ResultEnd::Finished);
    if (m_aiRuns->runningCount() == 0)
        setState(Done);
}

void SessionController::onAiFailed(const QString &windowId, const QString &message)
{
    qCWarning(lcSession).noquote() << "SessionController: AI streaming error for window" << windowId << ":"
                                   << message;
    if (IResultView *view = m_windows.find(windowId))
        view->showError(tr("AI failed: %1").arg(message));
    if (m_aiRuns->runningCount() == 0)
        setState(Failed);
}

void SessionController::onTranslateRequested(const QString &windowId, const QString &text)
{
    if (m_state != WaitingAction && m_state != Done) {
        qCWarning(lcSession).noquote() << "SessionController: Cannot process action in current state";
        return;
    }
    if (text.trimmed().isEmpty()) {
        if (IResultView *view = m_windows.find(windowId))
            view->showError(tr("No text to process"));
        return;
    }
    runAiAction(ActionService::Translate, text, windowId);
}

void SessionController::onStopRequested(const QString &windowId)
{
    m_aiRuns->cancel(windowId);
    if (IResultView *view = m_windows.find(windowId))
        view->endResult(IResultView::ResultEnd::Stopped);
    if (m_aiRuns->runningCount() == 0)
        setState(Done);
}

void SessionController::onRetryRequested(const QString &windowId)
{
    if (!m_lastActionText.isEmpty())
        runAiAction(m_lastActionType, m_lastActionText, windowId);
}

void SessionController::onWindowClosed(const QString &windowId)
{
    qCInfo(lcSession).noquote() << "SessionController: Overlay closed" << windowId;
    m_aiRuns->cancel(windowId);
    if (m_aiRuns->runningCount() == 0 && m_state != Idle)
        setState(Idle);
}
