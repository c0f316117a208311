#include "ui/result/ResultCornerButtons.h"

#include "ui/IconTint.h"
#include "ui/result/ResultWindowStyle.h"

#include <QClipboard>
#include <QEvent>
#include <QFontMetrics>
#include <QGuiApplication>
#include <QTextBlock>
#include <QTextDocument>
#include <QTextEdit>
#include <QTextFrame>
#include <QTextFrameFormat>
#include <QToolButton>
#include <QToolTip>

namespace {

constexpr int kSize = 22;
constexpr int kInset = 2;

} // namespace

ResultCornerButtons::ResultCornerButtons(QTextEdit *source, QTextEdit *result, const ThemeColors &colors)
    : QObject(source->parentWidget())
    , m_source(source)
    , m_result(result)
{
    const QString neutral = ResultWindowStyle::cornerButton(colors);
    m_copySource = make(source, "copySourceButton", ":/icons/copy.svg", colors.iconColor, neutral);
    m_copyResult = make(result, "copyButton", ":/icons/copy.svg", colors.iconColor, neutral);
    m_stop = make(result, "stopButton", ":/icons/stop.svg", colors.errorColor,
                  ResultWindowStyle::destructiveCornerButton(colors));
    m_retry = make(result, "retryButton", ":/icons/retry.svg", colors.iconColor, neutral);
    connect(m_copySource, &QToolButton::clicked, this, [this] { copy(m_source, m_copySource); });
    connect(m_copyResult, &QToolButton::clicked, this, [this] {
        copy(m_result, m_copyResult);
        emit resultCopied();
    });
    connect(m_stop, &QToolButton::clicked, this, &ResultCornerButtons::stopClicked);
    connect(m_retry, &QToolButton::clicked, this, &ResultCornerButtons::retryClicked);
    source->viewport()->installEventFilter(this);
    result->viewport()->installEventFilter(this);
    retranslate();
}

bool ResultCornerButtons::eventFilter(QObject *watched, QEvent *event)
{
    // A scroll bar appearing narrows the viewport; the buttons stay left of it.
    if (event->type() == QEvent::Resize &&
        (watched == m_source->viewport() || watched == m_result->viewport()))
        place();
    return false;
}

QToolButton *ResultCornerButtons::make(QTextEdit *area, const char *name, const char *icon,
                                       const QString &tint, const QString &styleSheet)
{
    auto *button = new QToolButton(area);
    button->setObjectName(QLatin1String(name));
    button->setFixedSize(kSize, kSize);
    button->setIconSize(QSize(14, 14));
    button->setCursor(Qt::PointingHandCursor);
    button->setIcon(tintedMenuIcon(QLatin1String(icon), QColor(tint)));
    button->setStyleSheet(styleSheet);
    button->setFocusPolicy(Qt::NoFocus);
    button->hide();
    return button;
}

void ResultCornerButtons::retranslate()
{
    m_copySource->setToolTip(tr("Copy"));
    m_copyResult->setToolTip(tr("Copy"));
    m_stop->setToolTip(tr("Stop"));
    m_retry->setToolTip(tr("Retry"));
}

void ResultCornerButtons::update(const State &state)
{
    m_state = state;
    m_copySource->setVisible(state.sourceShown);
    m_copySource->setEnabled(hasVisibleText(m_source->document()));

    // A run that failed or was stopped is offered again; one that ended is offered for copying.
    const bool again = state.resultShown && !state.processing && (state.error || state.stopped);
    const bool settled = state.resultShown && !state.processing && !again;
    m_copyResult->setVisible(settled);
    m_copyResult->setEnabled(settled && hasVisibleText(m_result->document()));
    m_stop->setVisible(state.resultShown && state.processing && !state.error);
    m_stop->setEnabled(state.processing);
    m_retry->setVisible(again);
    m_retry->setEnabled(again);
}

void ResultCornerButtons::place()
{
    const auto put = [](QTextEdit *area, QToolButton *button) {
        if (area->isHidden()) {
            button->hide();
            return;
        }
        const QRect surface = area->viewport()->geometry();
        button->move(surface.right() + 1 - button->width() - kInset, surface.top() + kInset);
        button->raise();
    };
    put(m_source, m_copySource);
    for (QToolButton *button : {m_copyResult, m_stop, m_retry})
        put(m_result, button);
}

void ResultCornerButtons::copy(QTextEdit *area, QToolButton *button)
{
    if (!hasVisibleText(area->document()) || (area == m_result && m_state.error))
        return;
    QGuiApplication::clipboard()->setText(area->toPlainText(), QClipboard::Clipboard);
    const QString text = tr("Copied");
    const QFontMetrics metrics(QToolTip::font());
    const QPoint global = button->mapToGlobal(QPoint(button->width() / 2, 0));
    const QPoint pos(global.x() + (-8 - metrics.horizontalAdvance(text)) / 2,
                     global.y() - metrics.height() - 40);
    QToolTip::showText(pos, text, button, button->rect(), 2000);
}

void ResultCornerButtons::reserveSpace(QTextDocument *doc)
{
    QTextFrame *root = doc->rootFrame();
    QTextFrameFormat format = root->frameFormat();
    const qreal wanted = doc->documentMargin() + kSize + kInset;
    if (qFuzzyCompare(format.rightMargin(), wanted))
        return;
    format.setRightMargin(wanted);
    // Not an edit the user could undo; the history is empty right after the content was replaced anyway.
    const bool undo = doc->isUndoRedoEnabled();
    doc->setUndoRedoEnabled(false);
    root->setFrameFormat(format);
    doc->setUndoRedoEnabled(undo);
}

bool ResultCornerButtons::hasVisibleText(const QTextDocument *doc)
{
    for (QTextBlock block = doc->begin(); block.isValid(); block = block.next()) {
        const QString text = block.text();
        for (const QChar ch : text) {
            if (!ch.isSpace())
                return true;
        }
    }
    return false;
}
