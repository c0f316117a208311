#pragma once

#include "platform/linux/LinuxPlatform.h"

#include <QDBusConnection>

#include <optional>

// Linux on a Wayland session without X11: no client may grab keys, read the screen or post keystrokes, so
// hotkeys and screenshots go through the XDG desktop portal and the clipboard-text hotkey reads the primary
// selection, then the clipboard. Recognition and autostart are the X11 session's.
class WaylandPlatform final : public LinuxPlatform
{
    Q_OBJECT

public:
    explicit WaylandPlatform(const QDBusConnection &bus = QDBusConnection::sessionBus());

    // Whether this process runs on Wayland without an X11 connection (decides Platform::create()).
    static bool isWaylandSession();

    std::unique_ptr<IHotkeyBackend> createHotkeyBackend() override;
    std::unique_ptr<ISelectedTextProvider> createSelectedTextProvider() override;

    bool canGrabScreen() const override { return true; }
    void grabScreen(QScreen *screen, QObject *context, std::function<void(const ScreenGrab &)> done) override;

    bool canSendCopyKeystroke() override { return false; }
    bool sendCopyKeystroke() override { return false; }
    std::optional<QString> unfocusedClipboardText() override;
    bool clipboardNeedsFocus() const override;

    bool hasPermission(Permission permission) override;
    bool forgetRefusal(Permission permission) override;
    QString sessionLimitation() const override { return QString(); }

    void activateWindow(QWindow *window, quint64 timestamp) override;
    bool floatsOnlyFixedSizeWindows() const override { return true; }
    bool composesTranslucentWindows() const override { return true; }
    void roundWindowCorners(QWindow *, int) override {}

private:
    QDBusConnection m_bus;
    // The permission store's application id that holds the screenshot refusal; set while one is known.
    std::optional<QString> m_refusedUnder;
    // Whether the compositor offers data control; asked once, as a compositor does not gain or lose it.
    mutable std::optional<bool> m_dataControl;
};
