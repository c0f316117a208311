#include "platform/linux/PortalHotkeyBackend.h"

#include <QCoreApplication>
#include <QDebug>

PortalHotkeyBackend::PortalHotkeyBackend(const QDBusConnection &bus)
    : m_portal(bus)
{
    connect(&m_portal, &PortalGlobalShortcuts::activated, this, [this](const QString &id, quint64 timestamp) {
        for (auto it = m_hotkeys.cbegin(); it != m_hotkeys.cend(); ++it) {
            if (shortcutId(it->what) == id) {
                emit pressed(it.key(), timestamp);
                return;
            }
        }
    });
    connect(&m_portal, &PortalGlobalShortcuts::bound, this, [this](const QMap<QString, QString> &triggers) {
        for (auto it = triggers.cbegin(); it != triggers.cend(); ++it)
            qInfo().noquote() << "PortalHotkeyBackend: bound" << it.key() << "to" << it.value();
        emit bindingConfirmed();
    });
    connect(&m_portal, &PortalGlobalShortcuts::boundNothing, this, [this] {
        qWarning().noquote() << "PortalHotkeyBackend: the portal answered success but bound no shortcut";
        emit bindingRefused(QCoreApplication::translate("PortalHotkeyBackend",
                                                        "The desktop's shortcuts portal accepted the global "
                                                        "hotkeys but bound none of them, so they are off."));
    });
    connect(&m_portal, &PortalGlobalShortcuts::refused, this, [this](const QString &reason) {
        qWarning().noquote() << "PortalHotkeyBackend: binding refused:" << reason;
        emit bindingRefused(QCoreApplication::translate(
            "PortalHotkeyBackend", "The desktop did not grant the global hotkeys. Change the hotkeys in "
                                   "Preferences to be asked again."));
    });
    connect(&m_portal, &PortalGlobalShortcuts::unavailable, this, [this](const QString &interfaceName) {
        qWarning().noquote() << "PortalHotkeyBackend: the desktop portal has no" << interfaceName;
        emit bindingRefused(QCoreApplication::translate(
                                "PortalHotkeyBackend", "This desktop's portal has no %1 interface, so global "
                                                       "hotkeys are off.")
                                .arg(interfaceName));
    });
}

QString PortalHotkeyBackend::shortcutId(const QString &what)
{
    return QString(what).replace(QLatin1Char(' '), QLatin1Char('-'));
}

int PortalHotkeyBackend::installHandler(QString *)
{
    m_installed = true;
    return 0;
}

void PortalHotkeyBackend::removeHandler()
{
    m_installed = false;
    m_portal.close();
}

int PortalHotkeyBackend::registerHotkey(int id, const HotkeyChord &chord, const QString &what, QString *error)
{
    if (PortalGlobalShortcuts::triggerText(chord).isEmpty()) {
        if (error)
            *error =
                QCoreApplication::translate("PortalHotkeyBackend", "The %1 hotkey uses a key the desktop "
                                                                   "cannot bind.")
                    .arg(what);
        return 1;
    }
    m_hotkeys.insert(id, {chord, what});
    return 0;
}

void PortalHotkeyBackend::unregisterHotkey(int id)
{
    m_hotkeys.remove(id);
}

void PortalHotkeyBackend::commit()
{
    if (!m_installed || m_hotkeys.isEmpty()) {
        m_portal.close();
        return;
    }
    QList<PortalGlobalShortcuts::Shortcut> shortcuts;
    for (const Entry &entry : std::as_const(m_hotkeys)) {
        const QString description =
            entry.what == QLatin1String("capture")
                ? QCoreApplication::translate("PortalHotkeyBackend",
                                              "Capture a screen region and translate it")
                : QCoreApplication::translate("PortalHotkeyBackend", "Translate the selected or copied text");
        shortcuts.append({shortcutId(entry.what), description, entry.chord});
    }
    m_portal.bind(shortcuts);
}
