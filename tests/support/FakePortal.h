#pragma once

// A desktop portal of our own on a private session bus: the GlobalShortcuts and Screenshot interfaces as far
// as Vontrel uses them, the host application registry and the permission store's screenshot table, with
// scripted answers and a record of every call. Each Response goes out before the method's reply, as a fast
// portal may send it, so a client that subscribes late misses it; a delayed one comes when the delay is over.
// It plays what a real portal seldom shows on demand: a refusal, a denial the store keeps, a bind that
// succeeds with nothing bound, an answer that comes late.

#include <QDBusConnection>
#include <QDBusVirtualObject>
#include <QImage>
#include <QMap>
#include <QObject>
#include <QStringList>
#include <QTemporaryDir>

class FakePortal final : public QDBusVirtualObject
{
    Q_OBJECT

public:
    struct Bind
    {
        QString session;
        QMap<QString, QString> preferredTriggers; // by shortcut id
    };

    // Connects to the bus and takes the portal's name. With an interface left out the portal answers its
    // methods with UnknownMethod, as an older desktop's does.
    explicit FakePortal(const QString &busAddress, bool globalShortcuts = true, bool screenshot = true);
    ~FakePortal() override;

    bool isRunning() const { return m_running; }

    // Answer codes of the next requests (0 granted, 1 refused by the user, 2 other; NoAnswer: the portal
    // returns the handle and then hangs).
    static constexpr uint NoAnswer = ~0u;
    void setBindResponse(uint code) { m_bindResponse = code; }
    // Answers BindShortcuts with success and no shortcuts, as Plasma 5.27 does.
    void setBindsNothing(bool nothing) { m_bindsNothing = nothing; }
    // The screenshot Response comes this long after the call (a user reading the permission dialog).
    void setScreenshotDelay(int msecs) { m_screenshotDelay = msecs; }
    // What the permission store keeps in the screenshot table ("yes" or "no", by application id; the empty id
    // is every unsandboxed application's). A kept "no" makes Screenshot answer 2 at once, as the real
    // portal does.
    void setStoredScreenshotPermission(const QString &appId, const QString &permission)
    {
        m_storedPermissions.insert(appId, {permission});
    }
    void setScreenshotResponse(uint code) { m_screenshotResponse = code; }
    // The picture the next screenshots return, as a PNG file the portal writes.
    void setScreenshot(const QImage &image) { m_screenshot = image; }

    // Sends Activated for a shortcut of the newest open session.
    void activate(const QString &shortcutId, quint64 timestamp);
    // Sends ShortcutsChanged for the newest open session, as after the user edits a trigger in the desktop's
    // settings.
    void changeTrigger(const QString &shortcutId, const QString &trigger);

    QList<Bind> binds() const { return m_binds; }
    QStringList openSessions() const { return m_openSessions; }
    int screenshotCount() const { return m_screenshotOptions.size(); }
    QVariantMap lastScreenshotOptions() const
    {
        return m_screenshotOptions.value(m_screenshotOptions.size() - 1);
    }
    QString lastScreenshotFile() const { return m_lastFile; }
    QStringList closedRequests() const { return m_closedRequests; }
    QMap<QString, QStringList> storedScreenshotPermissions() const { return m_storedPermissions; }
    // Every call in the order received: "Register app.vontrel.Vontrel", "CreateSession", "Screenshot", ...
    QStringList calls() const { return m_calls; }

    // Nothing introspects the portal: Vontrel calls its methods and goes by the errors.
    QString introspect(const QString &) const override { return {}; }
    bool handleMessage(const QDBusMessage &message, const QDBusConnection &connection) override;

private:
    void respond(const QDBusMessage &call, const QString &token, uint code, const QVariantMap &results,
                 int delayMs = 0);
    QString senderPart(const QDBusMessage &message) const;

    QDBusConnection m_bus;
    bool m_running = false;
    bool m_globalShortcuts;
    bool m_screenshotInterface;
    uint m_bindResponse = 0;
    uint m_screenshotResponse = 0;
    bool m_bindsNothing = false;
    int m_screenshotDelay = 0;
    QMap<QString, QStringList> m_storedPermissions;
    QStringList m_calls;
    QImage m_screenshot;
    QTemporaryDir m_files;
    QString m_lastFile;
    QList<Bind> m_binds;
    QStringList m_openSessions;
    QStringList m_closedRequests;
    QList<QVariantMap> m_screenshotOptions;
};
