#pragma once

#include "session/IResultView.h"

#include <QImage>
#include <QMetaObject>
#include <QPoint>
#include <QString>
#include <QWidget>

#include <Qt>

class QLabel;
class QPushButton;
class QTextBrowser;
class QTextDocument;
class QTextEdit;
class QToolButton;
class QVBoxLayout;
class QWindow;

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
    void discard() override;

signals:
    void translateRequested(const QString &text);
    void copyRequested();
    void stopRequested();
    // Emitted once per showing, whichever way the window was hidden.
    void closed();
    void pinStateChanged(bool pinned);
    void retryRequested();

private slots:
    void onCopyClicked();
    void onCopySourceClicked();
    void onStopClicked();
    void onPinButtonClicked();
    void onRetryClicked();

protected:
    bool event(QEvent *event) override;
    bool eventFilter(QObject *watched, QEvent *event) override;
    void showEvent(QShowEvent *event) override;
    void hideEvent(QHideEvent *event) override;
    void keyPressEvent(QKeyEvent *event) override;
    void mousePressEvent(QMouseEvent *event) override;
    void mouseMoveEvent(QMouseEvent *event) override;
    void mouseReleaseEvent(QMouseEvent *event) override;
    void resizeEvent(QResizeEvent *event) override;

private:
    void setupUi();
    void refresh();
    void updateCopyButtonsState();
    void updateCopyButtonsPosition();
    void placeCornerButton(QWidget *area, QToolButton *button);
    void showCopyTooltip(QWidget *widget);
    void updatePinButtonStyle();
    void updatePreviewAreaHeight();
    void updatePreviewPixmap();
    void schedulePreviewPixmap();
    void updateAutoHeights();
    int calculateTextWidgetHeight(QTextDocument *doc, QWidget *widget, int minHeight, int maxHeight);
    bool isSourceCopyable() const;
    bool canSendSource() const;
    QString sourcePlaceholder() const;
    void onFocusWindowChanged(QWindow *window);
    void onApplicationStateChanged(Qt::ApplicationState state);
    void disconnectWatchers();

    enum class Recognition { None, Running, FoundNothing };

    Mode m_mode = TextMode;
    Recognition m_recognition = Recognition::None;
    Requests m_requests;
    QLabel *m_messageLabel = nullptr;
    QLabel *m_previewLabel = nullptr;
    QImage m_previewImage;
    QTextEdit *m_sourceEdit = nullptr;
    QTextBrowser *m_translationView = nullptr;
    QToolButton *m_copyButton = nullptr;
    QToolButton *m_copySourceButton = nullptr;
    QToolButton *m_stopButton = nullptr;
    QToolButton *m_retryButton = nullptr;
    QPushButton *m_pinButton = nullptr;
    QPushButton *m_closeButton = nullptr;
    bool m_isProcessing = false;
    bool m_isPinned = false;
    bool m_isDragging = false;
    bool m_ignoreDeactivate = false;
    bool m_hasError = false;
    bool m_isClosing = false;
    bool m_sourceEditable = true;
    QPoint m_dragOffset;
    QVBoxLayout *m_mainLayout = nullptr;
    QMetaObject::Connection m_focusWindowConnection;
    QMetaObject::Connection m_appStateConnection;
    QLabel *m_titleLabel = nullptr;
    bool m_showsPlaceholder = false; // the result area shows setProcessing's "Translating..." line
};
