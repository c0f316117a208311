#include "platform/mac/MacPermissionTexts.h"

#include <QCoreApplication>

Platform::GuideText macPermissionGuideText(Platform::Permission permission)
{
    // In the guide's translation context: the texts are the guide's, only their choice is the platform's.
    if (permission == Platform::Permission::ScreenRecording) {
        return {QCoreApplication::translate("PermissionGuideDialog", "Screen Recording permission required"),
                QCoreApplication::translate(
                    "PermissionGuideDialog",
                    "<p>Vontrel needs access to your screen to capture screenshots and run OCR.</p>"
                    "<p><b>Steps</b></p><ol><li>Open System Settings → Privacy &amp; Security</li>"
                    "<li>Go to Screen Recording</li><li>Enable Vontrel</li>"
                    "<li>If macOS asks you to quit and reopen Vontrel, please do so</li></ol>"
                    "<p>If Vontrel is not listed, trigger the screenshot hotkey once and check again.</p>")};
    }
    return {QCoreApplication::translate("PermissionGuideDialog", "Accessibility permission required"),
            QCoreApplication::translate(
                "PermissionGuideDialog",
                "<p>Vontrel simulates a ⌘C to read selected text from the current app, and restores your "
                "clipboard. macOS requires Accessibility permission to send such input events.</p>"
                "<p><b>Steps</b></p><ol><li>Open System Settings → Privacy &amp; Security</li>"
                "<li>Go to Accessibility</li><li>Enable Vontrel</li><li>Then retry the hotkey</li></ol>"
                "<p>On newer macOS versions you may also see a system prompt about allowing paste from other "
                "apps. This is expected.</p>")};
}

QString macPermissionPaneUrl(Platform::Permission permission)
{
    return permission == Platform::Permission::ScreenRecording
               ? QStringLiteral(
                     "x-apple.systempreferences:com.apple.preference.security?Privacy_ScreenCapture")
               : QStringLiteral(
                     "x-apple.systempreferences:com.apple.preference.security?Privacy_Accessibility");
}

QString macSecurityPaneUrl()
{
    return QStringLiteral("x-apple.systempreferences:com.apple.preference.security");
}
