#include "platform/linux/PortalGlobalShortcuts.h"

#include "platform/linux/PortalRequest.h"

#include <QDBusArgument>
#include <QDBusMetaType>
#include <QDBusPendingCall>
#include <QDBusVariant>

namespace {

// Creating a session asks nobody; binding shows the desktop's shortcuts dialog, which a user may read at
// leisure.
constexpr std::chrono::seconds kSessionPatience{60};
constexpr std::chrono::minutes kBindPatience{5};

// a(sa{sv}): id and properties of each shortcut.
using ShortcutList = QList<std::pair<QString, QVariantMap>>;

QString keyName(Qt::Key key)
{
    if (key >= Qt::Key_A && key <= Qt::Key_Z)
        return QString(QChar(u'a' + (key - Qt::Key_A)));
    if (key >= Qt::Key_0 && key <= Qt::Key_9)
        return QString(QChar(u'0' + (key - Qt::Key_0)));
    if (key >= Qt::Key_F1 && key <= Qt::Key_F12)
        return QStringLiteral("F%1").arg(key - Qt::Key_F1 + 1);
    switch (key) {
    case Qt::Key_Escape:
        return QStringLiteral("Escape");
    case Qt::Key_Tab:
        return QStringLiteral("Tab");
    case Qt::Key_Backspace:
        return QStringLiteral("BackSpace");
    case Qt::Key_Return:
        return QStringLiteral("Return");
    case Qt::Key_Left:
        return QStringLiteral("Left");
    case Qt::Key_Up:
        return QStringLiteral("Up");
    case Qt::Key_Right:
        return QStringLiteral("Right");
    case Qt::Key_Down:
        return QStringLiteral("Down");
    case Qt::Key_Space:
        return QStringLiteral("space");
    default:
        return {};
    }
}

bool isMissingInterface(const QDBusError &error)
{
    switch (error.type()) {
    case QDBusError::ServiceUnknown:
    case QDBusError::UnknownObject:
    case QDBusError::UnknownInterface:
    case QDBusError::UnknownMethod:
    case QDBusError::UnknownProperty:
        return true;
    default:
        return false;
    }
}

// The triggers of an a(sa{sv}) shortcut list, by id.
QMap<QString, QString> triggersOf(const QVariant &value)
{
    ShortcutList list;
    if (value.canConvert<QDBusArgument>())
        value.value<QDBusArgument>() >> list;
    QMap<QString, QString> triggers;
    for (const auto &[id, properties] : std::as_const(list))
        triggers.insert(id, properties.value(QStringLiteral("trigger_description")).toString());
    return triggers;
}

} // namespace

PortalGlobalShortcuts::PortalGlobalShortcuts(const QDBusConnection &bus, QObject *parent)
    : QObject(parent)
    , m_bus(bus)
{
    qDBusRegisterMetaType<std::pair<QString, QVariantMap>>();
    qDBusRegisterMetaType<ShortcutList>();
    // The slot is found by its parameter types' names, which must be registered before the first lookup.
    qRegisterMetaType<QDBusObjectPath>();
    m_bus.connect(XdgPortal::Service, XdgPortal::Path, Interface, QStringLiteral("Activated"), this,
                  SLOT(onActivated(QDBusObjectPath, QString, qulonglong, QVariantMap)));
    m_bus.connect(XdgPortal::Service, XdgPortal::Path, Interface, QStringLiteral("ShortcutsChanged"), this,
                  SLOT(onShortcutsChanged(QDBusMessage)));
}

PortalGlobalShortcuts::~PortalGlobalShortcuts()
{
    closeSession();
}

QString PortalGlobalShortcuts::triggerText(const HotkeyChord &chord)
{
    const QString key = keyName(chord.key);
    if (key.isEmpty())
        return {};
    QStringList parts;
    if (chord.modifiers & Qt::ControlModifier)
        parts << QStringLiteral("CTRL");
    if (chord.modifiers & Qt::AltModifier)
        parts << QStringLiteral("ALT");
    if (chord.modifiers & Qt::ShiftModifier)
        parts << QStringLiteral("SHIFT");
    if (chord.modifiers & Qt::MetaModifier)
        parts << QStringLiteral("LOGO");
    parts << key;
    return parts.join(QLatin1Char('+'));
}

void PortalGlobalShortcuts::bind(const QList<Shortcut> &shortcuts)
{
    closeSession();
    m_shortcuts = shortcuts;
    createSession(++m_generation);
}

void PortalGlobalShortcuts::close()
{
    ++m_generation;
    closeSession();
}

void PortalGlobalShortcuts::closeSession()
{
    m_bound = false;
    if (m_session.isEmpty())
        return;
    m_bus.asyncCall(QDBusMessage::createMethodCall(XdgPortal::Service, m_session,
                                                   QStringLiteral("org.freedesktop.portal.Session"),
                                                   QStringLiteral("Close")));
    m_session.clear();
}

void PortalGlobalShortcuts::createSession(quint64 generation)
{
    const QString token = XdgPortal::newToken();
    const QVariantMap options{{QStringLiteral("handle_token"), token},
                              {QStringLiteral("session_handle_token"), XdgPortal::newToken()}};
    auto *request = PortalRequest::send(
        m_bus, XdgPortal::methodCall(Interface, QStringLiteral("CreateSession"), {options}), token,
        kSessionPatience, this);
    connect(request, &PortalRequest::failed, this, [this, generation](const QDBusError &error) {
        if (generation != m_generation)
            return;
        if (isMissingInterface(error))
            emit unavailable(Interface);
        else
            emit refused(error.message());
    });
    connect(request, &PortalRequest::finished, this,
            [this, generation](uint response, const QVariantMap &results) {
                // A session created for an abandoned bind is still the portal's; close it at once.
                const QString handle = results.value(QStringLiteral("session_handle")).toString();
                if (generation != m_generation) {
                    if (!handle.isEmpty())
                        m_bus.asyncCall(QDBusMessage::createMethodCall(
                            XdgPortal::Service, handle, QStringLiteral("org.freedesktop.portal.Session"),
                            QStringLiteral("Close")));
                    return;
                }
                if (response != XdgPortal::Success || handle.isEmpty()) {
                    emit refused(QStringLiteral("CreateSession answered %1").arg(response));
                    return;
                }
                m_session = handle;
                bindShortcuts(generation);
            });
}

void PortalGlobalShortcuts::bindShortcuts(quint64 generation)
{
    ShortcutList list;
    for (const Shortcut &shortcut : std::as_const(m_shortcuts)) {
        QVariantMap properties{{QStringLiteral("description"), shortcut.description}};
        const QString trigger =
            shortcut.preferredTrigger ? triggerText(*shortcut.preferredTrigger) : QString();
        if (!trigger.isEmpty())
            properties.insert(QStringLiteral("preferred_trigger"), trigger);
        list.append({shortcut.id, properties});
    }
    const QString token = XdgPortal::newToken();
    const QVariantList arguments{QVariant::fromValue(QDBusObjectPath(m_session)), QVariant::fromValue(list),
                                 QString(), QVariantMap{{QStringLiteral("handle_token"), token}}};
    auto *request = PortalRequest::send(
        m_bus, XdgPortal::methodCall(Interface, QStringLiteral("BindShortcuts"), arguments), token,
        kBindPatience, this);
    connect(request, &PortalRequest::failed, this, [this, generation](const QDBusError &error) {
        if (generation == m_generation)
            emit refused(error.message());
    });
    connect(request, &PortalRequest::finished, this,
            [this, generation](uint response, const QVariantMap &results) {
                if (generation != m_generation)
                    return;
                if (response != XdgPortal::Success) {
                    emit refused(response == XdgPortal::Cancelled
                                     ? QStringLiteral("the user dismissed the shortcuts dialog")
                                     : QStringLiteral("BindShortcuts answered %1").arg(response));
                    return;
                }
                const QMap<QString, QString> triggers =
                    triggersOf(results.value(QStringLiteral("shortcuts")));
                // Some portals answer success and bind nothing (Plasma 5.27 does): no key would ever arrive.
                if (triggers.isEmpty()) {
                    closeSession();
                    emit boundNothing();
                    return;
                }
                m_bound = true;
                emit bound(triggers);
            });
}

void PortalGlobalShortcuts::onActivated(const QDBusObjectPath &session, const QString &id,
                                        qulonglong timestamp, const QVariantMap &)
{
    if (m_bound && session.path() == m_session)
        emit activated(id, timestamp);
}

void PortalGlobalShortcuts::onShortcutsChanged(const QDBusMessage &message)
{
    const QVariantList arguments = message.arguments();
    if (m_bound && arguments.size() == 2 && qdbus_cast<QDBusObjectPath>(arguments.at(0)).path() == m_session)
        emit bound(triggersOf(arguments.at(1)));
}
