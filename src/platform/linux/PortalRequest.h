#pragma once

#include <QDBusConnection>
#include <QDBusError>
#include <QDBusMessage>
#include <QObject>
#include <QVariantMap>

#include <chrono>

// The XDG desktop portal's service and object, and one call that answers through a Request object: the
// portal replies to the method with a handle at once and sends the real result later as Response on it.
namespace XdgPortal {

inline const QString Service = QStringLiteral("org.freedesktop.portal.Desktop");
inline const QString Path = QStringLiteral("/org/freedesktop/portal/desktop");
inline const QString RequestInterface = QStringLiteral("org.freedesktop.portal.Request");

// Response codes of a Request.
enum ResponseCode : uint { Success = 0, Cancelled = 1, Ended = 2 };

// A fresh token for handle_token / session_handle_token, unique within the process.
QString newToken();
// The path the portal gives the Request object of this token: the sender's unique name without the colon,
// dots replaced by underscores.
QString requestPath(const QDBusConnection &bus, const QString &token);
// A method call on the portal object.
QDBusMessage methodCall(const QString &interface, const QString &method, const QVariantList &arguments);
// Tells the portal which desktop entry this unsandboxed process belongs to (the application's desktop file
// name), once per connection and before its first request: the portal files permissions and shortcuts under
// that id. A portal without the registry (before 1.19) takes the id from elsewhere, and the error is ignored.
void registerApplication(const QDBusConnection &bus);

} // namespace XdgPortal

// One portal call with a Request handle. It subscribes to Response before the call goes out (a fast portal
// may answer before the call's own reply arrives), and follows the handle the portal returns when an older
// portal ignores handle_token. Emits exactly one of finished() or failed(), then deletes itself.
class PortalRequest final : public QObject
{
    Q_OBJECT

public:
    // `call` must carry `token` as its handle_token option. A portal that has not answered after `patience`
    // (a hung backend, a dialog left open) gets its request closed, and failed() reports a Timeout error, so
    // the caller is never left waiting for good.
    static PortalRequest *send(const QDBusConnection &bus, const QDBusMessage &call, const QString &token,
                               std::chrono::milliseconds patience, QObject *parent);

signals:
    void finished(uint response, const QVariantMap &results);
    // The method itself failed (no such interface or method, no portal on the bus, ...) or no answer came.
    void failed(const QDBusError &error);

private slots:
    void onResponse(uint response, const QVariantMap &results);

private:
    PortalRequest(const QDBusConnection &bus, QObject *parent);
    bool subscribe(const QString &path);
    void unsubscribe();

    QDBusConnection m_bus;
    QString m_path;
    bool m_done = false;
};
