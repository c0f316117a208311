#pragma once

#include "ai/ActionService.h"

#include <QString>

// What one result window is doing, whatever the other windows do: its own text, action and phase. The number
// is new whenever the run starts over (a new session in the window, a new request), and every answer that
// arrives later (a capture, a recognition, a copied selection, a streamed piece) carries the number it was
// started with: an answer whose number is no longer a window's belongs to a run that is gone or replaced.
struct WindowRun
{
    enum class Phase {
        Idle,        // nothing under way: a message is shown, or the capture was cancelled
        Capturing,   // the region selector is open for this window
        Recognising, // its image is being read
        Pausing,     // text recognised; the request follows after a pause
        Waiting,     // waiting for its text: the selection being read, or the user typing
        Streaming,   // its request runs
        Done,
        Failed,
        Stopped,
    };

    QString windowId;
    quint64 number = 0;
    Phase phase = Phase::Idle;
    // The text of its last request, or the one about to be sent; Retry sends it again.
    QString text;
    ActionService::ActionType action = ActionService::Translate;
    // Still the session's run, which goes on by itself (the pause, the copied selection). The next session
    // ends that; a pinned window left behind then waits for the user.
    bool automatic = true;
    // The window has been on screen; one that never was (its capture was cancelled) is not kept by a pin.
    bool presented = false;

    bool isUnderWay() const
    {
        return phase == Phase::Capturing || phase == Phase::Recognising || phase == Phase::Pausing ||
               phase == Phase::Streaming;
    }
};
