// ResultWindow's content: what it shows, set through its own calls (the screenshots, the tests) and through
// the session's (IResultView). The widget tree, sizing and events are in ResultWindow.cpp.
#include "ui/result/ResultWindow.h"

#include "ai/InputLimit.h"
#include "platform/Platform.h"
#include "ui/result/PreviewArea.h"
#include "ui/result/ResultText.h"
#include "ui/result/SourceText.h"

#include <QLabel>
#include <QLocale>

// ---- content ------------------------------------------------------------------------------------------

void ResultWindow::setMode(Mode mode)
{
    m_mode = mode;
    m_hasError = false;
    m_isStopped = false;
    m_isProcessing = false;

    m_previewLabel->setVisible(mode == CaptureMode);
    m_sourceEdit->setVisible(mode != MessageMode);

    m_sourceEdit->setCapture(mode == CaptureMode);
    m_sourceEdit->setReadOnly(mode == CaptureMode || !m_sourceEditable);

    m_messageLabel->setVisible(mode == MessageMode);

    if (mode != CaptureMode)
        m_previewLabel->setImage(QImage());

    if (mode == MessageMode) {
        showTranslation(false);
        clearTranslation();
        showCut(0);
    }

    refresh();
}

void ResultWindow::setPreviewImage(const QImage &image)
{
    m_previewLabel->setImage(image);
}

void ResultWindow::setSourceText(const QString &text)
{
    if (m_isClosing)
        return;
    // Only what one request carries is laid out: the whole of a huge clipboard would freeze the window.
    const BoundedInput input = vontrelBoundInput(text);
    m_sourceEdit->setPlainText(input.text);
    showCut(input.leftOut());
    refresh();
}

void ResultWindow::showCut(qsizetype leftOut)
{
    m_cutLeftOut = leftOut;
    retranslateCutNote();
    m_cutNote->setVisible(leftOut > 0);
    refresh();
}

void ResultWindow::retranslateCutNote()
{
    if (m_cutLeftOut > 0)
        m_cutNote->setText(tr("The text was cut to fit one request (at most %1 characters): the other %2 "
                              "characters are neither shown nor translated.")
                               .arg(QLocale().toString(qlonglong(kVontrelMaxInputChars)),
                                    QLocale().toString(qlonglong(m_cutLeftOut))));
}

QString ResultWindow::getSourceText() const
{
    return m_sourceEdit->toPlainText();
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
    if (m_isClosing)
        return;
    m_translationView->showText(text);
    refresh();
}

void ResultWindow::appendTranslation(const QString &chunk)
{
    if (m_isClosing)
        return;
    m_translationView->append(chunk);
    refresh();
}

QString ResultWindow::getTranslation() const
{
    return m_translationView->toPlainText();
}

void ResultWindow::clearTranslation()
{
    if (m_isClosing)
        return;
    m_translationView->clearText();
    refresh();
}

void ResultWindow::showTranslation(bool show)
{
    if (m_isClosing)
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
        m_isStopped = false;
        m_translationView->showWaiting();
    }
    refresh();
}

void ResultWindow::setError(const QString &message)
{
    if (m_isClosing)
        return;
    const bool midway = m_isProcessing;
    m_hasError = true;
    m_isStopped = false;
    m_isProcessing = false;
    // The run is over, so the user may correct the text and send it again.
    if (m_mode == TextMode)
        m_sourceEdit->setReadOnly(!m_sourceEditable);
    m_translationView->showError(message, midway);
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
    m_sourceEdit->setRecognition(SourceText::Recognition::Running);
    setPreviewImage(image);
    showTranslation(false);
    clearTranslation();
    setSourceEditable(false);
    setSourceText(QString());
}

void ResultWindow::showSource(const QString &text, bool editable)
{
    if (m_mode == CaptureMode) {
        m_sourceEdit->setRecognition(text.isEmpty() ? SourceText::Recognition::FoundNothing
                                                    : SourceText::Recognition::None);
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
    // Cleared first: the waiting line is what the user sees until the first chunk arrives.
    clearTranslation();
    setProcessing(true);
}

void ResultWindow::endResult(ResultEnd end)
{
    setProcessing(false);
    if (end != ResultEnd::Stopped)
        return;
    m_isStopped = true;
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
    if (m_platform)
        m_platform->activateApplication();
    show();
    raise();
    activateWindow();
    if (m_platform && m_activationTime != 0)
        m_platform->activateWindow(windowHandle(), m_activationTime);
}

void ResultWindow::discard()
{
    m_requests = {};
    hide();
    deleteLater();
}
