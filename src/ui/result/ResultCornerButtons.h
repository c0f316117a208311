#pragma once

#include "ui/ThemeColors.h"

#include <QObject>

class QTextDocument;
class QTextEdit;
class QToolButton;

// The small buttons on the top-right corners of the result window's text areas: Copy on the source; Copy,
// Stop or Retry on the result, whichever fits the run's state. They never take the focus from the text
// being edited.
class ResultCornerButtons final : public QObject
{
    Q_OBJECT

public:
    struct State
    {
        bool sourceShown = false;
        bool resultShown = false;
        bool processing = false;
        bool error = false;
        bool stopped = false; // the run was stopped: it may be sent again
    };

    ResultCornerButtons(QTextEdit *source, QTextEdit *result, const ThemeColors &colors);

    void update(const State &state);
    // Puts the buttons into their areas' corners, left of a scroll bar; call after the areas changed size.
    void place();
    void retranslate();

    // Keeps the text out from under the button: every line leaves room for it on the right. Setting the
    // content resets the document's frame, so this runs on every change; it costs nothing once done.
    static void reserveSpace(QTextDocument *doc);
    // True when the document holds anything but white space. Stops at the first visible character, so a
    // long streamed result costs nothing per chunk.
    static bool hasVisibleText(const QTextDocument *doc);

signals:
    void stopClicked();
    void retryClicked();
    void resultCopied();

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    QToolButton *make(QTextEdit *area, const char *name, const char *icon, const QString &tint,
                      const QString &styleSheet);
    void copy(QTextEdit *area, QToolButton *button);

    QTextEdit *m_source = nullptr;
    QTextEdit *m_result = nullptr;
    QToolButton *m_copySource = nullptr;
    QToolButton *m_copyResult = nullptr;
    QToolButton *m_stop = nullptr;
    QToolButton *m_retry = nullptr;
    State m_state;
};
