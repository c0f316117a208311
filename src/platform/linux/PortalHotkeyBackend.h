#pragma once

#include "platform/Platform.h"
#include "platform/linux/PortalGlobalShortcuts.h"

#include <QDBusConnection>
#include <QMap>

// Global hotkeys of a Wayland session: the registered chords become the preferred triggers of one portal
// binding, sent by commit(). The portal (and the user in its dialog) decides; a refusal or a portal
// without the interface arrives later as bindingRefused().
class PortalHotkeyBackend final : public IHotkeyBackend
{
    Q_OBJECT

public:
    explicit PortalHotkeyBackend(const QDBusConnection &bus = QDBusConnection::sessionBus());

    QString platformTag() const override { return QStringLiteral("portal"); }
    std::pair<quint32, quint32> nativeKey(const HotkeyChord &) const override { return {0, 0}; }
    int installHandler(QString *error) override;
    void removeHandler() override;
    int registerHotkey(int id, const HotkeyChord &chord, const QString &what, QString *error) override;
    void unregisterHotkey(int id) override;
    void commit() override;
    bool answersLater() const override { return true; }

    // The shortcut id the portal stores the user's choice under; stable across runs.
    static QString shortcutId(const QString &what);

private:
    struct Entry
    {
        HotkeyChord chord;
        QString what;
    };

    PortalGlobalShortcuts m_portal;
    QMap<int, Entry> m_hotkeys;
    bool m_installed = false;
};
