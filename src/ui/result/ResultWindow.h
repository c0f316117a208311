#pragma once

#include "session/IResultView.h"

#include <QImage>
#include <QString>
#include <QWidget>

#include <Qt>

class PreviewArea;
class Platform;
class QLabel;
class QVBoxLayout;
class ResultCornerButtons;
class ResultText;
class ResultTitleRow;
class SourceText;

// The floating result window of one run: the captured preview and source text, the streamed result, and
// the Copy / Stop / Retry / Pin / Close controls. It sizes itself to its content, hides itself when it
// loses activation unless pinned, and reports every hiding once through closed(). The session owns it.
class ResultWindow final : public QWidget, public IResultView
{
    Q_OBJECT

public:
    enum Mode {
        CaptureMode = 0, // screen capture: preview visible, source read-only
        TextMode = 1,    // typed, selected or clipboard text: source editable, Enter sends it
        MessageMode = 2, // a message line only
    };

    explicit ResultWindow(QWidget *parent = nullptr);
    ~ResultWindow() override;
    // The system that activates the window and rounds its corners; call before the window is first shown.
    void setPlatform(Platform *platform);

    void setMode(Mode mode);
    Mode mode() const { return m_mode; }

    // Stores the captured image at full resolution; the preview shows it scaled to the preview area.
    void setPreviewImage(const QImage &image);

    void setSourceText(const QString &text);
    // The source exactly as shown (untrimmed); empty when there is none.
    QString getSourceText() const;
    // Whether the user may edit the source in TextMode; capture sources and running requests stay locked.
    void setSourceEditable(bool editable);

    void setTranslation(const QString &text);
    // Appends one streamed chunk at the end and keeps it in view; the first chunk of a run replaces the
    // "Translating..." line.
    void appendTranslation(const QString &chunk);
    QString getTranslation() const;
    void clearTranslation();
    void showTranslation(bool show);

    void setProcessing(bool processing);
    // Shows the message in the result area; copy is then disabled and Retry offered.
    void setError(const QString &message);
    void setMessageText(const QString &text);

    void setPinned(bool pinned) override;
    bool isPinned() const override { return m_isPinned; }

    void retranslateUi();

    // The session's view of the window.
    void setRequests(Requests requests) override;
    void showRecognising(const QImage &image) override;
    void showSource(const QString &text, bool editable) override;
    void beginResult() override;
    void appendResult(const QString &chunk) override { appendTranslation(chunk); }
    void endResult(ResultEnd end) override;
    void showError(const QString &message) override { setError(message); }
    void showMessage(Message message) override;
    void present() override;
    void setActivationTime(quint64 time) override { m_activationTime = time; }
    void discard() override;

signals:
    void translateRequested(const QString &text);
    void copyRequested();
    void stopRequested();
    // Emitted once per showing, whichever way the window was hidden.
    void closed();
    void pinStateChanged(bool pinned);
    void retryRequested();

protected:
    bool event(QEvent *event) override;
    void showEvent(QShowEvent *event) override;
    void hideEvent(QHideEvent *event) override;
    void keyPressEvent(QKeyEvent *event) override;
    void resizeEvent(QResizeEvent *event) override;

private:
    Platform *m_platform = nullptr;
    quint64 m_activationTime = 0;
    void setupUi();
    void refresh();
    void updateCopyButtonsState();
    void updateCopyButtonsPosition();
    void updateAutoHeights();
    bool canSendSource() const;
    // The note under the source that the text was cut to the input limit; hidden when leftOut is 0.
    void showCut(qsizetype leftOut);
    void retranslateCutNote();

    Mode m_mode = TextMode;
    Requests m_requests;
    QVBoxLayout *m_mainLayout = nullptr;
    ResultTitleRow *m_titleRow = nullptr;
    QLabel *m_messageLabel = nullptr;
    PreviewArea *m_previewLabel = nullptr;
    SourceText *m_sourceEdit = nullptr;
    QLabel *m_cutNote = nullptr;
    qsizetype m_cutLeftOut = 0;
    ResultText *m_translationView = nullptr;
    ResultCornerButtons *m_cornerButtons = nullptr;
    QObject *m_autoHide = nullptr;
    bool m_isProcessing = false;
    bool m_isPinned = false;
    bool m_hasError = false;
    // The run was stopped before its end: what it streamed stays, and Retry sends it again.
    bool m_isStopped = false;
    bool m_isClosing = false;
    bool m_sourceEditable = true;
};
