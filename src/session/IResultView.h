#pragma once

#include <QImage>
#include <QString>

#include <functional>

// One result window as the session sees it. The controller tells the window what happened; the window
// decides what that looks like. A new view starts empty, in text mode, hidden.
class IResultView
{
public:
    // What the user asks of the window. Any of them may be empty; a discarded view calls none.
    struct Requests
    {
        std::function<void(const QString &text)> translate;
        std::function<void()> stop;
        std::function<void()> retry;
        std::function<void(bool pinned)> pinChanged;
        // Once per showing, however the window was hidden.
        std::function<void()> closed;
    };

    enum class Message {
        NoImageInClipboard,
        CopyFailed,
    };

    enum class ResultEnd {
        Finished,
        Stopped,
    };

    virtual ~IResultView() = default;

    virtual void setRequests(Requests requests) = 0;

    // A captured region whose text is being recognised: preview shown, source locked.
    virtual void showRecognising(const QImage &image) = 0;
    // The input of the run. Empty after showRecognising means nothing was recognised; empty otherwise
    // means the user is to type.
    virtual void showSource(const QString &text, bool editable) = 0;
    // A request has started: the result area waits for its first piece, the source is locked.
    virtual void beginResult() = 0;
    virtual void appendResult(const QString &chunk) = 0;
    virtual void endResult(ResultEnd end) = 0;
    // Ends the run with a failure the user can read; Retry is offered.
    virtual void showError(const QString &message) = 0;
    virtual void showMessage(Message message) = 0;

    // Shows the window in front, activated.
    virtual void present() = 0;
    // The system time of the key press that opened the session (0 when none, as from the tray): a window
    // manager that prevents focus stealing lets the window take the focus only for a recent user action.
    virtual void setActivationTime(quint64 time) { Q_UNUSED(time) }
    virtual void setPinned(bool pinned) = 0;
    virtual bool isPinned() const = 0;
    // Hides the window without reporting it and frees it once control is back in the event loop.
    virtual void discard() = 0;
};
