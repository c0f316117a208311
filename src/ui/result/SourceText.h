#pragma once

#include "ui/ThemeColors.h"

#include <QTextEdit>

#include <functional>

// The source area: the recognised text of a capture (read-only), or the text to translate, which the user
// may edit and send with Enter (Shift+Enter breaks the line).
class SourceText final : public QTextEdit
{
    Q_OBJECT

public:
    // Where a capture's text is: its placeholder says so while the area is empty.
    enum class Recognition { None, Running, FoundNothing };

    SourceText(QWidget *parent, const ThemeColors &colors);

    void setCapture(bool capture);
    bool isCapture() const { return m_capture; }
    void setRecognition(Recognition recognition);
    Recognition recognition() const { return m_recognition; }
    // Whether Enter sends the text now; otherwise Enter is an ordinary line break.
    void setSendCheck(std::function<bool()> canSend) { m_canSend = std::move(canSend); }
    void retranslate();

signals:
    void sendRequested();
    // A paste or a drop was cut to the input limit; leftOut characters of it were not inserted.
    void inputCut(qsizetype leftOut);

protected:
    void keyPressEvent(QKeyEvent *event) override;
    // Pasted or dropped text is cut so that the area never holds more than one request carries: a huge
    // clipboard would otherwise cost seconds of layout and gigabytes of memory before anything is sent.
    void insertFromMimeData(const QMimeData *source) override;

private:
    bool m_capture = false;
    Recognition m_recognition = Recognition::None;
    std::function<bool()> m_canSend;
};
