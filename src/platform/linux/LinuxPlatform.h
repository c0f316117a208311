#pragma once

#include "platform/Platform.h"

// Linux on an X11 session: XGrabKey hotkeys, XTest copy keystroke, PRIMARY selection, Tesseract, XDG
// autostart, the compositor query for translucent corners. Where the session has no X11 connection, the X11
// parts report themselves unavailable and the rest (clipboard text, recognition, autostart) works as usual.
class LinuxPlatform : public Platform
{
    Q_OBJECT

public:
    using Platform::Platform;

    std::unique_ptr<IHotkeyBackend> createHotkeyBackend() override;
    std::unique_ptr<ISelectedTextProvider> createSelectedTextProvider() override;
    std::unique_ptr<IOcrProvider> createOcrProvider(const QString &languages) override;
    std::unique_ptr<IAutoStartBackend> createAutoStartBackend() override;

    bool canGrabScreen() const override;
    void grabScreen(QScreen *screen, QObject *context, std::function<void(const ScreenGrab &)> done) override;

    bool canSendCopyKeystroke() override;
    bool sendCopyKeystroke() override;
    bool focusedWindowIsTerminal() override;

    bool hasPermission(Permission permission) override;
    bool hasSystemSettingsPanes() const override { return false; }
    bool openPermissionSettings(Permission) override { return false; }
    GuideText permissionGuideText(Permission permission) const override;
    QString sessionLimitation() const override;

    void activateApplication() override;
    void activateWindow(QWindow *window, quint64 timestamp) override;
    void setDockIconVisible(bool) override {}
    bool trayRecoloursIcons() const override;
    bool composesTranslucentWindows() const override;
    void roundWindowCorners(QWindow *window, int radius) override;
};
