#pragma once

#include "platform/Platform.h"

// macOS: Carbon hot keys, Accessibility, Core Graphics events and screen-capture access, Vision, AppKit.
class MacPlatform final : public Platform
{
public:
    using Platform::Platform;

    std::unique_ptr<IHotkeyBackend> createHotkeyBackend() override;
    std::unique_ptr<ISelectedTextProvider> createSelectedTextProvider() override;
    std::unique_ptr<IOcrProvider> createOcrProvider(const QString &languages = QString()) override;
    std::unique_ptr<IAutoStartBackend> createAutoStartBackend() override;

    bool canGrabScreen() const override { return true; }
    void grabScreen(QScreen *screen, QObject *context, std::function<void(const ScreenGrab &)> done) override;

    bool canSendCopyKeystroke() override;
    bool sendCopyKeystroke() override;
    bool focusedWindowIsTerminal() override { return false; }

    bool hasPermission(Permission permission) override;
    bool requestPermission(Permission permission) override;
    bool hasSystemSettingsPanes() const override { return true; }
    bool openPermissionSettings(Permission permission) override;
    GuideText permissionGuideText(Permission permission) const override;
    QString sessionLimitation() const override { return QString(); }

    void activateApplication() override;
    void activateWindow(QWindow *window, quint64 timestamp) override;
    void setDockIconVisible(bool visible) override;
    bool trayRecoloursIcons() const override { return true; }
    bool composesTranslucentWindows() const override { return false; }
    void roundWindowCorners(QWindow *window, int radius) override;
};
