#pragma once

#include "platform/Platform.h"

// A system Vontrel has no backend for: it runs from the tray, translates clipboard and typed text, and
// reports everything native (hotkeys, capture, the copy keystroke, recognition, autostart) as unavailable.
class DummyPlatform final : public Platform
{
    Q_OBJECT

public:
    using Platform::Platform;

    std::unique_ptr<IHotkeyBackend> createHotkeyBackend() override;
    std::unique_ptr<ISelectedTextProvider> createSelectedTextProvider() override;
    std::unique_ptr<IOcrProvider> createOcrProvider(const QString &languages) override;
    std::unique_ptr<IAutoStartBackend> createAutoStartBackend() override;

    bool canGrabScreen() const override { return false; }
    void grabScreen(QScreen *screen, QObject *context, std::function<void(const ScreenGrab &)> done) override;

    bool canSendCopyKeystroke() override { return false; }
    bool sendCopyKeystroke() override { return false; }
    bool focusedWindowIsTerminal() override { return false; }

    bool hasPermission(Permission) override { return false; }
    bool hasSystemSettingsPanes() const override { return false; }
    bool openPermissionSettings(Permission) override { return false; }
    GuideText permissionGuideText(Permission permission) const override;
    QString sessionLimitation() const override;

    void activateApplication() override {}
    void activateWindow(QWindow *window, quint64 timestamp) override;
    void setDockIconVisible(bool) override {}
    bool trayRecoloursIcons() const override { return false; }
    bool composesTranslucentWindows() const override { return false; }
    void roundWindowCorners(QWindow *, int) override {}
};
