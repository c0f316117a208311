#pragma once

#include <QDBusConnection>
#include <QImage>
#include <QObject>
#include <QRect>
#include <QString>

#include <chrono>
#include <optional>

// Screenshots through the desktop portal (Wayland sessions, where a client cannot read the screen). The
// portal writes a file of the whole desktop and answers with its URI; the file was made for this request
// alone (GNOME puts it into the home folder, the wlroots backend at a fixed, world-readable path in /tmp), so
// it is removed once read.
class PortalScreenshot final : public QObject
{
    Q_OBJECT

public:
    static inline const QString Interface = QStringLiteral("org.freedesktop.portal.Screenshot");

    // The first screenshot may wait on the desktop's permission dialog, which a user may read at leisure; a
    // portal silent for longer than `patience` has hung, and the capture ends with failed(). One silent for
    // `waitNotice` is probably showing that dialog: waiting() says so.
    explicit PortalScreenshot(const QDBusConnection &bus, QObject *parent = nullptr,
                              std::chrono::milliseconds patience = std::chrono::minutes(3),
                              std::chrono::milliseconds waitNotice = std::chrono::seconds(2));

    // Asks for a non-interactive screenshot; ends in taken(), refused(), failed() or unavailable(). A
    // second request while one runs is ignored.
    void take();
    bool isBusy() const { return m_busy; }

    // The permission store's table and entry that hold whether an application may take screenshots without
    // asking, and the service that keeps them.
    static inline const QString PermissionTable = QStringLiteral("screenshot");
    static inline const QString PermissionId = QStringLiteral("screenshot");
    static inline const QString PermissionStoreService =
        QStringLiteral("org.freedesktop.impl.portal.PermissionStore");
    static inline const QString PermissionStorePath =
        QStringLiteral("/org/freedesktop/impl/portal/PermissionStore");

signals:
    void taken(const QImage &image);
    // The request has had no answer for a while: the desktop is probably asking the user.
    void waiting();
    // The desktop refused. `remembered`: because of an earlier answer that it keeps (the permission store
    // says no under `storeAppId`), so it will refuse every later request too without asking.
    void refused(bool remembered, const QString &storeAppId);
    // The portal failed, or the file could not be read; `reason` is for the log.
    void failed(const QString &reason);
    void unavailable(const QString &interfaceName);

private:
    void finish(uint response, const QVariantMap &results);
    void checkStoredDenial();

    QDBusConnection m_bus;
    std::chrono::milliseconds m_patience;
    std::chrono::milliseconds m_waitNotice;
    quint64 m_request = 0; // answers to an earlier request are dropped
    bool m_busy = false;
};

// Whether the permission store keeps a "no" for this application in the screenshot table: for `appId` (the
// desktop file name a newer portal files host applications under) or for the empty id older portals use
// for every unsandboxed application. `permissions` is the store's Lookup answer (a{sas}).
// Returns the id of the entry that says no, or nothing.
std::optional<QString> vontrelScreenshotDenied(const QMap<QString, QStringList> &permissions,
                                               const QString &appId);
