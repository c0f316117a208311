#pragma once

// Everything the portable code asks of the operating system. Exactly one backend folder is compiled in
// (linux, mac, or dummy on any other system), and it defines Platform::create(). Only Qt Core and Gui types
// appear here, so the engine library, which has no widgets, can use all of it.

#include "ocr/IOcrProvider.h"
#include "platform/HotkeyKeys.h"

#include <QImage>
#include <QObject>
#include <QRect>
#include <QString>

#include <functional>
#include <memory>
#include <optional>

class QScreen;
class QWindow;

// The native half of global hotkeys. HotkeyManager owns the bookkeeping (all or nothing, teardown); a
// backend installs its event source, grabs or releases single keys and reports presses through pressed().
class IHotkeyBackend : public QObject
{
    Q_OBJECT

public:
    // Short platform tag used in log lines ("mac", "x11").
    virtual QString platformTag() const = 0;
    // Native key code and modifier mask for the log; {0, 0} when the chord has no native key.
    virtual std::pair<quint32, quint32> nativeKey(const HotkeyChord &chord) const = 0;
    // Starts delivering presses. On failure returns a non-zero status and sets *error to the user-facing
    // reason.
    virtual int installHandler(QString *error) = 0;
    // Stops delivering presses; safe when nothing is installed.
    virtual void removeHandler() = 0;
    // Grabs one hotkey system-wide under the id. On failure returns a non-zero status, sets *error to a
    // message naming the combination, and leaves nothing grabbed for this id. `what` is "capture" or
    // "clipboard text". A backend that binds asynchronously accepts here and binds in commit().
    virtual int registerHotkey(int id, const HotkeyChord &chord, const QString &what, QString *error) = 0;
    // Releases the hotkey of the id; safe when it is not grabbed.
    virtual void unregisterHotkey(int id) = 0;
    // Called once after every hotkey of a registration was accepted. Backends whose binding is a single
    // request answered later (a desktop portal) send it here and report a refusal through bindingRefused().
    virtual void commit() {}
    // True when commit() only sends the binding, and the answer arrives later as bindingConfirmed() or
    // bindingRefused().
    virtual bool answersLater() const { return false; }

signals:
    // One press of the hotkey registered under the id, possibly from inside a native callback.
    // `timestamp` is the system's time of the key event (X11 server time; 0 where there is none), which
    // focus-stealing prevention wants when the press opens a window.
    void pressed(int id, quint64 timestamp);
    // An asynchronous binding was granted.
    void bindingConfirmed();
    // An asynchronous binding was refused or lost after registerHotkey() had accepted it.
    void bindingRefused(const QString &error);
};

// Reads the text the user has selected in the frontmost application.
class ISelectedTextProvider
{
public:
    virtual ~ISelectedTextProvider() = default;
    // The selection with surrounding white space removed; empty when nothing is selected or it cannot be
    // read.
    virtual QString selectedText() = 0;
};

// The native half of start at login: an XDG autostart entry on Linux, a LaunchAgent on macOS.
class IAutoStartBackend
{
public:
    virtual ~IAutoStartBackend() = default;
    // Whether an entry that starts this program at login is installed.
    virtual bool isEnabled() const = 0;
    // Installs the entry; false when it could not be installed (nothing half-written is left behind).
    virtual bool enable() = 0;
    // Removes the entry; false when it is still there afterwards.
    virtual bool disable() = 0;
};

// A screenshot of one screen, or why there is none.
struct ScreenGrab
{
    ScreenGrab() = default;
    ScreenGrab(const QImage &image, const QString &error, const QRect &area = QRect())
        : image(image)
        , error(error)
        , area(area)
    {}

    QImage image; // full device resolution, its device pixel ratio set to the screen's
    QString error;
    // The logical desktop area the image shows. Null: the requested screen. A system that can only take the
    // whole desktop at once (a desktop portal) answers with the bounding box of all screens, and the image's
    // device pixel ratio maps it onto that box.
    QRect area;
};

// Grabs `screen` at once through Qt, for systems that may read the screen without asking the user.
ScreenGrab vontrelGrabScreenNow(QScreen *screen);

// The running system. One object per process, made by the composition root (or a test) and handed to the
// services that need it. GUI thread only, except where a method says otherwise.
class Platform : public QObject
{
    Q_OBJECT

public:
    enum class Permission {
        ScreenRecording,
        Accessibility,
    };
    Q_ENUM(Permission)

    // What the permission guide says when a permission is missing (translated).
    struct GuideText
    {
        QString title;
        QString body; // rich text
    };

    // The compiled-in backend.
    static std::unique_ptr<Platform> create();

    // --- services made on demand; each caller owns what it gets ---------------------------------------
    // Never null: where there are no global hotkeys, installHandler() fails with the reason.
    virtual std::unique_ptr<IHotkeyBackend> createHotkeyBackend() = 0;
    // Never null: reads nothing where the selection cannot be read without the copy keystroke.
    virtual std::unique_ptr<ISelectedTextProvider> createSelectedTextProvider() = 0;
    // Never null: a provider that reports itself unavailable where nothing can recognise text.
    // `languages` in Tesseract's "chi_sim+eng" form; empty means the default choice. Any thread.
    virtual std::unique_ptr<IOcrProvider> createOcrProvider(const QString &languages = QString()) = 0;
    // Never null.
    virtual std::unique_ptr<IAutoStartBackend> createAutoStartBackend() = 0;

    // --- screen capture ---------------------------------------------------------------------------------
    // Whether grabScreen() can work at all in this session.
    virtual bool canGrabScreen() const = 0;
    // Takes a screenshot of the screen and hands it to `done`, exactly once, unless `context` is destroyed
    // first. Synchronous systems call `done` before returning; others (a desktop portal that asks the user)
    // call it later from the event loop.
    virtual void grabScreen(QScreen *screen, QObject *context,
                            std::function<void(const ScreenGrab &)> done) = 0;

    // --- reading the selection ----------------------------------------------------------------------------
    // Whether sendCopyKeystroke() can post a keystroke in this session (permission and mechanism).
    virtual bool canSendCopyKeystroke() = 0;
    // Makes the focused window copy its selection (Ctrl+C, Command+C). False, with nothing posted, when it
    // cannot.
    virtual bool sendCopyKeystroke() = 0;
    // Whether the focused window is a terminal emulator, where Ctrl+C interrupts instead of copying; the
    // caller reads the primary selection then.
    virtual bool focusedWindowIsTerminal() = 0;
    // The clipboard's text read past the toolkit, on a system that hands the clipboard only to the focused
    // window (Wayland) and has another way to read it while some other application is focused. std::nullopt
    // where there is none: the toolkit's clipboard is then to be read. An empty text is an empty clipboard.
    virtual std::optional<QString> unfocusedClipboardText() { return std::nullopt; }
    // True where the clipboard and the primary selection reach this process only while one of its windows
    // has the keyboard focus and there is no other way to read them (Wayland without data control): a read
    // must first bring a window of ours to the front and wait for the focus.
    virtual bool clipboardNeedsFocus() const { return false; }

    // --- permissions
    // ---------------------------------------------------------------------------------------- Never prompt.
    virtual bool hasPermission(Permission permission) = 0;
    // Asks the system to show its own prompt where there is one; returns the permission now.
    virtual bool requestPermission(Permission permission) { return hasPermission(permission); }
    // Whether the system has a settings pane that grants the permissions.
    virtual bool hasSystemSettingsPanes() const = 0;
    // Opens the pane that grants the permission; false when there is none or it did not open.
    virtual bool openPermissionSettings(Permission permission) = 0;
    // The guide's title and body for a missing permission.
    virtual GuideText permissionGuideText(Permission permission) const = 0;
    // Forgets a refusal the system keeps for this application (refusalRemembered()), so that it asks the
    // user again next time; false where there is none to forget or it could not.
    virtual bool forgetRefusal(Permission) { return false; }
    // A translated sentence saying what does not work in this desktop session and why; empty when
    // everything works. Shown to the user once at start-up.
    virtual QString sessionLimitation() const = 0;

    // --- application and windows --------------------------------------------------------------------------
    // Brings this application's windows in front of other applications'.
    virtual void activateApplication() = 0;
    // Raises and focuses one window. `timestamp` is the event that caused it (IHotkeyBackend::pressed);
    // 0 when unknown.
    virtual void activateWindow(QWindow *window, quint64 timestamp) = 0;
    // Shows or hides the Dock icon while a normal window is open; nothing where there is no Dock.
    virtual void setDockIconVisible(bool visible) = 0;
    // Whether the tray recolours a monochrome icon to suit its bar; where it does not, a single-colour icon
    // can vanish on a panel of the same colour.
    virtual bool trayRecoloursIcons() const = 0;
    // Whether a small window that must not be tiled has to keep a fixed width to say so: a tiling Wayland
    // compositor (sway) floats a toplevel only when its minimum and maximum size agree or it has a parent,
    // and a Wayland client has no other way to ask. Ask before the window is first shown.
    virtual bool floatsOnlyFixedSizeWindows() const { return false; }
    // Whether a frameless window with a translucent background shows the desktop through its transparent
    // parts (a compositing window manager); ask before the window is first shown.
    virtual bool composesTranslucentWindows() const = 0;
    // Clips a frameless window to rounded corners of the radius where the system can do so smoothly, and
    // keeps the clip in step with later resizes; a no-op where a clip would cut the border jaggedly. Does
    // nothing while the window has no native handle. Calling it again applies the new radius.
    virtual void roundWindowCorners(QWindow *window, int radius) = 0;

signals:
    // Something the user should know now while an action waits on the system (a permission dialog the
    // desktop shows), for a notice; not an error.
    void notice(const QString &title, const QString &text);
    // The system refused the permission without asking, because of an earlier answer that it keeps;
    // forgetRefusal() undoes that.
    void refusalRemembered(Platform::Permission permission);

protected:
    using QObject::QObject;
};
