#include "FakePortal.h"

#include <QDBusArgument>
#include <QDBusMessage>
#include <QDBusMetaType>
#include <QDBusObjectPath>
#include <QDBusVariant>
#include <QTimer>
#include <QUrl>

namespace {

const QString kPath = QStringLiteral("/org/freedesktop/portal/desktop");
const QString kShortcuts = QStringLiteral("org.freedesktop.portal.GlobalShortcuts");
const QString kScreenshot = QStringLiteral("org.freedesktop.portal.Screenshot");
const QString kRegistry = QStringLiteral("org.freedesktop.host.portal.Registry");
const QString kPermissionStore = QStringLiteral("org.freedesktop.impl.portal.PermissionStore");
const QString kPermissionStorePath = QStringLiteral("/org/freedesktop/impl/portal/PermissionStore");
using ShortcutList = QList<std::pair<QString, QVariantMap>>;

// The ids connections registered, by unique name. A portal keeps them as long as it runs, and to its clients
// every FakePortal of a test program is the same portal.
QMap<QString, QString> &registeredAppIds()
{
    static QMap<QString, QString> ids;
    return ids;
}

} // namespace

FakePortal::FakePortal(const QString &busAddress, bool globalShortcuts, bool screenshot)
    : m_bus(QDBusConnection::connectToBus(busAddress, QStringLiteral("vontrel-fake-portal")))
    , m_globalShortcuts(globalShortcuts)
    , m_screenshotInterface(screenshot)
{
    qDBusRegisterMetaType<std::pair<QString, QVariantMap>>();
    qDBusRegisterMetaType<ShortcutList>();
    qDBusRegisterMetaType<QMap<QString, QStringList>>();
    m_running = m_bus.isConnected() && m_bus.registerVirtualObject(kPath, this, QDBusConnection::SubPath) &&
                m_bus.registerVirtualObject(kPermissionStorePath, this) &&
                m_bus.registerService(QStringLiteral("org.freedesktop.portal.Desktop")) &&
                m_bus.registerService(kPermissionStore);
}

FakePortal::~FakePortal()
{
    m_bus.unregisterService(QStringLiteral("org.freedesktop.portal.Desktop"));
    m_bus.unregisterService(kPermissionStore);
    m_bus.unregisterObject(kPath, QDBusConnection::UnregisterTree);
    m_bus.unregisterObject(kPermissionStorePath);
    QDBusConnection::disconnectFromBus(QStringLiteral("vontrel-fake-portal"));
}

QString FakePortal::senderPart(const QDBusMessage &message) const
{
    return message.service().mid(1).replace(QLatin1Char('.'), QLatin1Char('_'));
}

void FakePortal::respond(const QDBusMessage &call, const QString &token, uint code,
                         const QVariantMap &results, int delayMs)
{
    const QString handle = QStringLiteral("%1/request/%2/%3").arg(kPath, senderPart(call), token);
    QDBusMessage response = QDBusMessage::createTargetedSignal(
        call.service(), handle, QStringLiteral("org.freedesktop.portal.Request"), QStringLiteral("Response"));
    response << code << results;
    if (code != NoAnswer && delayMs == 0)
        m_bus.send(response);
    m_bus.send(call.createReply(QVariant::fromValue(QDBusObjectPath(handle))));
    if (code != NoAnswer && delayMs > 0)
        QTimer::singleShot(delayMs, this, [this, response] { m_bus.send(response); });
}

bool FakePortal::handleMessage(const QDBusMessage &message, const QDBusConnection &)
{
    const QString interface = message.interface();
    const QString member = message.member();
    const QVariantList args = message.arguments();

    if (interface == QLatin1String("org.freedesktop.portal.Session") && member == QLatin1String("Close")) {
        m_openSessions.removeAll(message.path());
        m_bus.send(message.createReply());
        return true;
    }
    m_calls.append(member +
                   (interface == kRegistry ? QLatin1Char(' ') + args.value(0).toString() : QString()));
    if (interface == kRegistry && member == QLatin1String("Register")) {
        registeredAppIds().insert(message.service(), args.value(0).toString());
        m_bus.send(message.createReply());
        return true;
    }
    if (interface == kPermissionStore && member == QLatin1String("Lookup")) {
        if (args.value(0) != QStringLiteral("screenshot") || m_storedPermissions.isEmpty()) {
            m_bus.send(message.createErrorReply(QStringLiteral("org.freedesktop.portal.Error.NotFound"),
                                                QStringLiteral("No entry")));
            return true;
        }
        QDBusMessage reply = message.createReply();
        reply << QVariant::fromValue(m_storedPermissions)
              << QVariant::fromValue(QDBusVariant(QVariant::fromValue(uchar(0))));
        m_bus.send(reply);
        return true;
    }
    if (interface == kPermissionStore && member == QLatin1String("DeletePermission") && args.size() == 3) {
        m_storedPermissions.remove(args.at(2).toString());
        m_bus.send(message.createReply());
        return true;
    }
    if (interface == QLatin1String("org.freedesktop.portal.Request") && member == QLatin1String("Close")) {
        m_closedRequests.append(message.path());
        m_bus.send(message.createReply());
        return true;
    }
    if (message.path() != kPath)
        return false;
    if ((interface == kShortcuts && !m_globalShortcuts) ||
        (interface == kScreenshot && !m_screenshotInterface)) {
        m_bus.send(message.createErrorReply(QDBusError::UnknownMethod,
                                            QStringLiteral("No such interface “%1”").arg(interface)));
        return true;
    }
    const QVariantMap options = args.isEmpty() ? QVariantMap() : qdbus_cast<QVariantMap>(args.last());
    const QString token = options.value(QStringLiteral("handle_token")).toString();

    if (interface == kShortcuts && member == QLatin1String("CreateSession")) {
        const QString session = QStringLiteral("%1/session/%2/%3")
                                    .arg(kPath, senderPart(message),
                                         options.value(QStringLiteral("session_handle_token")).toString());
        m_openSessions.append(session);
        respond(message, token, 0, {{QStringLiteral("session_handle"), session}});
        return true;
    }
    if (interface == kShortcuts && member == QLatin1String("BindShortcuts") && args.size() == 4) {
        Bind bind{qdbus_cast<QDBusObjectPath>(args.at(0)).path(), {}};
        ShortcutList bound;
        for (const auto &[id, properties] : qdbus_cast<ShortcutList>(args.at(1))) {
            const QString trigger = properties.value(QStringLiteral("preferred_trigger")).toString();
            bind.preferredTriggers.insert(id, trigger);
            bound.append({id,
                          {{QStringLiteral("description"), properties.value(QStringLiteral("description"))},
                           {QStringLiteral("trigger_description"), trigger}}});
        }
        m_binds.append(bind);
        QVariantMap results;
        if (m_bindResponse == 0)
            results.insert(QStringLiteral("shortcuts"),
                           QVariant::fromValue(m_bindsNothing ? ShortcutList() : bound));
        respond(message, token, m_bindResponse, results);
        return true;
    }
    if (interface == kScreenshot && member == QLatin1String("Screenshot")) {
        m_screenshotOptions.append(options);
        QVariantMap results;
        const QString registered = registeredAppIds().value(message.service());
        const QString appId = m_storedPermissions.contains(registered) ? registered : QString();
        if (m_storedPermissions.value(appId).value(0) == QLatin1String("no")) {
            respond(message, token, 2, results);
            return true;
        }
        if (m_screenshotResponse == 0) {
            m_lastFile =
                m_files.filePath(QStringLiteral("Screenshot-%1.png").arg(m_screenshotOptions.size()));
            m_screenshot.save(m_lastFile, "PNG");
            results.insert(QStringLiteral("uri"), QUrl::fromLocalFile(m_lastFile).toString());
        }
        respond(message, token, m_screenshotResponse, results, m_screenshotDelay);
        return true;
    }
    m_bus.send(message.createErrorReply(QDBusError::UnknownMethod, member));
    return true;
}

void FakePortal::activate(const QString &shortcutId, quint64 timestamp)
{
    QDBusMessage signal = QDBusMessage::createSignal(kPath, kShortcuts, QStringLiteral("Activated"));
    signal << QVariant::fromValue(QDBusObjectPath(m_openSessions.value(m_openSessions.size() - 1)))
           << shortcutId << QVariant::fromValue<qulonglong>(timestamp) << QVariantMap();
    m_bus.send(signal);
}

void FakePortal::changeTrigger(const QString &shortcutId, const QString &trigger)
{
    const ShortcutList changed{{shortcutId, {{QStringLiteral("trigger_description"), trigger}}}};
    QDBusMessage signal = QDBusMessage::createSignal(kPath, kShortcuts, QStringLiteral("ShortcutsChanged"));
    signal << QVariant::fromValue(QDBusObjectPath(m_openSessions.value(m_openSessions.size() - 1)))
           << QVariant::fromValue(changed);
    m_bus.send(signal);
}
