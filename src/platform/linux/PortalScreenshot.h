#pragma once

#include <QDBusConnection>
#include <QImage>
#include <QObject>
#include <QRect>
#include <QString>

#include <chrono>

// Screenshots through the desktop portal (Wayland sessions, where a client cannot read the screen). The
// portal writes a file of the whole desktop and answers with its URI. The file is left where the portal put
// it: it may be the user's own copy (a document-portal path or the picture folder), and losing it is worse
// than keeping one more screenshot.
class PortalScreenshot final : public QObject
{
    Q_OBJECT

public:
    static inline const QString Interface = QStringLiteral("org.freedesktop.portal.Screenshot");

    // The first screenshot may wait on the desktop's permission dialog; a portal silent for longer than
    // `patience` has hung, and the capture ends with failed().
    explicit PortalScreenshot(const QDBusConnection &bus, QObject *parent = nullptr,
                              std::chrono::milliseconds patience = std::chrono::seconds(60));

    // Asks for a non-interactive screenshot; ends in taken(), failed() or unavailable(). A second request
    // while one runs is ignored.
    void take();
    bool isBusy() const { return m_busy; }

    // The part of a whole-desktop image that shows one screen, with the device pixel ratio that maps it onto
    // the screen's logical geometry. `desktop` is the logical bounding box of all screens.
    static QImage screenPart(const QImage &whole, const QRect &desktop, const QRect &screen);

signals:
    void taken(const QImage &image);
    // The user refused, the portal failed, or the file could not be read; `reason` is for the log.
    void failed(const QString &reason);
    void unavailable(const QString &interfaceName);

private:
    void finish(uint response, const QVariantMap &results);

    QDBusConnection m_bus;
    std::chrono::milliseconds m_patience;
    bool m_busy = false;
};
