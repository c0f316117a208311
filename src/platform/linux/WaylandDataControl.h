#pragma once

#include <QString>

#include <chrono>
#include <optional>

// The clipboard and the primary selection of the compositor's seat, read through the data-control protocol
// (sway and the other wlroots compositors, KDE Plasma). A compositor hands the ordinary data device's
// selection only to the client with the keyboard focus, so Qt's clipboard is blind while another application
// is focused, which is exactly when a hotkey asks for it; data control hands the current selections to any
// client. Each read opens a Wayland connection of its own and closes it again, so Qt's connection is never
// touched and nothing runs between reads. GUI thread or any other.
class WaylandDataControl final
{
public:
    enum class Selection {
        Clipboard,
        Primary,
    };

    // The selection's text; an empty string when the selection is empty or holds no text. std::nullopt when
    // it cannot be read this way: no Wayland display, a compositor without data control (GNOME), or a
    // source that did not answer within the timeout. A selection this process owns must not be read here:
    // its source is served by this process's own event loop, which waits on the read.
    static std::optional<QString> text(Selection selection, std::chrono::milliseconds timeout);
    // Whether the compositor offers data control for the clipboard at all.
    static bool available();
};
