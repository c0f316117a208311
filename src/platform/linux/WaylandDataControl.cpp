#include "platform/linux/WaylandDataControl.h"

#include "log/LogCategories.h"

#include "wlr-data-control-unstable-v1-client-protocol.h"

#include <QByteArray>
#include <QDebug>
#include <QElapsedTimer>
#include <QStringList>

#include <wayland-client.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <map>
#include <poll.h>
#include <unistd.h>

namespace {

// More than any text a user selects; a source that sends more is cut here rather than filling memory.
constexpr qsizetype kMaximumBytes = 16 * 1024 * 1024;

// The text types in the order of preference: UTF-8 first, the X11 names that XWayland sources offer after.
const char *const kTextTypes[] = {"text/plain;charset=utf-8", "UTF8_STRING", "text/plain", "TEXT", "STRING"};

struct Connection
{
    wl_display *display = nullptr;
    wl_registry *registry = nullptr;
    wl_seat *seat = nullptr;
    zwlr_data_control_manager_v1 *manager = nullptr;
    uint32_t managerVersion = 0;
    zwlr_data_control_device_v1 *device = nullptr;
    std::map<zwlr_data_control_offer_v1 *, QStringList> offers;
    zwlr_data_control_offer_v1 *clipboard = nullptr;
    zwlr_data_control_offer_v1 *primary = nullptr;

    ~Connection()
    {
        for (const auto &offer : offers)
            zwlr_data_control_offer_v1_destroy(offer.first);
        if (device)
            zwlr_data_control_device_v1_destroy(device);
        if (manager)
            zwlr_data_control_manager_v1_destroy(manager);
        if (seat)
            wl_seat_destroy(seat);
        if (registry)
            wl_registry_destroy(registry);
        if (display)
            wl_display_disconnect(display);
    }
};

void onGlobal(void *data, wl_registry *registry, uint32_t name, const char *interface, uint32_t version)
{
    auto *connection = static_cast<Connection *>(data);
    // The first seat: data control serves one seat per device, and a desktop session has one.
    if (std::strcmp(interface, wl_seat_interface.name) == 0 && !connection->seat) {
        connection->seat = static_cast<wl_seat *>(wl_registry_bind(registry, name, &wl_seat_interface, 1));
    } else if (std::strcmp(interface, zwlr_data_control_manager_v1_interface.name) == 0 &&
               !connection->manager) {
        // Version 2 adds the primary selection.
        connection->managerVersion = std::min<uint32_t>(version, 2);
        connection->manager = static_cast<zwlr_data_control_manager_v1 *>(wl_registry_bind(
            registry, name, &zwlr_data_control_manager_v1_interface, connection->managerVersion));
    }
}

void onGlobalRemove(void *, wl_registry *, uint32_t) {}

const wl_registry_listener kRegistryListener = {onGlobal, onGlobalRemove};

void onOfferType(void *data, zwlr_data_control_offer_v1 *offer, const char *mimeType)
{
    static_cast<Connection *>(data)->offers[offer] << QString::fromUtf8(mimeType);
}

const zwlr_data_control_offer_v1_listener kOfferListener = {onOfferType};

void onDataOffer(void *data, zwlr_data_control_device_v1 *, zwlr_data_control_offer_v1 *offer)
{
    auto *connection = static_cast<Connection *>(data);
    connection->offers[offer];
    zwlr_data_control_offer_v1_add_listener(offer, &kOfferListener, connection);
}

void onSelection(void *data, zwlr_data_control_device_v1 *, zwlr_data_control_offer_v1 *offer)
{
    static_cast<Connection *>(data)->clipboard = offer;
}

void onFinished(void *, zwlr_data_control_device_v1 *) {}

void onPrimarySelection(void *data, zwlr_data_control_device_v1 *, zwlr_data_control_offer_v1 *offer)
{
    static_cast<Connection *>(data)->primary = offer;
}

const zwlr_data_control_device_v1_listener kDeviceListener = {onDataOffer, onSelection, onFinished,
                                                              onPrimarySelection};

// Reads the pipe to its end; false when the source stayed silent past the deadline.
bool readAll(int fd, const QElapsedTimer &clock, std::chrono::milliseconds timeout, QByteArray *bytes)
{
    char buffer[65536];
    for (;;) {
        const qint64 left = timeout.count() - clock.elapsed();
        if (left <= 0)
            return false;
        pollfd waiting = {fd, POLLIN, 0};
        const int ready = poll(&waiting, 1, int(left));
        if (ready < 0 && errno == EINTR)
            continue;
        if (ready <= 0)
            return false;
        const ssize_t count = read(fd, buffer, sizeof buffer);
        if (count < 0 && (errno == EINTR || errno == EAGAIN))
            continue;
        if (count <= 0)
            return count == 0;
        bytes->append(buffer, qsizetype(count));
        if (bytes->size() >= kMaximumBytes)
            return true;
    }
}

} // namespace

std::optional<QString> WaylandDataControl::text(Selection selection, std::chrono::milliseconds timeout)
{
    QElapsedTimer clock;
    clock.start();
    Connection connection;
    connection.display = wl_display_connect(nullptr);
    if (!connection.display)
        return std::nullopt;
    connection.registry = wl_display_get_registry(connection.display);
    wl_registry_add_listener(connection.registry, &kRegistryListener, &connection);
    if (wl_display_roundtrip(connection.display) < 0 || !connection.manager || !connection.seat) {
        qCDebug(lcPlatform).noquote() << "WaylandDataControl: the compositor offers no data control";
        return std::nullopt;
    }
    if (selection == Selection::Primary && connection.managerVersion < 2)
        return std::nullopt;

    // The device reports the current selections (each introduced by its offer and types) right away.
    connection.device = zwlr_data_control_manager_v1_get_data_device(connection.manager, connection.seat);
    zwlr_data_control_device_v1_add_listener(connection.device, &kDeviceListener, &connection);
    if (wl_display_roundtrip(connection.display) < 0)
        return std::nullopt;

    zwlr_data_control_offer_v1 *offer =
        selection == Selection::Primary ? connection.primary : connection.clipboard;
    if (!offer)
        return QString();
    const QStringList &types = connection.offers[offer];
    const char *chosen = nullptr;
    for (const char *type : kTextTypes) {
        if (types.contains(QLatin1String(type))) {
            chosen = type;
            break;
        }
    }
    if (!chosen)
        return QString();

    int fds[2];
    if (pipe2(fds, O_CLOEXEC) != 0)
        return std::nullopt;
    zwlr_data_control_offer_v1_receive(offer, chosen, fds[1]);
    close(fds[1]);
    wl_display_flush(connection.display);
    QByteArray bytes;
    const bool complete = readAll(fds[0], clock, timeout, &bytes);
    close(fds[0]);
    if (!complete) {
        qCWarning(lcPlatform).noquote()
            << "WaylandDataControl: the selection's owner did not answer in" << timeout.count() << "ms";
        return std::nullopt;
    }
    qCDebug(lcPlatform).noquote() << "WaylandDataControl: read" << bytes.size() << "bytes as" << chosen;
    return std::strcmp(chosen, "STRING") == 0 ? QString::fromLatin1(bytes) : QString::fromUtf8(bytes);
}

bool WaylandDataControl::available()
{
    Connection connection;
    connection.display = wl_display_connect(nullptr);
    if (!connection.display)
        return false;
    connection.registry = wl_display_get_registry(connection.display);
    wl_registry_add_listener(connection.registry, &kRegistryListener, &connection);
    return wl_display_roundtrip(connection.display) >= 0 && connection.manager && connection.seat;
}
