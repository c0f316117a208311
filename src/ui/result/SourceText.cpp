#include "ui/result/SourceText.h"

#include "ai/InputLimit.h"
#include "ui/result/ResultWindowStyle.h"

#include <QKeyEvent>
#include <QMimeData>
#include <QTextCursor>

SourceText::SourceText(QWidget *parent, const ThemeColors &colors)
    : QTextEdit(parent)
{
    setObjectName(QStringLiteral("sourceEdit"));
    // The source is read back as plain text; pasted formatting would only be noise the user cannot see go.
    setAcceptRichText(false);
    setMaximumHeight(320);
    setStyleSheet(ResultWindowStyle::textArea("QTextEdit", colors));
    retranslate();
}

void SourceText::setCapture(bool capture)
{
    m_capture = capture;
    if (!capture)
        m_recognition = Recognition::None;
    retranslate();
}

void SourceText::setRecognition(Recognition recognition)
{
    m_recognition = recognition;
    retranslate();
}

void SourceText::retranslate()
{
    if (!m_capture) {
        setPlaceholderText(tr("Type text, press Enter to translate (Shift+Enter for newline)..."));
        return;
    }
    switch (m_recognition) {
    case Recognition::Running:
        setPlaceholderText(tr("Recognizing text..."));
        return;
    case Recognition::FoundNothing:
        setPlaceholderText(tr("No text recognized"));
        return;
    case Recognition::None:
        break;
    }
    setPlaceholderText(tr("OCR text will appear here..."));
}

void SourceText::keyPressEvent(QKeyEvent *event)
{
    const bool enter = event->key() == Qt::Key_Return || event->key() == Qt::Key_Enter;
    if (enter && !(event->modifiers() & Qt::ShiftModifier) && m_canSend && m_canSend()) {
        emit sendRequested();
        event->accept();
        return;
    }
    QTextEdit::keyPressEvent(event);
}

void SourceText::insertFromMimeData(const QMimeData *source)
{
    if (!source->hasText()) {
        QTextEdit::insertFromMimeData(source);
        return;
    }
    QTextCursor cursor = textCursor();
    // The document counts the paragraph separator at its end as a character.
    const qsizetype kept =
        document()->characterCount() - 1 - (cursor.selectionEnd() - cursor.selectionStart());
    const BoundedInput input =
        vontrelBoundInput(source->text(), qMax<qsizetype>(0, kVontrelMaxInputChars - kept));
    if (!input.isCut()) {
        QTextEdit::insertFromMimeData(source);
        return;
    }
    cursor.insertText(input.text);
    setTextCursor(cursor);
    ensureCursorVisible();
    emit inputCut(input.leftOut());
}
