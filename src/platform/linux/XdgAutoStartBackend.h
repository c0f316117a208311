#pragma once

#include "platform/Platform.h"

#include <QString>

// Start at login through an XDG autostart entry ($XDG_CONFIG_HOME/autostart/app.vontrel.Vontrel.desktop)
// whose Exec line names this executable. An entry under the name older versions used (vontrel.desktop)
// counts as well, and goes when the setting is changed.
class XdgAutoStartBackend final : public IAutoStartBackend
{
public:
    // The user's autostart folder and this executable (the AppImage file when run from one).
    XdgAutoStartBackend();
    XdgAutoStartBackend(const QString &autostartDir, const QString &executablePath);

    bool isEnabled() const override;
    bool enable() override;
    bool disable() override;

    QString entryPath() const;
    QString legacyEntryPath() const;
    // The desktop-entry text that starts the executable.
    static QByteArray entryText(const QString &executablePath);
    // The program named by an Exec value (first argument, quotes and escapes resolved); empty when malformed.
    static QString programOfExec(const QString &execValue);

private:
    bool startsThisExecutable(const QString &path) const;
    static bool removeEntry(const QString &path);

    QString m_autostartDir;
    QString m_executablePath;
};
