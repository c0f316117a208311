#pragma once

#include "ui/ThemeColors.h"

#include <QTextBrowser>

// The result area: a waiting line until the first piece of the answer arrives, then the answer as it
// streams in (kept in view), or an error.
class ResultText final : public QTextBrowser
{
    Q_OBJECT

public:
    ResultText(QWidget *parent, const ThemeColors &colors);

    void showWaiting();
    // Appends at the end, whatever the user clicked meanwhile; the first piece replaces the waiting line.
    void append(const QString &chunk);
    void showText(const QString &text);
    // The message as text (it may quote the provider). With afterAnswer, below what has streamed so far:
    // a run that fails midway (stalled, cut off, too long) keeps its partial answer.
    void showError(const QString &message, bool afterAnswer);
    void clearText();

private:
    bool m_waiting = false;
};
