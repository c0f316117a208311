#pragma once

#include "ai/ActionService.h"
#include "platform/ClipboardService.h"

#include <QHash>
#include <QImage>
#include <QList>
#include <QMetaObject>
#include <QObject>
#include <QPointer>
#include <QString>
#include <QTimer>

class CaptureService;
class HotkeyManager;
class IOcrProvider;
class ISelectedTextProvider;
class OcrWorkerResult;
class ResultWindow;
class StreamingAiWorker;

// Turns a hotkey (or a tray entry) into a session: opens a result window, obtains the input (a screen region,
// the clipboard's image or text, or the selection read by a synthetic copy), has an image recognised, streams
// the AI answer into the window, and keeps the registry of open windows. GUI thread only. The services are
// not owned and must outlive the controller.
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

    explicit SessionController(QObject *parent = nullptr);
    ~SessionController() override;

    void setCaptureService(CaptureService *service);
    void setClipboardService(ClipboardService *service);
    void setSelectedTextProvider(ISelectedTextProvider *provider);
    void setHotkeyManager(HotkeyManager *manager);
    void setOcrProvider(IOcrProvider *provider);
    void setActionService(ActionService *service);

    SessionState state() const { return m_state; }

    // What a caller (and a test) can observe of the running session.
    InputSource inputSource() const { return m_inputSource; }
    QString sourceText() const { return m_sourceText; }
    ResultWindow *currentWindow() const;
    QList<ResultWindow *> pinnedWindows() const { return m_pinnedWindows; }
    quint64 sessionGeneration() const { return m_sessionGeneration; }
    bool isCopyFallbackActive() const { return m_copyFallbackActive; }
    int runningRequestCount() const { return static_cast<int>(m_workers.size()); }

signals:
    void stateChanged(SessionController::SessionState newState);
    void error(const QString &message);

public slots:
    void startCaptureSession();
    void startClipboardSession();
    void startClipboardImageSession();
    void startClipboardTextSession();
    void cancelSession();
    void onHotkeyTriggered(int hotkeyId);
    void onCaptureDone(const QImage &image);
    void onCaptureCancelled();

    void onOcrFinished(const QString &text);
    void onOcrError(const QString &message);
    void onTranslateRequested(const QString &text);
    void onStopRequested();
    void onOverlayClosed();
    void onWindowPinStateChanged(bool pinned);
    void onRetryRequested();
    void onAiStreamingChunk(const QString &windowId, const QString &chunk);
    void onAiStreamingFinished(const QString &windowId, const QString &fullResponse);
    void onAiStreamingError(const QString &windowId, const QString &message);

private:
    void setState(SessionState newState);
    void reset();
    void processImage(const QImage &image);
    void processText(const QString &text);
    void showOverlay();
    QString generateWindowId();
    ResultWindow *createResultWindow();
    ResultWindow *findWindowById(const QString &windowId) const;
    void runOcr(const QImage &image);
    void runAiAction(ActionService::ActionType type, const QString &text, const QString &windowId);
    void cleanupWorker(const QString &windowId);
    void startCopySelectionFallback();
    void finishCopySelectionFallback(unsigned long long generation, bool triggeredByClipboardSignal);

    // Ends a fallback that a new session or a reset replaced: the user's clipboard comes back at once.
    void abandonCopySelectionFallback();
    // A copy that the other application completes after the restore would leave the selection on the
    // clipboard; for a short while after each restore a foreign change is undone once more.
    void startRestoreGuard();
    void stopRestoreGuard();
    void onClipboardChangedAfterRestore();

    SessionState m_state = Idle;
    InputSource m_inputSource = ScreenCapture;
    QImage m_capturedImage;
    QString m_sourceText;
    bool m_closingCurrentWindow = false;

    CaptureService *m_captureService = nullptr;
    ClipboardService *m_clipboardService = nullptr;
    ISelectedTextProvider *m_selectedTextProvider = nullptr;
    HotkeyManager *m_hotkeyManager = nullptr;
    QPointer<ResultWindow> m_currentWindow;
    QList<ResultWindow *> m_pinnedWindows;
    IOcrProvider *m_ocrProvider = nullptr;
    ActionService *m_actionService = nullptr;
    QHash<QString, StreamingAiWorker *> m_workers;
    qint64 m_nextWindowNumber = 1;
    OcrWorkerResult *m_ocrResult = nullptr;
    unsigned long long m_sessionGeneration = 0;
    ActionService::ActionType m_lastActionType = ActionService::Translate;
    QString m_lastActionText;
    bool m_copyFallbackActive = false;
    ClipboardService::Snapshot m_clipboardSnapshot;
    QMetaObject::Connection m_clipboardChangeConnection;

    unsigned long long m_copyFallbackGeneration = 0;
    QTimer m_restoreGuardTimer;
    QMetaObject::Connection m_restoreGuardConnection;
};
