#include "ui/result/ResultText.h"

#include "ui/result/ResultLayout.h"
#include "ui/result/ResultWindowStyle.h"

#include <QTextCursor>

ResultText::ResultText(QWidget *parent, const ThemeColors &colors)
    : QTextBrowser(parent)
{
    setObjectName(QStringLiteral("translationView"));
    // The result is text, never a page to navigate to: a link inside an error message must not replace it.
    setOpenLinks(false);
    setMaximumHeight(ResultLayout::kResultCap);
    setStyleSheet(ResultWindowStyle::textArea("QTextBrowser", colors));
}

void ResultText::showWaiting()
{
    setHtml(ResultWindowStyle::placeholderHtml(tr("Translating..."), vontrelThemeColors()));
    m_waiting = true;
}

void ResultText::append(const QString &chunk)
{
    // Only the line showWaiting put there goes: a first piece that happens to read the same is the answer.
    if (m_waiting)
        clear();
    m_waiting = false;
    QTextCursor cursor(document());
    cursor.movePosition(QTextCursor::End);
    cursor.insertText(chunk);
    setTextCursor(cursor);
    ensureCursorVisible();
}

void ResultText::showText(const QString &text)
{
    m_waiting = false;
    setPlainText(text);
}

void ResultText::showError(const QString &message, bool afterAnswer)
{
    const QString html = ResultWindowStyle::errorHtml(message, vontrelThemeColors());
    if (afterAnswer && !m_waiting && !document()->isEmpty()) {
        QTextCursor cursor(document());
        cursor.movePosition(QTextCursor::End);
        cursor.insertBlock();
        cursor.insertBlock();
        cursor.insertHtml(html);
    } else {
        setHtml(html);
    }
    m_waiting = false;
}

void ResultText::clearText()
{
    m_waiting = false;
    clear();
}
