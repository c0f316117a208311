#include "session/SessionController.h"

#include "ai/StreamingAiWorker.h"
#include "capture/CaptureService.h"
#include "config/ConfigManager.h"
#include "ocr/IOcrProvider.h"
#include "ocr/OcrWorker.h"
#include "ocr/OcrWorkerResult.h"
#include "platform/CopyShortcut.h"
#include "platform/HotkeyManager.h"
#include "platform/ISelectedTextProvider.h"
#include "platform/PermissionGuideDialog.h"
#include "platform/Permissions.h"
#include "ui/result/ResultWindow.h"

#include <QClipboard>
#include <QDebug>
#include <QGuiApplication>
#include <QMetaEnum>
#include <QThreadPool>

namespace {

// The user sees the recognised text for this long before the request starts, and can still press the hotkey
// again to abandon a wrong capture without spending a request.
constexpr int kAiStartDelayMs = 1000;
// How long the synthetic copy may take to reach the clipboard before the clipboard's own text is used.
constexpr int kCopyWaitMs = 150;
// How long after a restore a late copy of the other application is still undone. Long enough for a slow
// application to answer the keystroke, short enough not to meet a copy the user makes on purpose.
constexpr int kRestoreGuardMs = 1000;
constexpr int kAiTimeoutMs = 30000;

QString stateName(SessionController::SessionState state)
{
    return QString::fromLatin1(QMetaEnum::fromType<SessionController::SessionState>().valueToKey(state));
}

const char *boolText(bool value)
{
    return value ? "true" : "false";
}

bool sameSnapshot(const ClipboardService::Snapshot &a, const ClipboardService::Snapshot &b)
{
    return a.formats == b.formats && a.dataByFormat == b.dataByFormat;
}

} // namespace

SessionController::SessionController(QObject *parent)
    : QObject(parent)
{
    m_restoreGuardTimer.setSingleShot(true);
    m_restoreGuardTimer.setTimerType(Qt::PreciseTimer);
    connect(&m_restoreGuardTimer, &QTimer::timeout, this, &SessionController::stopRestoreGuard);
}

SessionController::~SessionController()
{
    // Quitting while a copy is outstanding must still leave the user's clipboard as it was.
    abandonCopySelectionFallback();
    stopRestoreGuard();

    for (StreamingAiWorker *worker : std::as_const(m_workers)) {
        worker->disconnect(this);
        worker->cancel();
        worker->deleteLater();
    }
    m_workers.clear();

    // Deleted at once rather than deferred: the event loop has usually ended when the controller goes, and
    // windows scheduled for deletion then would never be freed. Disconnected first, so that hiding a visible
    // window does not call back into a controller that is being destroyed.
    QList<ResultWindow *> windows = m_pinnedWindows;
    if (m_currentWindow && !windows.contains(m_currentWindow.data()))
        windows.append(m_currentWindow.data());
    m_pinnedWindows.clear();
    m_currentWindow.clear();
    for (ResultWindow *window : std::as_const(windows)) {
        window->disconnect(this);
        delete window;
    }
}

ResultWindow *SessionController::currentWindow() const
{
    return m_currentWindow.data();
}

void SessionController::setCaptureService(CaptureService *service)
{
    if (m_captureService)
        disconnect(m_captureService, nullptr, this, nullptr);
    m_captureService = service;
    if (m_captureService) {
        connect(m_captureService, &CaptureService::captureDone, this, &SessionController::onCaptureDone);
        connect(m_captureService, &CaptureService::captureCancelled, this,
                &SessionController::onCaptureCancelled);
    }
}

void SessionController::setClipboardService(ClipboardService *service)
{
    m_clipboardService = service;
}

void SessionController::setSelectedTextProvider(ISelectedTextProvider *provider)
{
    m_selectedTextProvider = provider;
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
    qDebug().noquote() << "SessionController: State changed from" << stateName(m_state) << "to"
                       << stateName(newState);
    m_state = newState;
    emit stateChanged(newState);
}

void SessionController::onHotkeyTriggered(int hotkeyId)
{
    qDebug().noquote() << "SessionController: Hotkey triggered:" << hotkeyId;
    ++m_sessionGeneration;

    if (m_currentWindow && !m_currentWindow->isPinned()) {
        ResultWindow *window = m_currentWindow.data();
        m_closingCurrentWindow = true;
        window->hide();
        window->deleteLater();
        m_currentWindow.clear();
        m_closingCurrentWindow = false;
    }

    if (m_state != Idle) {
        qInfo().noquote() << "SessionController: Interrupting current session to start new one";
        reset();
    }

    if (hotkeyId == HotkeyManager::ClipboardTextHotkey && !Permissions::hasAccessibilityPermission()) {
        PermissionGuideDialog::ensurePermission(PermissionGuideDialog::Accessibility, nullptr);
        return;
    }
    if (hotkeyId == HotkeyManager::CaptureHotkey && !Permissions::hasScreenRecordingPermission()) {
        PermissionGuideDialog::ensurePermission(PermissionGuideDialog::ScreenRecording, nullptr);
        return;
    }

    m_currentWindow = createResultWindow();

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
        qWarning().noquote() << "SessionController: Unknown hotkey ID:" << hotkeyId;
        break;
    }
}

void SessionController::startCaptureSession()
{
    if (m_state != Idle) {
        qWarning().noquote() << "SessionController: Cannot start capture, not in Idle state";
        return;
    }
    if (!m_captureService) {
        emit error(tr("Capture service not available"));
        return;
    }
    if (!Permissions::hasScreenRecordingPermission()) {
        PermissionGuideDialog::ensurePermission(PermissionGuideDialog::ScreenRecording, nullptr);
        return;
    }
    qInfo().noquote() << "SessionController: Starting capture session";
    ++m_sessionGeneration;
    m_inputSource = ScreenCapture;
    setState(Capturing);
    m_captureService->startCapture();
}

void SessionController::onCaptureDone(const QImage &image)
{
    qInfo().noquote() << "SessionController: Capture done, image size:" << image.size();
    if (m_state != Capturing) {
        qWarning().noquote() << "SessionController: Received capture result in unexpected state";
        return;
    }
    processImage(image);
}

void SessionController::onCaptureCancelled()
{
    qInfo().noquote() << "SessionController: Capture cancelled";
    reset();
}

void SessionController::processImage(const QImage &image)
{
    if (image.isNull()) {
        emit error(tr("Invalid image"));
        reset();
        return;
    }
    m_capturedImage = image;
    runOcr(image);
}

void SessionController::processText(const QString &text)
{
    m_sourceText = text;
    setState(WaitingAction);
    if (!m_currentWindow)
        return;
    m_currentWindow->setMode(ResultWindow::TextMode);
    m_currentWindow->showTranslation(false);
    m_currentWindow->clearTranslation();
    m_currentWindow->setSourceEditable(true);
    m_currentWindow->setSourceText(text);
    showOverlay();
    runAiAction(ActionService::Translate, text, m_currentWindow->windowId);
}

void SessionController::startClipboardSession()
{
    if (m_state != Idle) {
        qWarning().noquote() << "SessionController: Cannot start clipboard session, not in Idle state";
        return;
    }
    if (!m_clipboardService) {
        emit error(tr("Clipboard service not available"));
        return;
    }
    qInfo().noquote() << "SessionController: Starting clipboard session";
    m_inputSource = Clipboard;

    if (m_clipboardService->hasImage()) {
        const QImage image = m_clipboardService->getImage();
        if (!image.isNull()) {
            processImage(image);
            return;
        }
    }
    if (m_clipboardService->hasText()) {
        const QString text = m_clipboardService->getText();
        if (!text.isEmpty()) {
            processText(text);
            return;
        }
    }
    emit error(tr("Clipboard is empty"));
    reset();
}

void SessionController::startClipboardImageSession()
{
    if (m_state != Idle) {
        qWarning().noquote() << "SessionController: Cannot start clipboard image session, not in Idle state";
        return;
    }
    if (!m_clipboardService) {
        emit error(tr("Clipboard service not available"));
        return;
    }
    qInfo().noquote() << "SessionController: Starting clipboard image session";
    ++m_sessionGeneration;
    m_inputSource = Clipboard;

    if (m_clipboardService->hasImage()) {
        const QImage image = m_clipboardService->getImage();
        if (!image.isNull()) {
            processImage(image);
            return;
        }
    }
    if (m_currentWindow) {
        m_currentWindow->setMode(ResultWindow::MessageMode);
        m_currentWindow->setMessageText(tr("No image in clipboard"));
    }
    showOverlay();
    setState(Idle);
}

void SessionController::startClipboardTextSession()
{
    if (m_state != Idle) {
        qWarning().noquote() << "SessionController: Cannot start clipboard text session, not in Idle state";
        return;
    }
    qInfo().noquote() << "SessionController: Starting clipboard text session";
    ++m_sessionGeneration;
    setState(WaitingAction);
    if (!m_currentWindow)
        return;
    m_currentWindow->setMode(ResultWindow::TextMode);
    m_currentWindow->showTranslation(false);
    m_currentWindow->clearTranslation();
    qInfo().noquote() << "SessionController: Using copy-based selection strategy";
    startCopySelectionFallback();
}

void SessionController::reset()
{
    qDebug().noquote() << "SessionController: reset from state =" << stateName(m_state)
                       << "sessionGeneration =" << m_sessionGeneration;

    // A session replaced while its copy is still outstanding hands the clipboard back before anything else.
    abandonCopySelectionFallback();

    for (StreamingAiWorker *worker : std::as_const(m_workers)) {
        worker->cancel();
        worker->deleteLater();
    }
    m_workers.clear();

    m_capturedImage = QImage();
    m_sourceText.clear();

    ++m_sessionGeneration;
    setState(Idle);
    qDebug().noquote() << "SessionController: reset done sessionGeneration =" << m_sessionGeneration;
}

void SessionController::cancelSession()
{
    qInfo().noquote() << "SessionController: Cancelling session";
    if (m_currentWindow && m_currentWindow->isVisible())
        m_currentWindow->hide();
    reset();
}

// ---- Result windows -------------------------------------------------------------------------------------

QString SessionController::generateWindowId()
{
    return QStringLiteral("window_%1").arg(m_nextWindowNumber++);
}

ResultWindow *SessionController::createResultWindow()
{
    auto *window = new ResultWindow();
    window->windowId = generateWindowId();
    connect(window, &ResultWindow::translateRequested, this, &SessionController::onTranslateRequested);
    connect(window, &ResultWindow::stopRequested, this, &SessionController::onStopRequested);
    connect(window, &ResultWindow::closed, this, &SessionController::onOverlayClosed);
    connect(window, &ResultWindow::pinStateChanged, this, &SessionController::onWindowPinStateChanged);
    connect(window, &ResultWindow::retryRequested, this, &SessionController::onRetryRequested);
    if (ConfigManager::instance()->pinOverlayByDefault())
        window->setPinned(true);
    return window;
}

ResultWindow *SessionController::findWindowById(const QString &windowId) const
{
    if (m_currentWindow && m_currentWindow->windowId == windowId)
        return m_currentWindow.data();
    for (ResultWindow *window : m_pinnedWindows) {
        if (window->windowId == windowId)
            return window;
    }
    return nullptr;
}

void SessionController::showOverlay()
{
    if (!m_currentWindow)
        return;
    qDebug().noquote() << "SessionController: showOverlay window =" << m_currentWindow->windowId
                       << "pinned =" << boolText(m_currentWindow->isPinned())
                       << "visible =" << boolText(m_currentWindow->isVisible());
    Permissions::activateApp();
    m_currentWindow->show();
    m_currentWindow->raise();
    m_currentWindow->activateWindow();
}

void SessionController::onWindowPinStateChanged(bool pinned)
{
    auto *window = qobject_cast<ResultWindow *>(sender());
    if (!window)
        return;
    if (pinned) {
        if (!m_pinnedWindows.contains(window))
            m_pinnedWindows.append(window);
        qInfo().noquote() << "SessionController: Window pinned, total pinned:" << m_pinnedWindows.size();
    } else {
        m_pinnedWindows.removeAll(window);
        if (!m_currentWindow)
            m_currentWindow = window;
        qInfo().noquote() << "SessionController: Window unpinned, total pinned:" << m_pinnedWindows.size();
    }
}

void SessionController::onOverlayClosed()
{
    if (m_closingCurrentWindow)
        return;
    auto *window = qobject_cast<ResultWindow *>(sender());
    if (!window) {
        qInfo().noquote() << "SessionController: Overlay closed (unknown sender)";
        reset();
        return;
    }
    qInfo().noquote() << "SessionController: Overlay closed" << window->windowId;
    cleanupWorker(window->windowId);
    m_pinnedWindows.removeAll(window);
    if (m_currentWindow == window)
        m_currentWindow.clear();
    window->deleteLater();

    if (m_workers.isEmpty() && m_state != Idle)
        setState(Idle);
}

// ---- Recognition ----------------------------------------------------------------------------------------

void SessionController::runOcr(const QImage &image)
{
    if (!m_ocrProvider) {
        emit error(tr("OCR provider not available"));
        reset();
        return;
    }
    setState(OCRing);

    if (m_currentWindow) {
        m_currentWindow->setMode(ResultWindow::CaptureMode);
        m_currentWindow->setPreviewImage(image);
        m_currentWindow->showTranslation(false);
        m_currentWindow->clearTranslation();
        m_currentWindow->setSourceEditable(false);
        m_currentWindow->setSourceText(tr("Recognizing text..."));
    }
    showOverlay();

    if (m_ocrResult)
        m_ocrResult->deleteLater();
    m_ocrResult = new OcrWorkerResult(this);
    connect(m_ocrResult, &OcrWorkerResult::finished, this, &SessionController::onOcrFinished);
    connect(m_ocrResult, &OcrWorkerResult::error, this, &SessionController::onOcrError);

    QThreadPool::globalInstance()->start(new OcrWorker(image, m_ocrProvider, m_ocrResult), 0);
}

void SessionController::onOcrFinished(const QString &text)
{
    qInfo().noquote() << "SessionController: OCR finished, text length:" << text.length();
    if (m_state != OCRing)
        return;

    m_sourceText = text;
    setState(WaitingAction);
    if (!m_currentWindow)
        return;

    if (!text.trimmed().isEmpty()) {
        m_currentWindow->setSourceText(text);
        m_currentWindow->showTranslation(true);
        m_currentWindow->clearTranslation();
        const unsigned long long generation = m_sessionGeneration;
        const QString windowId = m_currentWindow->windowId;
        QTimer::singleShot(kAiStartDelayMs, Qt::PreciseTimer, this, [this, generation, text, windowId]() {
            if (generation != m_sessionGeneration || m_state != WaitingAction)
                return;
            runAiAction(ActionService::Translate, text, windowId);
        });
    } else {
        m_currentWindow->setSourceText(tr("No text recognized"));
        m_currentWindow->showTranslation(false);
    }
}

void SessionController::onOcrError(const QString &message)
{
    qWarning().noquote() << "SessionController: OCR error:" << message;
    if (m_state != OCRing)
        return;
    if (m_currentWindow)
        m_currentWindow->setError(tr("OCR failed: %1").arg(message));
    setState(Failed);
}

// ---- AI runs --------------------------------------------------------------------------------------------

void SessionController::runAiAction(ActionService::ActionType type, const QString &text,
                                    const QString &windowId)
{
    ResultWindow *window = findWindowById(windowId);
    if (!m_actionService) {
        if (window)
            window->setError(tr("AI service not available"));
        return;
    }
    ConfigManager *config = ConfigManager::instance();
    if (config->apiUrl().isEmpty() || config->apiKey().isEmpty()) {
        if (window)
            window->setError(tr("AI not configured. Please set API key."));
        return;
    }

    setState(ProcessingAI);
    if (window) {
        window->showTranslation(true);
        window->setProcessing(true);
        window->clearTranslation();
    }

    const QString prompt = m_actionService->buildPrompt(type, text);
    if (prompt.isEmpty()) {
        if (window)
            window->setError(tr("Failed to build prompt"));
        setState(Failed);
        return;
    }

    m_lastActionType = type;
    m_lastActionText = text;

    qInfo().noquote() << "SessionController: Starting streaming AI request for window" << windowId;
    cleanupWorker(windowId);

    StreamingAiWorker::Config workerConfig;
    workerConfig.apiUrl = config->apiUrl();
    workerConfig.apiKey = config->apiKey();
    workerConfig.model = config->model();
    workerConfig.timeoutMs = kAiTimeoutMs;

    auto *worker = new StreamingAiWorker(prompt, windowId, workerConfig, this);
    connect(worker, &StreamingAiWorker::chunkReceived, this, &SessionController::onAiStreamingChunk);
    connect(worker, &StreamingAiWorker::finished, this, &SessionController::onAiStreamingFinished);
    connect(worker, &StreamingAiWorker::errorOccurred, this, &SessionController::onAiStreamingError);
    m_workers.insert(windowId, worker);
    worker->start();
}

void SessionController::cleanupWorker(const QString &windowId)
{
    StreamingAiWorker *worker = m_workers.take(windowId);
    if (!worker)
        return;
    worker->cancel();
    worker->deleteLater();
}

void SessionController::onAiStreamingChunk(const QString &windowId, const QString &chunk)
{
    if (ResultWindow *window = findWindowById(windowId))
        window->appendTranslation(chunk);
}

void SessionController::onAiStreamingFinished(const QString &windowId, const QString &fullResponse)
{
    qInfo().noquote() << "SessionController: AI streaming finished for window" << windowId
                      << "total length:" << fullResponse.length();
    if (ResultWindow *window = findWindowById(windowId))
        window->setProcessing(false);
    cleanupWorker(windowId);
    if (m_workers.isEmpty())
        setState(Done);
}

void SessionController::onAiStreamingError(const QString &windowId, const QString &message)
{
    qWarning().noquote() << "SessionController: AI streaming error for window" << windowId << ":" << message;
    if (ResultWindow *window = findWindowById(windowId)) {
        window->setProcessing(false);
        window->setError(tr("AI failed: %1").arg(message));
    }
    cleanupWorker(windowId);
    if (m_workers.isEmpty())
        setState(Failed);
}

void SessionController::onTranslateRequested(const QString &text)
{
    qInfo().noquote() << "SessionController: Translate requested, text length:" << text.length();
    auto *window = qobject_cast<ResultWindow *>(sender());
    if (!window) {
        qWarning().noquote() << "SessionController: Cannot identify window for translate request";
        return;
    }
    if (m_state != WaitingAction && m_state != Done) {
        qWarning().noquote() << "SessionController: Cannot process action in current state";
        return;
    }
    const QString input = text.isEmpty() ? window->getSourceText() : text;
    if (input.trimmed().isEmpty()) {
        window->setError(tr("No text to process"));
        return;
    }
    runAiAction(ActionService::Translate, input, window->windowId);
}

void SessionController::onStopRequested()
{
    auto *window = qobject_cast<ResultWindow *>(sender());
    if (!window)
        return;
    if (StreamingAiWorker *worker = m_workers.value(window->windowId)) {
        worker->cancel();
        cleanupWorker(window->windowId);
    }
    window->setProcessing(false);
    if (!window->getTranslation().trimmed().isEmpty())
        window->appendTranslation(tr("\n\n(Stopped)"));
    else
        window->setTranslation(tr("(Stopped)"));
    if (m_workers.isEmpty())
        setState(Done);
}

void SessionController::onRetryRequested()
{
    qInfo().noquote() << "SessionController: Retry requested";
    auto *window = qobject_cast<ResultWindow *>(sender());
    if (m_lastActionText.isEmpty() || !window)
        return;
    runAiAction(m_lastActionType, m_lastActionText, window->windowId);
}

// ---- Copy-selection fallback ----------------------------------------------------------------------------

void SessionController::startCopySelectionFallback()
{
    if (!m_clipboardService) {
        qDebug().noquote() << "SessionController: Copy fallback skipped (no clipboard service)";
        return;
    }
    if (m_copyFallbackActive) {
        qInfo().noquote() << "SessionController: Copy fallback already active, skipping";
        return;
    }
    if (!Permissions::hasAccessibilityPermission()) {
        PermissionGuideDialog::ensurePermission(PermissionGuideDialog::Accessibility, nullptr);
        setState(Idle);
        return;
    }

    // A guard of an earlier restore would undo this fallback's own copy.
    stopRestoreGuard();

    m_copyFallbackActive = true;
    const unsigned long long generation = m_sessionGeneration;
    m_copyFallbackGeneration = generation;
    m_clipboardSnapshot = m_clipboardService->snapshot();
    qInfo().noquote() << "SessionController: Copy fallback starting, generation =" << generation;

    if (m_clipboardChangeConnection)
        disconnect(m_clipboardChangeConnection);
    m_clipboardChangeConnection =
        connect(m_clipboardService, &ClipboardService::clipboardChanged, this,
                [this, generation]() { finishCopySelectionFallback(generation, true); });

    if (!CopyShortcut::sendCopy()) {
        qWarning().noquote() << "SessionController: Copy fallback failed to send copy shortcut";
        disconnect(m_clipboardChangeConnection);
        m_clipboardChangeConnection = QMetaObject::Connection();
        m_clipboardService->restore(m_clipboardSnapshot);
        m_copyFallbackActive = false;
        if (m_currentWindow) {
            m_currentWindow->setMode(ResultWindow::MessageMode);
            m_currentWindow->setMessageText(
                tr("Failed to simulate copy to read selected text. Please copy manually or type directly."));
            showOverlay();
        }
        setState(Idle);
        return;
    }

    QTimer::singleShot(kCopyWaitMs, Qt::PreciseTimer, this,
                       [this, generation]() { finishCopySelectionFallback(generation, false); });
}

void SessionController::finishCopySelectionFallback(unsigned long long generation,
                                                    bool triggeredByClipboardSignal)
{
    if (!m_copyFallbackActive)
        return;
    if (generation != m_sessionGeneration) {
        // Normally a replacing session has already handed the clipboard back (reset); this is the last line
        // of defence for a generation change without a reset.
        abandonCopySelectionFallback();
        return;
    }

    disconnect(m_clipboardChangeConnection);
    m_clipboardChangeConnection = QMetaObject::Connection();

    const QString newText = m_clipboardService->getText().trimmed();
    QString previousText;
    for (const QString &format : std::as_const(m_clipboardSnapshot.formats)) {
        if (format.startsWith(QLatin1String("text/plain"))) {
            previousText = QString::fromUtf8(m_clipboardSnapshot.dataByFormat.value(format)).trimmed();
            break;
        }
    }
    qInfo().noquote() << "SessionController: Copy fallback read text length =" << newText.length()
                      << "triggeredByClipboardSignal =" << boolText(triggeredByClipboardSignal);

    m_clipboardService->restore(m_clipboardSnapshot);
    qInfo().noquote() << "SessionController: Copy fallback restored clipboard";
    m_copyFallbackActive = false;
    startRestoreGuard();

    if (!newText.isEmpty() && newText != previousText) {
        m_inputSource = SelectedText;
        m_sourceText = newText;
        if (m_currentWindow) {
            m_currentWindow->setSourceText(newText);
            m_currentWindow->setSourceEditable(true);
            showOverlay();
            runAiAction(ActionService::Translate, newText, m_currentWindow->windowId);
        }
        return;
    }

    qInfo().noquote() << "SessionController: Copy fallback produced no new text, fallback to clipboard read";
    QString text;
    if (m_clipboardService->hasText()) {
        text = m_clipboardService->getText();
        qInfo().noquote() << "SessionController: Clipboard text length =" << text.length();
    } else {
        qInfo().noquote() << "SessionController: Clipboard has no text";
    }

    if (text.isEmpty()) {
        m_sourceText.clear();
        if (m_currentWindow) {
            m_currentWindow->setSourceText(QString());
            m_currentWindow->setSourceEditable(true);
            showOverlay();
        }
        return;
    }

    m_inputSource = Clipboard;
    m_sourceText = text;
    if (m_currentWindow) {
        m_currentWindow->setSourceText(text);
        m_currentWindow->setSourceEditable(true);
        showOverlay();
        runAiAction(ActionService::Translate, text, m_currentWindow->windowId);
    }
}

void SessionController::abandonCopySelectionFallback()
{
    if (!m_copyFallbackActive)
        return;
    qInfo().noquote() << "SessionController: Copy fallback replaced, restoring clipboard, generation ="
                      << m_copyFallbackGeneration;
    disconnect(m_clipboardChangeConnection);
    m_clipboardChangeConnection = QMetaObject::Connection();
    m_copyFallbackActive = false;
    if (m_clipboardService) {
        m_clipboardService->restore(m_clipboardSnapshot);
        startRestoreGuard();
    }
}

void SessionController::startRestoreGuard()
{
    if (!m_clipboardService)
        return;
    disconnect(m_restoreGuardConnection);
    m_restoreGuardConnection = connect(m_clipboardService, &ClipboardService::clipboardChanged, this,
                                       &SessionController::onClipboardChangedAfterRestore);
    m_restoreGuardTimer.start(kRestoreGuardMs);
}

void SessionController::stopRestoreGuard()
{
    m_restoreGuardTimer.stop();
    disconnect(m_restoreGuardConnection);
    m_restoreGuardConnection = QMetaObject::Connection();
}

void SessionController::onClipboardChangedAfterRestore()
{
    // Our own restore reports a change too, and so does a copy from one of our windows: only a change made
    // by another application that left a different clipboard is a late copy. (Platforms that cannot tell the
    // owner answer false, and then the contents decide.)
    if (QGuiApplication::clipboard()->ownsClipboard())
        return;
    if (sameSnapshot(m_clipboardService->snapshot(), m_clipboardSnapshot))
        return;
    qInfo().noquote() << "SessionController: Late copy replaced the clipboard, restoring again";
    // Once only: one keystroke makes one copy, and a later change is the user's own.
    stopRestoreGuard();
    m_clipboardService->restore(m_clipboardSnapshot);
}
