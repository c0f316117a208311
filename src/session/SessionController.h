#pragma once

#include "ai/ActionService.h"
#include "session/IResultView.h"
#include "session/ResultWindows.h"
#include "session/SelectionCopier.h"

#include <QImage>
#include <QList>
#include <QObject>
#include <QPointer>
#include <QString>

#include <functional>
#include <memory>

class AiRuns;
class IRegionCapture;
class ClipboardService;
class ConfigManager;
class HotkeyManager;
class Platform;
class IOcrProvider;
class ISelectedTextProvider;
class OcrWorkerResult;

// Turns a hotkey (or a tray entry) into a session: opens a result window, obtains the input (a screen region,
// the clipboard's image, or the selection read by a synthetic copy), has an image recognised, and streams
// the AI answer into the window. GUI thread only. The services are not owned and must outlive the controller.
class SessionController final : public QObject
{
    Q_OBJECT

public:
    enum SessionState {
        Idle = 0,
        Capturing = 1,
        OCRing = 2,
        WaitingAction = 3,
        ProcessingAI = 4,
        Done = 5,
        Failed = 6,
    };
    Q_ENUM(SessionState)

    enum InputSource {
        ScreenCapture = 0,
        Clipboard = 1,
        SelectedText = 2,
    };
    Q_ENUM(InputSource)

    enum Permission {
        Accessibility = 0,
        ScreenRecording = 1,
    };
    Q_ENUM(Permission)

    // The factory makes each result window; without one, sessions run without windows.
    explicit SessionController(ResultWindows::Factory viewFactory = {}, QObject *parent = nullptr);
    ~SessionController() override;

    // The provider settings and the default pinning; a warm client for the provider is made right away.
    void setConfig(ConfigManager *config);
    void setCaptureService(IRegionCapture *service);
    // Required before the first hotkey: permissions and the copy keystroke.
    void setPlatform(Platform *platform);
    void setClipboardService(ClipboardService *service);
    // See SelectionCopier::setSelectedTextProvider.
    void setSelectedTextProvider(ISelectedTextProvider *provider, std::function<bool()> preferProvider = {});
    void setHotkeyManager(HotkeyManager *manager);
    void setOcrProvider(IOcrProvider *provider);
    void setActionService(ActionService *service);

    SessionState state() const { return m_state; }
    InputSource inputSource() const { return m_inputSource; }
    QString sourceText() const { return m_sourceText; }
    IResultView *currentWindow() const { return m_windows.current(); }
    QList<IResultView *> pinnedWindows() const { return m_windows.pinned(); }
    bool isCopyFallbackActive() const { return m_copier && m_copier->isActive(); }
    int runningRequestCount() const;
    const AiRuns *aiRuns() const { return m_aiRuns; }

signals:
    void stateChanged(SessionController::SessionState newState);
    void error(const QString &message);
    // The session could not start: the system withholds what it needs. The application explains it.
    void permissionMissing(SessionController::Permission permission);

public slots:
    void onHotkeyTriggered(int hotkeyId, quint64 timestamp = 0);

private slots:
    void onCaptureDone(const QImage &image);
    void onCaptureCancelled();
    void onOcrFinished(const QString &text);
    void onOcrError(const QString &message);
    void onSelectionRead(const QString &text, SelectionCopier::Source source);

private:
    void setState(SessionState newState);
    void reset();
    void startCaptureSession();
    void startClipboardImageSession();
    void startClipboardTextSession();
    void runOcr(const QImage &image);
    void applyProvider();
    IResultView::Requests requestsFor(const QString &windowId);
    void present();

    void runAiAction(ActionService::ActionType type, const QString &text, const QString &windowId);
    void onTranslateRequested(const QString &windowId, const QString &text);
    void onStopRequested(const QString &windowId);
    void onRetryRequested(const QString &windowId);
    void onWindowClosed(const QString &windowId);
    void onAiChunk(const QString &windowId, const QString &chunk);
    void onAiFinished(const QString &windowId);
    void onAiFailed(const QString &windowId, const QString &message);

    SessionState m_state = Idle;
    InputSource m_inputSource = ScreenCapture;
    QString m_sourceText;
    // Counts sessions, so a delayed step of a replaced session (the pause before the request) does nothing.
    quint64 m_sessionNumber = 0;

    QPointer<ConfigManager> m_config;
    IRegionCapture *m_captureService = nullptr;
    Platform *m_platform = nullptr;
    ClipboardService *m_clipboardService = nullptr;
    ISelectedTextProvider *m_selectedTextProvider = nullptr;
    std::function<bool()> m_preferSelectedTextProvider;
    HotkeyManager *m_hotkeyManager = nullptr;
    IOcrProvider *m_ocrProvider = nullptr;
    ActionService *m_actionService = nullptr;
    OcrWorkerResult *m_ocrResult = nullptr;
    SelectionCopier *m_copier = nullptr;
    AiRuns *m_aiRuns = nullptr;
    ActionService::ActionType m_lastActionType = ActionService::Translate;
    QString m_lastActionText;

    // Last, so the windows go first and none reports back into a half-destroyed controller.
    ResultWindows m_windows;
};
