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

protected:
    void keyPressEvent(QKeyEvent *event) override;

private:
    bool m_capture = false;
    Recognition m_recognition = Recognition::None;
    std::function<bool()> m_canSend;
};
