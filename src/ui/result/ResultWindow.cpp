#include "ui/result/ResultWindow.h"

#include "platform/Permissions.h"
#include "platform/RoundedCornerHelper.h"
#include "ui/IconTint.h"
#include "ui/ThemeColors.h"

#include <QAbstractTextDocumentLayout>
#include <QClipboard>
#include <QCursor>
#include <QDebug>
#include <QFontMetrics>
#include <QGuiApplication>
#include <QHBoxLayout>
#include <QKeyEvent>
#include <QLabel>
#include <QLayoutItem>
#include <QMouseEvent>
#include <QPixmap>
#include <QPushButton>
#include <QScreen>
#include <QTextBlock>
#include <QTextBrowser>
#include <QTextCursor>
#include <QTextDocument>
#include <QTextEdit>
#include <QTextFrame>
#include <QTextFrameFormat>
#include <QTimer>
#include <QToolButton>
#include <QToolTip>
#include <QVBoxLayout>
#include <QWindow>

#include <algorithm>
#include <climits>
#include <cmath>

namespace {

// One flag for the whole process: setFixedHeight and resize re-enter the sizing pass through resizeEvent
// and contentsChanged, and a nested pass (even one of another overlay) would measure half-applied heights.
bool s_autoHeightsRunning = false;

constexpr char kDesiredHeightProperty[] = "_vontrelDesiredHeight";
constexpr char kMinHeightProperty[] = "_vontrelMinHeight";

constexpr int kMinWidth = 650;
constexpr int kMinHeight = 240;
constexpr int kMaxWidthCap = 980;
constexpr int kMaxHeightCap = 800;
constexpr int kSourceCapWithResult = 160;
constexpr int kSourceCapAlone = 240;
constexpr int kSourceCapWhileWaiting = 280;
constexpr int kResultCap = 400;
constexpr int kResultMinWhileWaiting = 160;
constexpr int kPreviewMinHeight = 48;
constexpr int kPreviewMaxHeight = 160;
constexpr int kCornerButtonSize = 22;
constexpr int kCornerButtonInset = 2;
constexpr int kCornerRadius = 12;

// True when the document holds anything but white space. Stops at the first visible character, so a long
// streamed result costs nothing per chunk (toPlainText().trimmed() would copy the whole text every time).
bool hasVisibleText(const QTextDocument *doc)
{
    if (!doc)
        return false;
    for (QTextBlock block = doc->begin(); block.isValid(); block = block.next()) {
        const QString text = block.text();
        for (const QChar ch : text) {
            if (!ch.isSpace())
                return true;
        }
    }
    return false;
}

// Keeps the text out from under the corner button: the button sits on the text area's top-right corner,
// so every line leaves room for it on the right. Setting the content (setPlainText, clear, setHtml)
// resets the document's frame, hence the check on every change; it costs nothing once the margin is there.
void reserveCornerButtonSpace(QTextDocument *doc)
{
    QTextFrame *root = doc->rootFrame();
    QTextFrameFormat format = root->frameFormat();
    const qreal wanted = doc->documentMargin() + kCornerButtonSize + kCornerButtonInset;
    if (qFuzzyCompare(format.rightMargin(), wanted))
        return;
    format.setRightMargin(wanted);
    // Not an edit the user could undo; the history is empty right after the content was replaced anyway.
    const bool undo = doc->isUndoRedoEnabled();
    doc->setUndoRedoEnabled(false);
    root->setFrameFormat(format);
    doc->setUndoRedoEnabled(undo);
}

QString textAreaStyle(const char *className, const ThemeColors &colors)
{
    return QStringLiteral("\n        %4 {\n            background-color: %1;\n            color: %2;\n"
                          "            border: 1px solid %3;\n            border-radius: 6px;\n"
                          "            padding: 8px;\n            font-size: 13px;\n        }\n    ")
        .arg(colors.inputBackground, colors.textPrimary, colors.inputBorder, QLatin1String(className));
}

QString cornerButtonStyle(const QString &border, const QString &hover, const QString &disabledBorder,
                          const QString &background)
{
    return QStringLiteral("\n        QToolButton {\n            background-color: %4;\n"
                          "            border: 1px solid %1;\n            border-radius: 4px;\n"
                          "            padding: 1px;\n        }\n        QToolButton:hover {\n"
                          "            background-color: %2;\n        }\n        QToolButton:disabled {\n"
                          "            background-color: %4;\n            border-color: %3;\n        }\n    ")
        .arg(border, hover, disabledBorder, background);
}

// The SVG recoloured to one colour; an SVG that does not load falls back to the plain resource icon.
QIcon tintedSvgIcon(const QString &path, const QString &color)
{
    return tintedMenuIcon(path, QColor(color));
}

QToolButton *makeCornerButton(QWidget *area, const QString &iconPath, const QString &tint,
                              const QString &style)
{
    auto *button = new QToolButton(area);
    button->setFixedSize(kCornerButtonSize, kCornerButtonSize);
    button->setIconSize(QSize(14, 14));
    button->setCursor(Qt::PointingHandCursor);
    button->setIcon(tintedSvgIcon(iconPath, tint));
    button->setStyleSheet(style);
    // Clicking a corner button must not pull focus out of the text the user is editing.
    button->setFocusPolicy(Qt::NoFocus);
    button->hide();
    return button;
}

bool isEnterKey(const QKeyEvent *event)
{
    return event->key() == Qt::Key_Return || event->key() == Qt::Key_Enter;
}

} // namespace

// A utility window: it answers a hotkey and belongs in neither the taskbar nor the Alt+Tab list.
ResultWindow::ResultWindow(QWidget *parent)
    : QWidget(parent, Qt::Tool | Qt::FramelessWindowHint | Qt::WindowStaysOnTopHint)
{
    // The session controller deletes overlays itself, after it has seen closed().
    setAttribute(Qt::WA_DeleteOnClose, false);
    // A plain QWidget subclass paints its style-sheet background only with this attribute.
    setAttribute(Qt::WA_StyledBackground, true);
    RoundedCornerHelper::prepareWindow(this);

    setMinimumSize(kMinWidth, kMinHeight);
    QRect available(0, 0, 1280, 800);
    if (const QScreen *screen = QGuiApplication::primaryScreen())
        available = screen->availableGeometry();
    setMaximumSize(std::min(static_cast<int>(0.9 * available.width()), kMaxWidthCap),
                   std::min(static_cast<int>(0.9 * available.height()), kMaxHeightCap));

    setupUi();

    // Each request is called through a copy: the session may clear the requests while one of them runs.
    connect(this, &ResultWindow::translateRequested, this, [this](const QString &text) {
        if (const auto request = m_requests.translate)
            request(text);
    });
    connect(this, &ResultWindow::stopRequested, this, [this] {
        if (const auto request = m_requests.stop)
            request();
    });
    connect(this, &ResultWindow::retryRequested, this, [this] {
        if (const auto request = m_requests.retry)
            request();
    });
    connect(this, &ResultWindow::pinStateChanged, this, [this](bool pinned) {
        if (const auto request = m_requests.pinChanged)
            request(pinned);
    });
    connect(this, &ResultWindow::closed, this, [this] {
        if (const auto request = m_requests.closed)
            request();
    });
}

ResultWindow::~ResultWindow()
{
    disconnectWatchers();
}

void ResultWindow::setupUi()
{
    const ThemeColors colors = vontrelThemeColors();

    // Without a compositor the corners outside a rounded border could only be cut away, and a cut goes
    // through the border; square corners keep it whole.
    const int radius = testAttribute(Qt::WA_TranslucentBackground) ? kCornerRadius : 0;
    setStyleSheet(QStringLiteral("\n        ResultWindow {\n            background-color: %1;\n"
                                 "            border: 1px solid %2;\n            border-radius: %3px;\n"
                                 "        }\n    ")
                      .arg(colors.windowBackground, colors.windowBorder)
                      .arg(radius));

    m_mainLayout = new QVBoxLayout(this);
    m_mainLayout->setSpacing(12);
    m_mainLayout->setContentsMargins(16, 16, 16, 16);

    auto *titleRow = new QHBoxLayout;
    titleRow->setContentsMargins(0, 0, 0, 0);
    titleRow->setSpacing(6);

    auto *iconLabel = new QLabel(this);
    iconLabel->setFixedSize(18, 18);
    iconLabel->setAlignment(Qt::AlignCenter);
    iconLabel->setPixmap(
        tintedSvgIcon(QStringLiteral(":/icons/vontrel-menu-icon.svg"), colors.textPrimary).pixmap(18, 18));
    titleRow->addWidget(iconLabel);

    m_titleLabel = new QLabel(this);
    m_titleLabel->setStyleSheet(
        QStringLiteral("font-weight: bold; font-size: 15px; color: %1;").arg(colors.textPrimary));
    titleRow->addWidget(m_titleLabel);
    titleRow->addStretch();

    m_pinButton = new QPushButton(this);
    m_pinButton->setObjectName(QStringLiteral("pinButton"));
    m_pinButton->setFixedSize(24, 24);
    m_pinButton->setCursor(Qt::PointingHandCursor);
    m_pinButton->setIconSize(QSize(16, 16));
    connect(m_pinButton, &QPushButton::clicked, this, &ResultWindow::onPinButtonClicked);
    updatePinButtonStyle();
    titleRow->addWidget(m_pinButton);

    m_closeButton = new QPushButton(this);
    m_closeButton->setObjectName(QStringLiteral("closeButton"));
    m_closeButton->setFixedSize(24, 24);
    m_closeButton->setCursor(Qt::PointingHandCursor);
    m_closeButton->setIcon(tintedSvgIcon(QStringLiteral(":/icons/close.svg"), colors.errorColor));
    m_closeButton->setIconSize(QSize(16, 16));
    m_closeButton->setStyleSheet(
        QStringLiteral("\n        QPushButton {\n            background-color: transparent;\n"
                       "            border: 1px solid %1;\n            border-radius: 4px;\n        }\n"
                       "        QPushButton:hover {\n            background-color: %2;\n        }\n"
                       "        QPushButton:pressed {\n            background-color: %2;\n        }\n    ")
            .arg(colors.errorColor, colors.errorHoverBackground));
    connect(m_closeButton, &QPushButton::clicked, this, &QWidget::hide);
    titleRow->addWidget(m_closeButton);

    m_mainLayout->addLayout(titleRow);

    m_messageLabel = new QLabel(this);
    m_messageLabel->setObjectName(QStringLiteral("messageLabel"));
    m_messageLabel->setWordWrap(true);
    m_messageLabel->setStyleSheet(QStringLiteral("color: %1; font-size: 12px;").arg(colors.textSecondary));
    m_messageLabel->hide();
    m_mainLayout->addWidget(m_messageLabel);

    m_previewLabel = new QLabel(this);
    m_previewLabel->setObjectName(QStringLiteral("previewLabel"));
    m_previewLabel->setAlignment(Qt::AlignCenter);
    m_previewLabel->setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Fixed);
    m_previewLabel->setMinimumHeight(kPreviewMinHeight);
    m_previewLabel->setMaximumHeight(180);
    m_previewLabel->setMargin(3);
    m_previewLabel->setStyleSheet(QStringLiteral("\n        QLabel {\n            background-color: %1;\n"
                                                 "            color: %2;\n            border: 1px solid %3;\n"
                                                 "            border-radius: 6px;\n        }\n    ")
                                      .arg(colors.inputBackground, colors.textSecondary, colors.inputBorder));
    m_previewLabel->hide();
    m_mainLayout->addWidget(m_previewLabel);

    m_sourceEdit = new QTextEdit(this);
    m_sourceEdit->setObjectName(QStringLiteral("sourceEdit"));
    // The source is read back as plain text; pasted formatting would only be noise the user cannot see go.
    m_sourceEdit->setAcceptRichText(false);
    m_sourceEdit->setSizePolicy(QSizePolicy::Expanding, QSizePolicy::MinimumExpanding);
    m_sourceEdit->setMaximumHeight(320);
    m_sourceEdit->setStyleSheet(textAreaStyle("QTextEdit", colors));
    m_sourceEdit->installEventFilter(this);
    m_sourceEdit->viewport()->installEventFilter(this);
    connect(m_sourceEdit->document(), &QTextDocument::contentsChanged, this, [this] {
        reserveCornerButtonSpace(m_sourceEdit->document());
        updateAutoHeights();
        updateCopyButtonsState();
    });
    m_mainLayout->addWidget(m_sourceEdit);

    m_translationView = new QTextBrowser(this);
    m_translationView->setObjectName(QStringLiteral("translationView"));
    // The result is text, never a page to navigate to: a link inside an error message must not replace it.
    m_translationView->setOpenLinks(false);
    m_translationView->setSizePolicy(QSizePolicy::Expanding, QSizePolicy::MinimumExpanding);
    m_translationView->setMaximumHeight(kResultCap);
    m_translationView->setStyleSheet(textAreaStyle("QTextBrowser", colors));
    m_translationView->viewport()->installEventFilter(this);
    connect(m_translationView->document(), &QTextDocument::contentsChanged, this, [this] {
        reserveCornerButtonSpace(m_translationView->document());
        updateAutoHeights();
        updateCopyButtonsState();
    });
    m_mainLayout->addWidget(m_translationView);
    // Spare height (the window's minimum exceeds short content) goes below the content, not between rows.
    m_mainLayout->addStretch(1);

    const QString disabledBorder = colors.isDark ? QStringLiteral("#505050") : QStringLiteral("#d0d0d0");
    const QString neutral =
        cornerButtonStyle(colors.iconColor, colors.iconButtonHover, disabledBorder, colors.inputBackground);
    const QString destructive = cornerButtonStyle(colors.errorColor, colors.errorHoverBackground,
                                                  colors.errorDisabledBorder, colors.inputBackground);
    const QString copyIcon = QStringLiteral(":/icons/copy.svg");

    m_copySourceButton = makeCornerButton(m_sourceEdit, copyIcon, colors.iconColor, neutral);
    m_copySourceButton->setObjectName(QStringLiteral("copySourceButton"));
    connect(m_copySourceButton, &QToolButton::clicked, this, &ResultWindow::onCopySourceClicked);

    m_copyButton = makeCornerButton(m_translationView, copyIcon, colors.iconColor, neutral);
    m_copyButton->setObjectName(QStringLiteral("copyButton"));
    connect(m_copyButton, &QToolButton::clicked, this, &ResultWindow::onCopyClicked);

    m_stopButton = makeCornerButton(m_translationView, QStringLiteral(":/icons/stop.svg"), colors.errorColor,
                                    destructive);
    m_stopButton->setObjectName(QStringLiteral("stopButton"));
    connect(m_stopButton, &QToolButton::clicked, this, &ResultWindow::onStopClicked);

    m_retryButton =
        makeCornerButton(m_translationView, QStringLiteral(":/icons/retry.svg"), colors.iconColor, neutral);
    m_retryButton->setObjectName(QStringLiteral("retryButton"));
    connect(m_retryButton, &QToolButton::clicked, this, &ResultWindow::onRetryClicked);

    setMode(m_mode);
    retranslateUi();
}

void ResultWindow::retranslateUi()
{
    setWindowTitle(tr("Vontrel — Translation"));
    if (m_titleLabel)
        m_titleLabel->setText(tr("Vontrel"));
    if (m_closeButton)
        m_closeButton->setToolTip(tr("Close"));
    if (m_copyButton)
        m_copyButton->setToolTip(tr("Copy"));
    if (m_copySourceButton)
        m_copySourceButton->setToolTip(tr("Copy"));
    if (m_stopButton)
        m_stopButton->setToolTip(tr("Stop"));
    if (m_retryButton)
        m_retryButton->setToolTip(tr("Retry"));
    if (m_pinButton)
        m_pinButton->setToolTip(m_isPinned ? tr("Unpin window") : tr("Pin window"));
    if (m_sourceEdit)
        m_sourceEdit->setPlaceholderText(sourcePlaceholder());
    if (m_translationView)
        m_translationView->setPlaceholderText(tr("Translation will appear here..."));
}

// ---- content ------------------------------------------------------------------------------------------

void ResultWindow::setMode(Mode mode)
{
    m_mode = mode;
    m_hasError = false;
    m_isProcessing = false;

    m_copyButton->hide();
    m_copySourceButton->hide();
    m_stopButton->hide();
    m_retryButton->hide();

    m_previewLabel->setVisible(mode == CaptureMode);
    m_sourceEdit->setVisible(mode != MessageMode);

    if (mode != CaptureMode)
        m_recognition = Recognition::None;
    m_sourceEdit->setPlaceholderText(sourcePlaceholder());
    m_sourceEdit->setReadOnly(mode == CaptureMode || !m_sourceEditable);

    m_messageLabel->setVisible(mode == MessageMode);

    if (mode != CaptureMode) {
        m_previewImage = QImage();
        m_previewLabel->clear();
    }

    if (mode == MessageMode) {
        showTranslation(false);
        clearTranslation();
    }

    updatePreviewAreaHeight();
    updatePreviewPixmap();
    updateAutoHeights();
    updateCopyButtonsState();
    if (!m_isClosing)
        updateCopyButtonsPosition();
}

void ResultWindow::setPreviewImage(const QImage &image)
{
    m_previewImage = image;
    updatePreviewAreaHeight();
    schedulePreviewPixmap();
}

void ResultWindow::setSourceText(const QString &text)
{
    if (m_isClosing || !m_sourceEdit)
        return;
    m_sourceEdit->setPlainText(text);
    refresh();
}

QString ResultWindow::getSourceText() const
{
    return m_sourceEdit ? m_sourceEdit->toPlainText() : QString();
}

void ResultWindow::setSourceEditable(bool editable)
{
    m_sourceEditable = editable;
    if (m_mode == CaptureMode) {
        m_sourceEdit->setReadOnly(true);
        return;
    }
    if (m_isProcessing)
        return;
    m_sourceEdit->setReadOnly(!editable);
}

void ResultWindow::setTranslation(const QString &text)
{
    if (m_isClosing || !m_translationView)
        return;
    m_showsPlaceholder = false;
    m_translationView->setPlainText(text);
    refresh();
}

void ResultWindow::appendTranslation(const QString &chunk)
{
    if (m_isClosing || !m_translationView)
        return;
    QTextDocument *doc = m_translationView->document();

    // Only the line setProcessing put there is replaced: a first chunk that happens to read the same is
    // the answer, and the next chunk must not wipe it.
    if (m_isProcessing && m_showsPlaceholder && doc->toPlainText() == tr("Translating..."))
        m_translationView->clear();
    m_showsPlaceholder = false;

    // A fresh cursor at the end: the user may have clicked elsewhere in the text meanwhile.
    QTextCursor cursor(doc);
    cursor.movePosition(QTextCursor::End);
    cursor.insertText(chunk);
    m_translationView->setTextCursor(cursor);
    m_translationView->ensureCursorVisible();

    if (!doc->isEmpty())
        updateCopyButtonsState();
    updateAutoHeights();
    if (!m_isClosing)
        updateCopyButtonsPosition();
}

QString ResultWindow::getTranslation() const
{
    return m_translationView ? m_translationView->toPlainText() : QString();
}

void ResultWindow::clearTranslation()
{
    if (m_isClosing || !m_translationView)
        return;
    m_showsPlaceholder = false;
    m_translationView->clear();
    m_retryButton->hide();
    refresh();
}

void ResultWindow::showTranslation(bool show)
{
    if (m_isClosing || !m_translationView)
        return;
    m_translationView->setVisible(show);
    refresh();
}

void ResultWindow::setProcessing(bool processing)
{
    if (m_isClosing)
        return;
    m_isProcessing = processing;

    // The source is locked while a run streams into the result.
    const bool unlocked = (m_mode == TextMode || m_mode == MessageMode) && !processing;
    m_sourceEdit->setReadOnly(unlocked ? !m_sourceEditable : true);

    if (processing) {
        m_hasError = false;
        m_retryButton->hide();
        m_translationView->setHtml(
            QStringLiteral("<span style='color: #888888; font-style: italic;'>%1</span>")
                .arg(tr("Translating...")));
        m_showsPlaceholder = true;
    }

    updateCopyButtonsState();
    updateCopyButtonsPosition();
}

void ResultWindow::setError(const QString &message)
{
    if (m_isClosing)
        return;
    // A run that fails midway (stalled, cut off, too long) keeps what it streamed; the reason follows it.
    const bool keepPartial =
        m_isProcessing && !m_showsPlaceholder && !m_translationView->document()->isEmpty();
    m_hasError = true;
    m_isProcessing = false;
    m_showsPlaceholder = false;
    // The run is over, so the user may correct the text and send it again.
    if (m_mode == TextMode)
        m_sourceEdit->setReadOnly(!m_sourceEditable);
    // The message may quote the provider, so it is shown as text, never as markup.
    const QString html =
        QStringLiteral("<span style='color: #ff6b6b;'>%1</span>").arg(message.toHtmlEscaped());
    if (keepPartial) {
        QTextCursor cursor(m_translationView->document());
        cursor.movePosition(QTextCursor::End);
        cursor.insertBlock();
        cursor.insertBlock();
        cursor.insertHtml(html);
    } else {
        m_translationView->setHtml(html);
    }
    m_translationView->show();
    refresh();
}

void ResultWindow::setMessageText(const QString &text)
{
    m_messageLabel->setText(text);
    m_messageLabel->show();
}

// ---- the session's calls ------------------------------------------------------------------------------

void ResultWindow::setRequests(Requests requests)
{
    m_requests = std::move(requests);
}

void ResultWindow::showRecognising(const QImage &image)
{
    setMode(CaptureMode);
    m_recognition = Recognition::Running;
    m_sourceEdit->setPlaceholderText(sourcePlaceholder());
    setPreviewImage(image);
    showTranslation(false);
    clearTranslation();
    setSourceEditable(false);
    setSourceText(QString());
}

void ResultWindow::showSource(const QString &text, bool editable)
{
    if (m_mode == CaptureMode) {
        m_recognition = text.isEmpty() ? Recognition::FoundNothing : Recognition::None;
        m_sourceEdit->setPlaceholderText(sourcePlaceholder());
        setSourceText(text);
        // Recognised text is followed by its result: the area is there during the pause before the request.
        showTranslation(!text.isEmpty());
        clearTranslation();
        return;
    }
    showTranslation(false);
    clearTranslation();
    setSourceText(text);
    setSourceEditable(editable);
}

void ResultWindow::beginResult()
{
    showTranslation(true);
    setProcessing(true);
    clearTranslation();
}

void ResultWindow::endResult(ResultEnd end)
{
    setProcessing(false);
    if (end != ResultEnd::Stopped)
        return;
    if (!getTranslation().trimmed().isEmpty())
        appendTranslation(tr("\n\n(Stopped)"));
    else
        setTranslation(tr("(Stopped)"));
}

void ResultWindow::showMessage(Message message)
{
    setMode(MessageMode);
    switch (message) {
    case Message::NoImageInClipboard:
        setMessageText(tr("No image in clipboard"));
        break;
    case Message::CopyFailed:
        setMessageText(
            tr("Failed to simulate copy to read selected text. Please copy manually or type directly."));
        break;
    }
}

void ResultWindow::present()
{
    Permissions::activateApp();
    show();
    raise();
    activateWindow();
}

void ResultWindow::discard()
{
    m_requests = {};
    hide();
    deleteLater();
}

void ResultWindow::refresh()
{
    updateAutoHeights();
    updateCopyButtonsState();
    if (!m_isClosing)
        updateCopyButtonsPosition();
}

// ---- corner buttons -----------------------------------------------------------------------------------

bool ResultWindow::isSourceCopyable() const
{
    return m_sourceEdit && hasVisibleText(m_sourceEdit->document());
}

QString ResultWindow::sourcePlaceholder() const
{
    if (m_mode != CaptureMode)
        return tr("Type text, press Enter to translate (Shift+Enter for newline)...");
    switch (m_recognition) {
    case Recognition::Running:
        return tr("Recognizing text...");
    case Recognition::FoundNothing:
        return tr("No text recognized");
    case Recognition::None:
        break;
    }
    return tr("OCR text will appear here...");
}

bool ResultWindow::canSendSource() const
{
    return m_mode == TextMode && !m_isProcessing && m_sourceEdit && hasVisibleText(m_sourceEdit->document());
}

void ResultWindow::updateCopyButtonsState()
{
    if (!m_sourceEdit || !m_translationView)
        return;

    m_copySourceButton->setVisible(m_mode != MessageMode && m_sourceEdit->isVisible());
    m_copySourceButton->setEnabled(isSourceCopyable());

    const bool resultShown = m_mode != MessageMode && m_translationView->isVisible();
    const bool errorShown = resultShown && m_hasError;
    const bool hasResult = hasVisibleText(m_translationView->document());

    m_copyButton->setVisible(resultShown && !m_isProcessing && !m_hasError);
    m_copyButton->setEnabled(hasResult && !m_isProcessing && !m_hasError);
    m_stopButton->setVisible(resultShown && m_isProcessing && !m_hasError);
    m_stopButton->setEnabled(m_isProcessing);
    m_retryButton->setVisible(errorShown);
    m_retryButton->setEnabled(errorShown);
}

void ResultWindow::updateCopyButtonsPosition()
{
    if (m_isClosing)
        return;
    placeCornerButton(m_sourceEdit, m_copySourceButton);
    placeCornerButton(m_translationView, m_copyButton);
    placeCornerButton(m_translationView, m_stopButton);
    placeCornerButton(m_translationView, m_retryButton);
}

void ResultWindow::placeCornerButton(QWidget *area, QToolButton *button)
{
    if (!area || !button)
        return;
    if (area->isHidden()) {
        button->hide();
        return;
    }
    QRect surface = area->rect();
    if (auto *scrollArea = qobject_cast<QAbstractScrollArea *>(area)) {
        if (QWidget *viewport = scrollArea->viewport())
            surface = viewport->geometry();
    }
    button->move(surface.right() + 1 - button->width() - kCornerButtonInset,
                 surface.top() + kCornerButtonInset);
    button->raise();
}

void ResultWindow::showCopyTooltip(QWidget *widget)
{
    if (!widget)
        return;
    const QString text = tr("Copied");
    const QFontMetrics metrics(QToolTip::font());
    const int w = metrics.horizontalAdvance(text);
    const int h = metrics.height();
    const QPoint global = widget->mapToGlobal(QPoint(widget->width() / 2, 0));
    const QPoint pos(global.x() + (-8 - w) / 2, global.y() - h - 40);
    QToolTip::showText(pos, text, widget, widget->rect(), 2000);
}

void ResultWindow::onCopyClicked()
{
    const QString text = getTranslation();
    if (text.isEmpty() || m_hasError)
        return;
    QGuiApplication::clipboard()->setText(text, QClipboard::Clipboard);
    showCopyTooltip(m_copyButton);
    emit copyRequested();
}

void ResultWindow::onCopySourceClicked()
{
    if (!isSourceCopyable())
        return;
    QGuiApplication::clipboard()->setText(getSourceText(), QClipboard::Clipboard);
    showCopyTooltip(m_copySourceButton);
}

void ResultWindow::onStopClicked()
{
    emit stopRequested();
}

void ResultWindow::onRetryClicked()
{
    emit retryRequested();
}

// ---- sizing -------------------------------------------------------------------------------------------

int ResultWindow::calculateTextWidgetHeight(QTextDocument *doc, QWidget *widget, int minHeight, int maxHeight)
{
    if (!doc || !widget)
        return minHeight;

    auto *textArea = qobject_cast<QTextEdit *>(widget); // QTextBrowser derives from QTextEdit
    QWidget *viewport = textArea ? textArea->viewport() : nullptr;
    QWidget *surface = viewport ? viewport : widget;
    // Setting the width lays the whole document out again even when it does not change, which would make
    // every streamed chunk cost as much as the entire text so far.
    if (surface->width() > 0 && !qFuzzyCompare(doc->textWidth(), qreal(surface->width())))
        doc->setTextWidth(surface->width());

    int chrome = 34;
    if (viewport && widget->height() > 0 && viewport->height() > 0)
        chrome = std::max(widget->height() - viewport->height(), 0) + 2;

    const int line = QFontMetrics(widget->font()).height();
    const int low = std::max(line + chrome, minHeight);
    const int high = std::max(maxHeight, low);
    const int docHeight = static_cast<int>(std::ceil(doc->documentLayout()->documentSize().height()));
    return std::clamp(docHeight + chrome, low, high);
}

void ResultWindow::updateAutoHeights()
{
    if (m_isClosing || s_autoHeightsRunning)
        return;
    s_autoHeightsRunning = true;

    const bool sourceVisible = m_sourceEdit && m_sourceEdit->isVisible();
    const bool viewVisible = m_translationView && m_translationView->isVisible();

    if (sourceVisible) {
        QTextDocument *doc = m_sourceEdit->document();
        const bool recognising = m_mode == CaptureMode && m_recognition == Recognition::Running;
        int cap = viewVisible ? kSourceCapWithResult : kSourceCapAlone;
        if (recognising)
            cap = 0;
        const int desired = calculateTextWidgetHeight(doc, m_sourceEdit, 0, cap);
        const int minimum = calculateTextWidgetHeight(doc, m_sourceEdit, 0, 0);
        if (m_sourceEdit->height() != desired) {
            qDebug().noquote() << "ResultWindow: source height ->" << desired
                               << "docHeight =" << doc->documentLayout()->documentSize().height()
                               << "textLen =" << doc->characterCount() - 1;
        }
        m_sourceEdit->setProperty(kDesiredHeightProperty, desired);
        m_sourceEdit->setProperty(kMinHeightProperty, minimum);
    }

    if (viewVisible) {
        QTextDocument *doc = m_translationView->document();
        m_translationView->setProperty(kDesiredHeightProperty,
                                       calculateTextWidgetHeight(doc, m_translationView, 0, kResultCap));
        m_translationView->setProperty(kMinHeightProperty,
                                       calculateTextWidgetHeight(doc, m_translationView, 0, 0));
    }

    auto heightProperty = [](const QWidget *widget, const char *name) {
        return widget ? widget->property(name).toInt() : 0;
    };
    const int srcDesired = heightProperty(m_sourceEdit, kDesiredHeightProperty);
    const int srcMin = heightProperty(m_sourceEdit, kMinHeightProperty);
    const int viewDesired = heightProperty(m_translationView, kDesiredHeightProperty);
    const int viewMin = heightProperty(m_translationView, kMinHeightProperty);

    if (!sourceVisible) {
        if (viewVisible)
            m_translationView->setFixedHeight(viewDesired);
    } else if (!viewVisible) {
        m_sourceEdit->setFixedHeight(srcDesired);
    } else {
        int srcTarget = srcDesired;
        int viewTarget = viewDesired;
        if (m_isProcessing || m_translationView->document()->isEmpty()) {
            srcTarget = std::min(srcDesired, kSourceCapWhileWaiting);
            viewTarget = std::max(viewDesired, kResultMinWhileWaiting);
        }

        // Before the window is shown there is no height budget to share yet.
        if (isVisible()) {
            int count = 0;
            int used = 0;
            for (int i = 0; i < m_mainLayout->count(); ++i) {
                QLayoutItem *item = m_mainLayout->itemAt(i);
                if (QWidget *widget = item->widget()) {
                    if (widget->isHidden())
                        continue;
                    ++count;
                    if (widget != m_sourceEdit && widget != m_translationView)
                        used += item->sizeHint().height();
                } else {
                    ++count;
                    used += item->sizeHint().height();
                }
            }
            const int n = std::max(count, 1);
            const QMargins margins = m_mainLayout->contentsMargins();
            int available =
                maximumHeight() - margins.top() - margins.bottom() - used - (n - 1) * m_mainLayout->spacing();

            const int total = srcTarget + viewTarget;
            if (total > available) {
                available = std::max(available, srcMin + viewMin);
                int s = srcMin;
                int v = viewMin;
                if (total > 0 && available > 0) {
                    s = std::max(static_cast<int>(static_cast<qint64>(srcTarget) * available / total),
                                 srcMin);
                    v = std::max(static_cast<int>(static_cast<qint64>(viewTarget) * available / total),
                                 viewMin);
                    int rest = available - s - v;
                    if (rest > 0) {
                        const int toSource = std::min(rest, std::max(srcTarget - s, 0));
                        s += toSource;
                        rest -= toSource;
                        v += rest;
                    }
                }
                srcTarget = std::min(s, kResultCap);
                viewTarget = std::min(v, kResultCap);
            }
        }

        m_sourceEdit->setFixedHeight(srcTarget);
        m_translationView->setFixedHeight(viewTarget);
    }

    m_mainLayout->activate();
    if (isVisible()) {
        const int h = std::min(sizeHint().height(), maximumHeight());
        if (height() != h)
            resize(width(), h);
    }

    s_autoHeightsRunning = false;
}

void ResultWindow::updatePreviewAreaHeight()
{
    if (m_isClosing || !m_previewLabel || !m_previewLabel->isVisible() || m_previewImage.isNull())
        return;

    const int w = std::max(m_previewLabel->contentsRect().width(), 1);
    const int margin = m_previewLabel->margin();
    const qreal dpr = std::max(m_previewImage.devicePixelRatio(), 1.0);
    const qreal imageWidth = m_previewImage.width() / dpr;
    const qreal imageHeight = m_previewImage.height() / dpr;
    const qreal ratio = imageWidth > 0 ? imageHeight / imageWidth : 1.0;

    const int desired = static_cast<int>(std::ceil(w * ratio)) + 2 * margin;
    const int clamped = std::min(std::max(desired, kPreviewMinHeight), kPreviewMaxHeight);
    if (m_previewLabel->height() != clamped) {
        qDebug().noquote() << "ResultWindow: updatePreviewAreaHeight"
                           << "contentWidth =" << w << "desiredTotalHeight =" << desired
                           << "clamped =" << clamped;
        m_previewLabel->setFixedHeight(clamped);
        schedulePreviewPixmap();
    }
}

void ResultWindow::updatePreviewPixmap()
{
    if (m_isClosing || !m_previewLabel)
        return;
    if (m_previewImage.isNull()) {
        m_previewLabel->clear();
        return;
    }

    const QPixmap pixmap = QPixmap::fromImage(m_previewImage);
    const qreal r = pixmap.devicePixelRatio();
    // The label draws its pixmap inside its margin; scaling to the whole contents would clip the image.
    const int margin = m_previewLabel->margin();
    const QSize contents = m_previewLabel->contentsRect().size() - QSize(2 * margin, 2 * margin);
    const QSize target(qRound(contents.width() * r), qRound(contents.height() * r));
    if (target.isEmpty())
        return;
    QPixmap scaled = pixmap.scaled(target, Qt::KeepAspectRatio, Qt::SmoothTransformation);
    scaled.setDevicePixelRatio(r);
    m_previewLabel->setPixmap(scaled);
}

void ResultWindow::schedulePreviewPixmap()
{
    QTimer::singleShot(0, this, [this] { updatePreviewPixmap(); });
}

void ResultWindow::resizeEvent(QResizeEvent *event)
{
    QWidget::resizeEvent(event);
    updatePreviewAreaHeight();
    schedulePreviewPixmap();
    updateAutoHeights();
    if (!m_isClosing)
        updateCopyButtonsPosition();
}

// ---- show, hide, activation ---------------------------------------------------------------------------

void ResultWindow::showEvent(QShowEvent *event)
{
    m_isClosing = false;
    // Showing a window can itself cost the activation for a moment (the previous application answers
    // first); losing it right now must not hide the window the user just asked for.
    m_ignoreDeactivate = true;
    QTimer::singleShot(200, this, [this] { m_ignoreDeactivate = false; });

    QWidget::showEvent(event);
    qDebug().noquote() << "ResultWindow: showEvent"
                       << "handle =" << windowHandle() << "appState =" << QGuiApplication::applicationState()
                       << "active =" << isActiveWindow() << "visible =" << isVisible()
                       << "pinned =" << m_isPinned;

    disconnectWatchers();
    m_focusWindowConnection =
        connect(qGuiApp, &QGuiApplication::focusWindowChanged, this, &ResultWindow::onFocusWindowChanged);
    m_appStateConnection = connect(qGuiApp, &QGuiApplication::applicationStateChanged, this,
                                   &ResultWindow::onApplicationStateChanged);

    QScreen *screen = QGuiApplication::screenAt(QCursor::pos());
    if (!screen)
        screen = QGuiApplication::primaryScreen();
    if (screen) {
        // Leave room for what is still to come (recognised text, the streamed result), so the window does
        // not grow off the bottom of the screen later.
        int estimated = height();
        if (m_previewLabel->isVisible())
            estimated += m_previewLabel->maximumHeight() - m_previewLabel->height();
        if (m_sourceEdit->isVisible())
            estimated += m_sourceEdit->maximumHeight() - m_sourceEdit->height();
        if (m_mode != MessageMode && m_translationView->isHidden())
            estimated += m_translationView->maximumHeight() + m_mainLayout->spacing();
        estimated = std::min(estimated, maximumHeight());
        const QRect available = screen->availableGeometry();
        move(available.left() + (available.width() - width()) / 2,
             available.top() + (available.height() - estimated) / 2);
    }

    QTimer::singleShot(50, this, [this] { RoundedCornerHelper::applyRoundedCorners(this, kCornerRadius); });

    if (m_previewLabel->isVisible() && !m_previewImage.isNull()) {
        updatePreviewAreaHeight();
        schedulePreviewPixmap();
    }

    updateAutoHeights();
    updateCopyButtonsState();
    updateCopyButtonsPosition();

    if (m_mode == TextMode)
        m_sourceEdit->setFocus(Qt::OtherFocusReason);
}

void ResultWindow::hideEvent(QHideEvent *event)
{
    if (m_isClosing) {
        QWidget::hideEvent(event);
        return;
    }
    m_isClosing = true;
    m_isDragging = false;
    qDebug().noquote() << "ResultWindow: hideEvent, m_isPinned =" << m_isPinned;
    disconnectWatchers();
    QWidget::hideEvent(event);
    emit closed();
}

void ResultWindow::disconnectWatchers()
{
    QObject::disconnect(m_focusWindowConnection);
    QObject::disconnect(m_appStateConnection);
    m_focusWindowConnection = QMetaObject::Connection();
    m_appStateConnection = QMetaObject::Connection();
}

bool ResultWindow::event(QEvent *event)
{
    switch (event->type()) {
    case QEvent::LanguageChange:
        retranslateUi();
        break;
    case QEvent::WindowDeactivate:
    case QEvent::FocusOut: {
        qDebug().noquote() << "ResultWindow: WindowDeactivate, m_isPinned =" << m_isPinned
                           << ", m_ignoreDeactivate =" << m_ignoreDeactivate
                           << ", active =" << isActiveWindow() << ", visible =" << isVisible()
                           << ", appState =" << QGuiApplication::applicationState()
                           << ", handle =" << windowHandle()
                           << ", focusWindow =" << QGuiApplication::focusWindow();
        if (m_isPinned)
            return true;
        if (!m_ignoreDeactivate) {
            qDebug().noquote() << "ResultWindow: WindowDeactivate hide";
            hide();
            return true;
        }
        // Within the grace period: decide once the activation has settled.
        QTimer::singleShot(250, this, [this] {
            if (!m_isPinned && !isActiveWindow()) {
                qDebug().noquote() << "ResultWindow: WindowDeactivate hide";
                hide();
            }
        });
        return true;
    }
    default:
        break;
    }
    return QWidget::event(event);
}

void ResultWindow::onFocusWindowChanged(QWindow *window)
{
    if (m_isClosing || m_isPinned || m_ignoreDeactivate || !isVisible())
        return;
    if (!window) {
        qDebug().noquote() << "ResultWindow: focusWindowChanged -> null";
        return;
    }
    qDebug().noquote() << "ResultWindow: focusWindowChanged handle =" << windowHandle()
                       << "focusWindow =" << window << "active =" << isActiveWindow()
                       << "visible =" << isVisible();
    QWindow *own = windowHandle();
    if (!own || window == own)
        return;
    // A context menu or another popup opened from this window is still this window's business.
    if (window->transientParent() == own && (window->flags() & Qt::Popup) == Qt::Popup)
        return;
    qDebug().noquote() << "ResultWindow: focusWindowChanged hide";
    hide();
}

void ResultWindow::onApplicationStateChanged(Qt::ApplicationState state)
{
    if (m_isClosing || m_isPinned || m_ignoreDeactivate || !isVisible())
        return;
    qDebug().noquote() << "ResultWindow: applicationStateChanged state =" << state
                       << "active =" << isActiveWindow() << "visible =" << isVisible();
    if (state != Qt::ApplicationActive) {
        qDebug().noquote() << "ResultWindow: applicationStateChanged hide";
        hide();
    }
}

// ---- keyboard -----------------------------------------------------------------------------------------

void ResultWindow::keyPressEvent(QKeyEvent *event)
{
    if (event->key() == Qt::Key_Escape) {
        hide();
        event->accept();
        return;
    }
    if (isEnterKey(event) && canSendSource()) {
        emit translateRequested(getSourceText());
        event->accept();
        return;
    }
    QWidget::keyPressEvent(event);
}

bool ResultWindow::eventFilter(QObject *watched, QEvent *event)
{
    if (watched == m_sourceEdit && event->type() == QEvent::KeyPress) {
        auto *keyEvent = static_cast<QKeyEvent *>(event);
        if (isEnterKey(keyEvent) && !(keyEvent->modifiers() & Qt::ShiftModifier) && canSendSource()) {
            emit translateRequested(getSourceText());
            return true;
        }
    } else if (event->type() == QEvent::Resize && !m_isClosing &&
               ((m_sourceEdit && watched == m_sourceEdit->viewport()) ||
                (m_translationView && watched == m_translationView->viewport()))) {
        // A scroll bar appearing narrows the viewport; the corner buttons stay left of it.
        updateCopyButtonsPosition();
    }
    return QWidget::eventFilter(watched, event);
}

// ---- pinning ------------------------------------------------------------------------------------------

void ResultWindow::setPinned(bool pinned)
{
    qDebug().noquote() << "ResultWindow: setPinned" << pinned << ", current m_isPinned =" << m_isPinned;
    if (pinned == m_isPinned)
        return;
    m_isPinned = pinned;
    updatePinButtonStyle();
    emit pinStateChanged(pinned);
}

void ResultWindow::onPinButtonClicked()
{
    setPinned(!m_isPinned);
}

void ResultWindow::updatePinButtonStyle()
{
    if (!m_pinButton)
        return;
    const bool dark = vontrelIsDarkMode();
    if (m_isPinned) {
        m_pinButton->setIcon(
            tintedSvgIcon(QStringLiteral(":/icons/ic-baseline-push-pin.svg"), QStringLiteral("white")));
        m_pinButton->setStyleSheet(
            QStringLiteral("\n            QPushButton {\n                background-color: %1;\n"
                           "                color: white;\n                border: none;\n"
                           "                border-radius: 4px;\n            }\n        ")
                .arg(QColor(dark ? "#0066cc" : "#007AFF").name()));
        m_pinButton->setToolTip(tr("Unpin window"));
    } else {
        const QString g = dark ? QStringLiteral("#909090") : QStringLiteral("#c0c0c0");
        m_pinButton->setIcon(tintedSvgIcon(QStringLiteral(":/icons/ic-baseline-pin-off.svg"), g));
        m_pinButton->setStyleSheet(
            QStringLiteral("\n            QPushButton {\n                background-color: transparent;\n"
                           "                color: %1;\n                border: 1px solid %2;\n"
                           "                border-radius: 4px;\n            }\n"
                           "            QPushButton:hover {\n                background-color: %3;\n"
                           "            }\n        ")
                .arg(dark ? QStringLiteral("#a0a0a0") : QStringLiteral("#666666"), g,
                     dark ? QStringLiteral("#404040") : QStringLiteral("#e0e0e0")));
        m_pinButton->setToolTip(tr("Pin window"));
    }
    m_pinButton->setIconSize(QSize(16, 16));
}

// ---- dragging -----------------------------------------------------------------------------------------

void ResultWindow::mousePressEvent(QMouseEvent *event)
{
    if (event->button() == Qt::LeftButton) {
        QWidget *child = childAt(event->position().toPoint());
        if (!child || child == this) {
            m_isDragging = true;
            m_dragOffset = event->globalPosition().toPoint() - frameGeometry().topLeft();
            event->accept();
            return;
        }
    }
    QWidget::mousePressEvent(event);
}

void ResultWindow::mouseMoveEvent(QMouseEvent *event)
{
    if (m_isDragging && (event->buttons() & Qt::LeftButton)) {
        move(event->globalPosition().toPoint() - m_dragOffset);
        event->accept();
        return;
    }
    QWidget::mouseMoveEvent(event);
}

void ResultWindow::mouseReleaseEvent(QMouseEvent *event)
{
    if (event->button() == Qt::LeftButton)
        m_isDragging = false;
    QWidget::mouseReleaseEvent(event);
}
