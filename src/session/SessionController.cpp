#include "session/SessionController.h"

#include "config/ConfigManager.h"
#include "log/LogCategories.h"
#include "ocr/IOcrProvider.h"
#include "platform/HotkeyManager.h"
#include "platform/Platform.h"
#include "session/AiRuns.h"
#include "session/IRegionCapture.h"

#include <QDebug>
#include <QGuiApplication>
#include <QMetaEnum>
#include <QTimer>
#include <QWindow>

namespace {

// How long a read waits for the focus where only the focused window receives the clipboard. A compositor
// that refuses our window the focus (focus-stealing prevention without a token) must not keep the user
// waiting: the window then opens empty for typing, as it does for an empty clipboard.
constexpr int kFocusWaitMs = 1500;

using Phase = WindowRun::Phase;

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
    connect(m_aiRuns, &AiRuns::finished, this, [this](quint64 runNumber) { onAiFinished(runNumber); });
    connect(m_aiRuns, &AiRuns::failed, this, &SessionController::onAiFailed);
}

SessionController::~SessionController()
{
    // Before the windows go: a copy still outstanding hands the user's clipboard back.
    if (m_copier)
        m_copier->abandon();
    delete m_focusWait;
    m_focusWait = nullptr;
    m_aiRuns->cancelAll();
}

int SessionController::runningRequestCount() const
{
    return m_aiRuns->runningCount();
}

QString SessionController::sourceText() const
{
    const auto found = m_runs.find(m_windows.currentId());
    return found == m_runs.end() ? QString() : found->second.text;
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

void SessionController::updateState()
{
    bool streaming = false;
    for (const auto &[windowId, run] : m_runs)
        streaming = streaming || run.phase == Phase::Streaming;
    const WindowRun *current = currentRun();
    if (current && current->phase == Phase::Capturing)
        setState(Capturing);
    else if (streaming)
        setState(ProcessingAI);
    else if (!current)
        setState(Idle);
    else {
        switch (current->phase) {
        case Phase::Idle:
        case Phase::Capturing:
            setState(Idle);
            break;
        case Phase::Recognising:
            setState(OCRing);
            break;
        case Phase::Pausing:
        case Phase::Waiting:
            setState(WaitingAction);
            break;
        case Phase::Streaming:
            setState(ProcessingAI);
            break;
        case Phase::Done:
        case Phase::Stopped:
            setState(Done);
            break;
        case Phase::Failed:
            setState(Failed);
            break;
        }
    }
}

void SessionController::endSession()
{
    // A session replaced while its copy is still outstanding hands the clipboard back before anything else.
    if (m_copier)
        m_copier->abandon();
    delete m_focusWait;
    m_focusWait = nullptr;

    // The current window goes unless pinned; one the user has not seen yet goes even so.
    const QString currentId = m_windows.currentId();
    if (WindowRun *current = run(currentId)) {
        IResultView *view = this->view(*current);
        if (!view || !view->isPinned() || !current->presented) {
            forgetRun(currentId);
            m_windows.discard(currentId);
        }
    }
    m_windows.releaseCurrent();

    // A new session ends what the windows left open were doing, and tells them so.
    for (auto &[windowId, left] : m_runs) {
        left.automatic = false;
        if (left.phase == Phase::Capturing)
            setPhase(left, Phase::Idle);
        else if (left.phase == Phase::Pausing || left.phase == Phase::Streaming)
            stopRun(left);
    }
    updateState();
}

void SessionController::onHotkeyTriggered(int hotkeyId, quint64 timestamp)
{
    qCDebug(lcSession).noquote() << "SessionController: Hotkey triggered:" << hotkeyId;
    if (m_state != Idle)
        qCInfo(lcSession).noquote() << "SessionController: Interrupting current session to start new one";
    endSession();

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

    IResultView *view = m_windows.open(m_config && m_config->pinOverlayByDefault());
    if (!view)
        return;
    view->setActivationTime(timestamp);
    beginRun(m_windows.currentId(), Phase::Idle);
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

// ---- Inputs -----------------------------------------------------------------------------------------------

void SessionController::startCaptureSession()
{
    if (!m_captureService) {
        emit error(tr("Capture service not available"));
        return;
    }
    qCInfo(lcSession).noquote() << "SessionController: Starting capture session";
    m_inputSource = ScreenCapture;
    setPhase(*currentRun(), Phase::Capturing);
    m_captureService->startCapture();
}

// The selector runs one capture at a time and says nothing of whom it was for: its outcome belongs to the
// window that waits for a capture now, and to nobody once that window has moved on.
void SessionController::onCaptureDone(const QImage &image)
{
    qCInfo(lcSession).noquote() << "SessionController: Capture done, image size:" << image.size();
    WindowRun *run = currentRun();
    if (!run || run->phase != Phase::Capturing) {
        qCWarning(lcSession).noquote() << "SessionController: Received capture result in unexpected state";
        return;
    }
    runOcr(*run, image);
}

void SessionController::onCaptureCancelled()
{
    qCInfo(lcSession).noquote() << "SessionController: Capture cancelled";
    WindowRun *run = currentRun();
    if (run && run->phase == Phase::Capturing)
        setPhase(*run, Phase::Idle);
}

void SessionController::startClipboardImageSession()
{
    if (!m_clipboardService) {
        emit error(tr("Clipboard service not available"));
        return;
    }
    qCInfo(lcSession).noquote() << "SessionController: Starting clipboard image session";
    m_inputSource = Clipboard;
    WindowRun &run = *currentRun();
    const QImage image = m_clipboardService->hasImage() ? m_clipboardService->getImage() : QImage();
    if (!image.isNull()) {
        runOcr(run, image);
        return;
    }
    if (IResultView *view = this->view(run))
        view->showMessage(IResultView::Message::NoImageInClipboard);
    present(run);
}

void SessionController::startClipboardTextSession()
{
    qCInfo(lcSession).noquote() << "SessionController: Starting clipboard text session";
    WindowRun &run = *currentRun();
    setPhase(run, Phase::Waiting);
    if (!m_copier)
        return;
    if (m_platform && m_platform->clipboardNeedsFocus())
        readSelectionWhenFocused(run);
    else
        readSelection(run);
}

void SessionController::readSelection(WindowRun &run)
{
    if (!m_copier->start(run.number)) {
        if (IResultView *view = this->view(run))
            view->showMessage(IResultView::Message::CopyFailed);
        present(run);
        setPhase(run, Phase::Idle);
    }
}

void SessionController::readSelectionWhenFocused(WindowRun &run)
{
    delete m_focusWait;
    m_focusWait = new QObject(this);
    QObject *wait = m_focusWait;
    const quint64 number = run.number;
    const auto read = [this, wait, number] {
        if (m_focusWait != wait)
            return;
        m_focusWait = nullptr;
        wait->deleteLater();
        WindowRun *run = runNumbered(number);
        if (!run || !run->automatic || run->phase != Phase::Waiting)
            return;
        qCInfo(lcSession).noquote() << "SessionController: reading the selection, focused window ="
                                    << (QGuiApplication::focusWindow() != nullptr);
        readSelection(*run);
    };
    // The compositor sends the selections along with the focus; one turn of the event loop takes them in.
    const auto focused = [wait, read] {
        QTimer::singleShot(0, wait, read);
    };

    // Shown first, empty and waiting: the compositor hands the selections only to the focused client.
    present(run);
    QTimer::singleShot(kFocusWaitMs, wait, read);
    if (QGuiApplication::focusWindow()) {
        focused();
        return;
    }
    connect(qGuiApp, &QGuiApplication::focusWindowChanged, wait, [focused](QWindow *window) {
        if (window)
            focused();
    });
}

void SessionController::onSelectionRead(quint64 runNumber, const QString &text,
                                        SelectionCopier::Source source)
{
    WindowRun *run = runNumbered(runNumber);
    if (!run || !run->automatic || run->phase != Phase::Waiting)
        return;
    m_inputSource = source == SelectionCopier::SelectedText ? SelectedText : Clipboard;
    run->text = text;
    if (IResultView *view = this->view(*run))
        view->showSource(text, true);
    present(*run);
    if (!text.isEmpty())
        runAiAction(*run, ActionService::Translate, text);
}
