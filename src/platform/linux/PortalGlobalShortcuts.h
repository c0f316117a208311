#pragma once

#include "platform/HotkeyKeys.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusObjectPath>
#include <QList>
#include <QMap>
#include <QObject>
#include <QString>

#include <optional>

// Global shortcuts through the desktop portal (Wayland sessions, where no client may grab keys). A portal
// session may bind its shortcuts once only, so every bind() closes the previous session and opens a new
// one; the portal shows its own confirmation dialog for each. Everything is asynchronous: a bind ends in
// bound(), boundNothing(), refused() or unavailable().
class PortalGlobalShortcuts final : public QObject
{
    Q_OBJECT

public:
    static inline const QString Interface = QStringLiteral("org.freedesktop.portal.GlobalShortcuts");

    struct Shortcut
    {
        QString id;
        QString description;
        std::optional<HotkeyChord> preferredTrigger; // none leaves the choice to the user
    };

    explicit PortalGlobalShortcuts(const QDBusConnection &bus, QObject *parent = nullptr);
    ~PortalGlobalShortcuts() override;

    // Starts binding these shortcuts, replacing any earlier bind, finished or not.
    void bind(const QList<Shortcut> &shortcuts);
    // Closes the session; later activations are ignored.
    void close();
    bool isBound() const { return m_bound; }

    // The trigger in the shortcuts format the portal reads ("CTRL+SHIFT+a"); empty for a key outside the
    // supported set.
    static QString triggerText(const HotkeyChord &chord);

signals:
    // The shortcuts the portal bound, by id, with the portal's description of their triggers; may be a subset
    // of what was asked (the user may drop some in the portal's dialog). Sent again when the user changes
    // them later in the desktop's own settings.
    void bound(const QMap<QString, QString> &triggers);
    // The portal answered success with no shortcut bound; the session is closed.
    void boundNothing();
    // The user dismissed the portal's dialog, or the portal failed; `reason` is for the log.
    void refused(const QString &reason);
    // The desktop's portal has no GlobalShortcuts interface (or there is no portal at all).
    void unavailable(const QString &interfaceName);
    void activated(const QString &id, quint64 timestamp);

private slots:
    void onActivated(const QDBusObjectPath &session, const QString &id, qulonglong timestamp,
                     const QVariantMap &options);
    void onShortcutsChanged(const QDBusMessage &message);

private:
    void createSession(quint64 generation);
    void bindShortcuts(quint64 generation);
    void closeSession();

    QDBusConnection m_bus;
    QList<Shortcut> m_shortcuts;
    QString m_session;
    quint64 m_generation = 0; // answers to an older bind() are dropped
    bool m_bound = false;
};
