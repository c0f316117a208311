#include "ui/result/ResultWindow.h"

#include "platform/Platform.h"
#include "ui/result/PreviewArea.h"
#include "ui/result/ResultAutoHide.h"
#include "ui/result/ResultCornerButtons.h"
#include "ui/result/ResultLayout.h"
#include "ui/result/ResultText.h"
#include "ui/result/ResultTitleRow.h"
#include "ui/result/ResultWindowStyle.h"
#include "ui/result/SourceText.h"
#include "ui/result/WindowDragger.h"

#include <QGuiApplication>
#include <QKeyEvent>
#include <QLabel>
#include <QScreen>
#include <QTextDocument>
#include <QTextEdit>
#include <QTimer>
#include <QVBoxLayout>

#include <algorithm>

namespace {

// One flag for the whole process: setFixedHeight and resize re-enter the sizing pass through resizeEvent
// and contentsChanged, and a nested pass (even one of another window) would measure half-applied heights.
bool s_autoHeightsRunning = false;

constexpr int kMinWidth = 650;
constexpr int kMinHeight = 240;
constexpr int kMaxWidthCap = 980;
constexpr int kMaxHeightCap = 800;
constexpr int kCornerRadius = 12;

bool isEnterKey(const QKeyEvent *event)
{
    return event->key() == Qt::Key_Return || event->key() == Qt::Key_Enter;
}

} // namespace

// A utility window: it answers a hotkey and belongs in neither the taskbar nor the Alt+Tab list.
ResultWindow::ResultWindow(QWidget *parent)
    : QWidget(parent, Qt::Tool | Qt::FramelessWindowHint | Qt::WindowStaysOnTopHint)
{
    // The session deletes its windows itself, after it has seen closed().
    setAttribute(Qt::WA_DeleteOnClose, false);
    // A plain QWidget subclass paints its style-sheet background only with this attribute.
    setAttribute(Qt::WA_StyledBackground, true);

    setMinimumSize(kMinWidth, kMinHeight);
    QRect available(0, 0, 1280, 800);
    if (const QScreen *screen = QGuiApplication::primaryScreen())
        available = screen->availableGeometry();
    setMaximumSize(std::min(static_cast<int>(0.9 * available.width()), kMaxWidthCap),
                   std::min(static_cast<int>(0.9 * available.height()), kMaxHeightCap));

    setupUi();
    m_autoHide = new ResultAutoHide(this, [this] { return m_isPinned; });
    new WindowDragger(this);

    // Each request is called through a copy: the session may clear the requests while one of them runs.
    const auto forward = [this](auto signal, auto request) {
        connect(this, signal, this, [this, request](auto... arguments) {
            if (const auto call = m_requests.*request)
                call(arguments...);
        });
    };
    forward(&ResultWindow::translateRequested, &Requests::translate);
    forward(&ResultWindow::stopRequested, &Requests::stop);
    forward(&ResultWindow::retryRequested, &Requests::retry);
    forward(&ResultWindow::pinStateChanged, &Requests::pinChanged);
    forward(&ResultWindow::closed, &Requests::closed);
}

ResultWindow::~ResultWindow()
{
    // QWidget's destructor hides the window, and the filter would then ask this half-destroyed object whether
    // it is pinned.
    delete m_autoHide;
}

void ResultWindow::setPlatform(Platform *platform)
{
    m_platform = platform;
    // Where translucent windows are composited, the style sheet's rounded border shows as it is; the choice
    // has to be made before the native window exists.
    if (m_platform && !testAttribute(Qt::WA_WState_Created) && m_platform->composesTranslucentWindows()) {
        setAttribute(Qt::WA_TranslucentBackground, true);
        setStyleSheet(ResultWindowStyle::window(vontrelThemeColors(), kCornerRadius));
    }
}

void ResultWindow::setupUi()
{
    const ThemeColors colors = vontrelThemeColors();
    // Without a compositor the corners outside a rounded border could only be cut away, and a cut goes
    // through the border; square corners keep it whole. setPlatform() rounds them where it can.
    setStyleSheet(ResultWindowStyle::window(colors, 0));

    m_mainLayout = new QVBoxLayout(this);
    m_mainLayout->setSpacing(12);
    m_mainLayout->setContentsMargins(16, 16, 16, 16);

    m_titleRow = new ResultTitleRow(this, colors);
    connect(m_titleRow, &ResultTitleRow::pinClicked, this, [this] { setPinned(!m_isPinned); });
    connect(m_titleRow, &ResultTitleRow::closeClicked, this, &QWidget::hide);
    m_mainLayout->addLayout(m_titleRow->layout());

    m_messageLabel = new QLabel(this);
    m_messageLabel->setObjectName(QStringLiteral("messageLabel"));
    m_messageLabel->setWordWrap(true);
    m_messageLabel->setStyleSheet(ResultWindowStyle::message(colors));
    m_messageLabel->hide();
    m_mainLayout->addWidget(m_messageLabel);

    m_previewLabel = new PreviewArea(this);
    m_previewLabel->setStyleSheet(ResultWindowStyle::preview(colors));
    m_previewLabel->hide();
    m_mainLayout->addWidget(m_previewLabel);

    m_sourceEdit = new SourceText(this, colors);
    m_sourceEdit->setSendCheck([this] { return canSendSource(); });
    connect(m_sourceEdit, &SourceText::sendRequested, this,
            [this] { emit translateRequested(getSourceText()); });
    m_mainLayout->addWidget(m_sourceEdit);

    m_cutNote = new QLabel(this);
    m_cutNote->setObjectName(QStringLiteral("inputCutNote"));
    m_cutNote->setWordWrap(true);
    m_cutNote->setStyleSheet(ResultWindowStyle::message(colors));
    m_cutNote->hide();
    m_mainLayout->addWidget(m_cutNote);
    connect(m_sourceEdit, &SourceText::inputCut, this, &ResultWindow::showCut);

    m_translationView = new ResultText(this, colors);
    m_mainLayout->addWidget(m_translationView);
    // Spare height (the window's minimum exceeds short content) goes below the content, not between rows.
    m_mainLayout->addStretch(1);

    for (QTextEdit *area :
         {static_cast<QTextEdit *>(m_sourceEdit), static_cast<QTextEdit *>(m_translationView)}) {
        area->setSizePolicy(QSizePolicy::Expanding, QSizePolicy::MinimumExpanding);
        connect(area->document(), &QTextDocument::contentsChanged, this, [this, area] {
            ResultCornerButtons::reserveSpace(area->document());
            updateAutoHeights();
            updateCopyButtonsState();
        });
    }

    m_cornerButtons = new ResultCornerButtons(m_sourceEdit, m_translationView, colors);
    connect(m_cornerButtons, &ResultCornerButtons::stopClicked, this, &ResultWindow::stopRequested);
    connect(m_cornerButtons, &ResultCornerButtons::retryClicked, this, &ResultWindow::retryRequested);
    connect(m_cornerButtons, &ResultCornerButtons::resultCopied, this, &ResultWindow::copyRequested);

    setMode(m_mode);
    retranslateUi();
}

void ResultWindow::retranslateUi()
{
    setWindowTitle(tr("Vontrel — Translation"));
    m_titleRow->retranslate();
    m_cornerButtons->retranslate();
    m_sourceEdit->retranslate();
    m_translationView->setPlaceholderText(tr("Translation will appear here..."));
    retranslateCutNote();
}

void ResultWindow::refresh()
{
    updateAutoHeights();
    updateCopyButtonsState();
    if (!m_isClosing)
        updateCopyButtonsPosition();
}

// ---- corner buttons -----------------------------------------------------------------------------------

bool ResultWindow::canSendSource() const
{
    return m_mode == TextMode && !m_isProcessing &&
           ResultCornerButtons::hasVisibleText(m_sourceEdit->document());
}

void ResultWindow::updateCopyButtonsState()
{
    ResultCornerButtons::State state;
    state.sourceShown = m_mode != MessageMode && m_sourceEdit->isVisible();
    state.resultShown = m_mode != MessageMode && m_translationView->isVisible();
    state.processing = m_isProcessing;
    state.error = m_hasError;
    state.stopped = m_isStopped;
    m_cornerButtons->update(state);
}

void ResultWindow::updateCopyButtonsPosition()
{
    if (!m_isClosing)
        m_cornerButtons->place();
}

// ---- sizing -------------------------------------------------------------------------------------------

void ResultWindow::updateAutoHeights()
{
    if (m_isClosing || s_autoHeightsRunning)
        return;
    s_autoHeightsRunning = true;

    ResultLayout::HeightWishes wishes;
    wishes.sourceShown = m_sourceEdit->isVisible();
    wishes.resultShown = m_translationView->isVisible();
    if (wishes.sourceShown) {
        int cap = wishes.resultShown ? ResultLayout::kSourceCapWithResult : ResultLayout::kSourceCapAlone;
        if (m_sourceEdit->recognition() == SourceText::Recognition::Running)
            cap = 0;
        wishes.sourceWanted = ResultLayout::textAreaHeight(m_sourceEdit, cap);
        wishes.sourceLeast = ResultLayout::textAreaHeight(m_sourceEdit, 0);
    }
    if (wishes.resultShown) {
        wishes.resultWanted = ResultLayout::textAreaHeight(m_translationView, ResultLayout::kResultCap);
        wishes.resultLeast = ResultLayout::textAreaHeight(m_translationView, 0);
    }
    wishes.waiting = m_isProcessing || m_translationView->document()->isEmpty();
    // Before the window is shown there is no height budget to share yet.
    if (isVisible())
        wishes.room = ResultLayout::roomFor(m_mainLayout, maximumHeight(), {m_sourceEdit, m_translationView});

    const ResultLayout::HeightPlan plan = ResultLayout::heightPlan(wishes);
    if (wishes.sourceShown)
        m_sourceEdit->setFixedHeight(plan.source);
    if (wishes.resultShown)
        m_translationView->setFixedHeight(plan.result);

    m_mainLayout->activate();
    if (isVisible()) {
        const int h = std::min(sizeHint().height(), maximumHeight());
        if (height() != h) {
            resize(width(), h);
            // A result longer than the room left below the window would otherwise run off the screen.
            if (const QScreen *shownOn = screen()) {
                const QPoint at = ResultLayout::keptOn(shownOn->availableGeometry(), frameGeometry());
                if (at != pos())
                    move(at);
            }
        }
    }
    s_autoHeightsRunning = false;
}

void ResultWindow::resizeEvent(QResizeEvent *event)
{
    QWidget::resizeEvent(event);
    m_previewLabel->fit();
    updateAutoHeights();
    updateCopyButtonsPosition();
}

// ---- show, hide, keyboard, pinning --------------------------------------------------------------------

void ResultWindow::showEvent(QShowEvent *event)
{
    m_isClosing = false;
    // The window keeps its width anyway; saying so before it is mapped keeps a tiling compositor from making
    // it a full-height tile with the card in its middle.
    if (m_platform && m_platform->floatsOnlyFixedSizeWindows())
        setFixedWidth(width());
    QWidget::showEvent(event);

    // Leave room for what is still to come (recognised text, the streamed result), so the window does not
    // grow off the bottom of the screen later.
    int estimated = height();
    for (QWidget *area : {static_cast<QWidget *>(m_previewLabel), static_cast<QWidget *>(m_sourceEdit)}) {
        if (area->isVisible())
            estimated += area->maximumHeight() - area->height();
    }
    if (m_mode != MessageMode && m_translationView->isHidden())
        estimated += m_translationView->maximumHeight() + m_mainLayout->spacing();
    move(ResultLayout::centredUnderCursor(QSize(width(), std::min(estimated, maximumHeight()))));

    QTimer::singleShot(50, this, [this] {
        if (m_platform)
            m_platform->roundWindowCorners(windowHandle(), kCornerRadius);
    });
    m_previewLabel->fit();
    refresh();
    if (m_mode == TextMode)
        m_sourceEdit->setFocus(Qt::OtherFocusReason);
}

void ResultWindow::hideEvent(QHideEvent *event)
{
    QWidget::hideEvent(event);
    if (m_isClosing)
        return;
    m_isClosing = true;
    emit closed();
}

bool ResultWindow::event(QEvent *event)
{
    if (event->type() == QEvent::LanguageChange)
        retranslateUi();
    return QWidget::event(event);
}

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

void ResultWindow::setPinned(bool pinned)
{
    if (pinned == m_isPinned)
        return;
    m_isPinned = pinned;
    m_titleRow->showPinned(pinned);
    emit pinStateChanged(pinned);
}
