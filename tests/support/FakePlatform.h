#pragma once

#include "platform/Platform.h"

#include <functional>

// A system whose permissions and copy keystroke the test decides; everything else does nothing.
class FakePlatform final : public Platform
{
public:
    bool granted[2] = {true, true}; // by Permission
    std::function<bool()> copy;     // the copy keystroke; none: it fails
    bool needsFocus = false;        // the clipboard reaches only a focused window

    std::unique_ptr<IHotkeyBackend> createHotkeyBackend() override { return nullptr; }
    std::unique_ptr<ISelectedTextProvider> createSelectedTextProvider() override { return nullptr; }
    std::unique_ptr<IOcrProvider> createOcrProvider(const QString &) override { return nullptr; }
    std::unique_ptr<IAutoStartBackend> createAutoStartBackend() override { return nullptr; }
    bool canGrabScreen() const override { return false; }
    void grabScreen(QScreen *, QObject *, std::function<void(const ScreenGrab &)> done) override
    {
        done({QImage(), QStringLiteral("fake")});
    }
    bool canSendCopyKeystroke() override { return bool(copy); }
    bool sendCopyKeystroke() override { return copy && copy(); }
    bool focusedWindowIsTerminal() override { return false; }
    bool clipboardNeedsFocus() const override { return needsFocus; }
    bool hasPermission(Permission permission) override { return granted[int(permission)]; }
    bool hasSystemSettingsPanes() const override { return false; }
    bool openPermissionSettings(Permission) override { return false; }
    GuideText permissionGuideText(Permission) const override { return {QStringLiteral("title"), QString()}; }
    QString sessionLimitation() const override { return QString(); }
    void activateApplication() override {}
    void activateWindow(QWindow *, quint64) override {}
    void setDockIconVisible(bool) override {}
    bool trayRecoloursIcons() const override { return false; }
    bool composesTranslucentWindows() const override { return false; }
    void roundWindowCorners(QWindow *, int) override {}
};
