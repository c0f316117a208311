#pragma once

#include "ai/ActionService.h"
#include "session/IResultView.h"
#include "session/ResultWindows.h"
#include "session/SelectionCopier.h"
#include "session/WindowRun.h"

#include <QImage>
#include <QList>
#include <QObject>
#include <QPointer>
#include <QString>

#include <functional>
#include <map>
#include <memory>

class AiRuns;
class IRegionCapture;
class ClipboardService;
class ConfigManager;
class HotkeyManager;
class Platform;
class IOcrProvider;
class ISelectedTextProvider;

// Turns a hotkey (or a tray entry) into a session: opens a result window, obtains the input (a screen region,
// the clipboard's image, or the selection read by a synthetic copy), has an image recognised, and streams
// the AI answer into the window. Each window keeps a run of its own (WindowRun), so a pinned window can be
// retried, corrected and sent again while other windows come and go. GUI thread only. The services are not
// owned and must outlive the controller.
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

    // The factory makes each result window; without one, a hotkey starts nothing (a run lives in its window).
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

    // The session's state: a request of any window running, else what the current window's run is doing.
    SessionState state() const { return m_state; }
    InputSource inputSource() const { return m_inputSource; }
    // The text of the current window's run.
    QString sourceText() const;
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
    void onSelectionRead(quint64 runNumber, const QString &text, SelectionCopier::Source source);

private:
    // ---- sessions and their inputs (SessionController.cpp)
    void setState(SessionState newState);
    // The state follows the runs; called after any of them changed.
    void updateState();
    // Ends the session: its copy is abandoned, the current window released, the runs of the windows left
    // open are ended as stopped.
    void endSession();
    void startCaptureSession();
    void startClipboardImageSession();
    void startClipboardTextSession();
    void readSelection(WindowRun &run);
    // Presents the run's window and reads once one of our windows has the keyboard focus, or after a bound.
    void readSelectionWhenFocused(WindowRun &run);
    void runOcr(WindowRun &run, const QImage &image);
    void onOcrFinished(quint64 runNumber, const QString &text);
    void onOcrError(quint64 runNumber, const QString &message);
    void applyProvider();

    // ---- the windows' runs (SessionControllerRuns.cpp)
    IResultView::Requests requestsFor(const QString &windowId);
    // A new run for the window (any run it had is ended silently), numbered for its answers.
    WindowRun &beginRun(const QString &windowId, WindowRun::Phase phase);
    WindowRun *run(const QString &windowId);
    // The run that answers with this number, or null when it is gone or replaced.
    WindowRun *runNumbered(quint64 number);
    WindowRun *currentRun();
    IResultView *view(const WindowRun &run) const { return m_windows.find(run.windowId); }
    void setPhase(WindowRun &run, WindowRun::Phase phase);
    void present(WindowRun &run);
    // Sends the run's text: every request of every window starts here.
    void runAiAction(WindowRun &run, ActionService::ActionType type, const QString &text);
    // Ends the run's request or its pause, and tells its window so.
    void stopRun(WindowRun &run);
    // Drops the run of a window that goes; its request is cancelled.
    void forgetRun(const QString &windowId);
    void onTranslateRequested(const QString &windowId, const QString &text);
    void onStopRequested(const QString &windowId);
    void onRetryRequested(const QString &windowId);
    void onWindowClosed(const QString &windowId);
    void onAiChunk(quint64 runNumber, const QString &chunk);
    void onAiFinished(quint64 runNumber);
    void onAiFailed(quint64 runNumber, const QString &message);

    SessionState m_state = Idle;
    InputSource m_inputSource = ScreenCapture;
    // By window id. A map, whose elements stay where they are while others come and go: a run in hand stays
    // valid while a window that closes meanwhile takes its own run away.
    std::map<QString, WindowRun> m_runs;
    quint64 m_lastRunNumber = 0;

    QPointer<ConfigManager> m_config;
    IRegionCapture *m_captureService = nullptr;
    Platform *m_platform = nullptr;
    ClipboardService *m_clipboardService = nullptr;
    ISelectedTextProvider *m_selectedTextProvider = nullptr;
    std::function<bool()> m_preferSelectedTextProvider;
    HotkeyManager *m_hotkeyManager = nullptr;
    IOcrProvider *m_ocrProvider = nullptr;
    ActionService *m_actionService = nullptr;
    SelectionCopier *m_copier = nullptr;
    // While a read waits for the focus: the context of its signals and timers, gone once it reads.
    QObject *m_focusWait = nullptr;
    AiRuns *m_aiRuns = nullptr;

    // Last, so the windows go first and none reports back into a half-destroyed controller.
    ResultWindows m_windows;
};
