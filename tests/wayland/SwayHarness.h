// What the tests under a headless sway share: the compositor's tree through swaymsg, its virtual pointer,
// grim's view of the desktop, a terminal of known text, and Vontrel's own selectors.
#pragma once

#include "SessionRig.h"
#include "capture/CaptureOverlay.h"

#include <QApplication>
#include <QGuiApplication>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QScreen>
#include <QTest>
#include <QWidget>

#include <algorithm>
#include <functional>
#include <utility>

namespace SwayHarness {

constexpr int kBound = 30000;

inline QByteArray run(const QString &program, const QStringList &arguments, int *exitCode = nullptr)
{
    QProcess process;
    process.start(program, arguments);
    if (!process.waitForFinished(kBound)) {
        process.kill();
        process.waitForFinished();
    }
    if (exitCode)
        *exitCode = process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1;
    if (process.exitCode() != 0)
        qWarning().noquote() << program << arguments << "failed:" << process.readAllStandardError();
    return process.readAllStandardOutput();
}

inline QJsonDocument swaymsg(const QStringList &arguments)
{
    return QJsonDocument::fromJson(
        run(QStringLiteral("swaymsg"), QStringList{QStringLiteral("-r")} + arguments));
}

// Every view of sway's tree (tiled and floating) that the predicate accepts.
inline void collectViews(const QJsonObject &node, const std::function<bool(const QJsonObject &)> &accept,
                         QList<QJsonObject> *found)
{
    if (node.contains(QLatin1String("pid")) && accept(node))
        *found << node;
    for (const char *children : {"nodes", "floating_nodes"}) {
        for (const QJsonValue &child : node.value(QLatin1String(children)).toArray())
            collectViews(child.toObject(), accept, found);
    }
}

inline QList<QJsonObject> viewsOf(qint64 pid)
{
    QList<QJsonObject> views;
    const QJsonObject tree = swaymsg({QStringLiteral("-t"), QStringLiteral("get_tree")}).object();
    collectViews(
        tree, [pid](const QJsonObject &view) { return view.value(QLatin1String("pid")).toInteger() == pid; },
        &views);
    return views;
}

// Waits until the views of the process satisfy `done`, and returns them (empty on time-out).
inline QList<QJsonObject> waitForViews(qint64 pid,
                                       const std::function<bool(const QList<QJsonObject> &)> &done)
{
    QList<QJsonObject> views;
    const bool met = QTest::qWaitFor(
        [&] {
            views = viewsOf(pid);
            return done(views);
        },
        kBound);
    return met ? views : QList<QJsonObject>();
}

inline QRect rectOf(const QJsonObject &node)
{
    const QJsonObject rect = node.value(QLatin1String("rect")).toObject();
    return QRect(rect.value(QLatin1String("x")).toInt(), rect.value(QLatin1String("y")).toInt(),
                 rect.value(QLatin1String("width")).toInt(), rect.value(QLatin1String("height")).toInt());
}

inline QRect desktopRect()
{
    return QGuiApplication::primaryScreen()->virtualGeometry();
}

// The compositor's pointer, driven through vontrel_virtual_pointer. Positions are layout coordinates.
class VirtualPointer
{
public:
    bool start()
    {
        const QRect desktop = desktopRect();
        m_origin = desktop.topLeft();
        m_process.start(qEnvironmentVariable("VONTREL_BINARY_DIR") +
                            QStringLiteral("/tests/wayland/vontrel_virtual_pointer"),
                        {QString::number(desktop.width()), QString::number(desktop.height())});
        return answer() == "ready";
    }

    // Drags with the left button. The first move repeats until a window of ours has seen the pointer enter:
    // Qt creates its pointer only after the seat announced one, and events sent before that go nowhere.
    bool drag(const QPoint &from, const QPoint &to, const std::function<bool()> &entered)
    {
        bool seen = false;
        for (int attempt = 0; attempt < 60 && !seen; ++attempt) {
            if (!command(QStringLiteral("move %1 %2")
                             .arg(from.x() - m_origin.x() + attempt % 2)
                             .arg(from.y() - m_origin.y())))
                return false;
            seen = QTest::qWaitFor(entered, 500);
        }
        if (!seen ||
            !command(
                QStringLiteral("move %1 %2").arg(from.x() - m_origin.x()).arg(from.y() - m_origin.y())) ||
            !command(QStringLiteral("press")))
            return false;
        constexpr int steps = 12;
        for (int step = 1; step <= steps; ++step) {
            const QPoint at = from + (to - from) * step / steps - m_origin;
            if (!command(QStringLiteral("move %1 %2").arg(at.x()).arg(at.y())))
                return false;
        }
        return command(QStringLiteral("release"));
    }

    ~VirtualPointer()
    {
        m_process.closeWriteChannel();
        if (!m_process.waitForFinished(5000))
            m_process.kill();
    }

private:
    bool command(const QString &line)
    {
        m_process.write(line.toUtf8() + '\n');
        return answer() == "ok";
    }

    QByteArray answer()
    {
        if (!QTest::qWaitFor([this] { return m_process.canReadLine(); }, kBound))
            return QByteArray();
        return m_process.readLine().trimmed();
    }

    QProcess m_process;
    QPoint m_origin;
};

// The whole desktop as the screenshot portal's wlroots backend takes it (grim, at the highest output scale),
// once two shots in a row agree: a terminal that has just been mapped draws again when it learns its
// output's scale.
inline QImage settledDesktop()
{
    const auto shot = [] {
        QImage image;
        image.loadFromData(
            run(QStringLiteral("grim"), {QStringLiteral("-t"), QStringLiteral("ppm"), QStringLiteral("-")}));
        return image;
    };
    QImage last = shot();
    QImage image;
    const bool settled = QTest::qWaitFor(
        [&] {
            image = shot();
            return std::exchange(last, image) == image;
        },
        kBound);
    return settled ? image : QImage();
}

// Waits until the desktop has settled with something light drawn in `area` (layout coordinates), on the
// terminals' dark background: a terminal is focused before its shell has printed anything.
inline bool waitForInk(const QRect &area)
{
    return QTest::qWaitFor(
        [&area] {
            const QImage desktop = settledDesktop();
            const qreal scale = qreal(desktop.width()) / desktopRect().width();
            const QImage part = desktop.copy(QRect(area.topLeft() * scale, area.size() * scale));
            for (int y = 0; y < part.height(); ++y) {
                for (int x = 0; x < part.width(); ++x) {
                    if (qGray(part.pixel(x, y)) > 160)
                        return true;
                }
            }
            return false;
        },
        kBound);
}

// A terminal showing lines of known text, on the output that has the focus.
class Terminal
{
public:
    explicit Terminal(const QString &text)
    {
        m_process.start(QStringLiteral("foot"),
                        {QStringLiteral("--font=DejaVu Sans Mono:size=14"), QStringLiteral("sh"),
                         QStringLiteral("-c"), QStringLiteral("printf '%s' \"$0\"; exec sleep 600"), text});
    }
    ~Terminal()
    {
        m_process.kill();
        m_process.waitForFinished();
    }
    // Waits until the compositor shows it with the keyboard focus.
    bool waitFocused()
    {
        return QTest::qWaitFor(
            [this] {
                const QList<QJsonObject> views = viewsOf(m_process.processId());
                return !views.isEmpty() && views.first().value(QLatin1String("focused")).toBool();
            },
            kBound);
    }

private:
    QProcess m_process;
};

// The text request `index` asked to translate, its white space simplified (recognition may read a wide gap
// as two spaces).
inline QString sentText(const LoopbackHttpServer &server, int index)
{
    return SessionRig::inputOf(server.requests().at(index)).simplified();
}

inline QList<CaptureOverlay *> visibleOverlays()
{
    QList<CaptureOverlay *> overlays;
    for (QWidget *widget : QApplication::topLevelWidgets()) {
        if (auto *overlay = qobject_cast<CaptureOverlay *>(widget); overlay && overlay->isVisible())
            overlays << overlay;
    }
    return overlays;
}

inline bool waitForOverlays(int count)
{
    return QTest::qWaitFor(
        [count] {
            const QList<CaptureOverlay *> overlays = visibleOverlays();
            return std::count_if(overlays.cbegin(), overlays.cend(), [](CaptureOverlay *overlay) {
                       return overlay->windowHandle()->isExposed();
                   }) == count;
        },
        kBound);
}

inline bool overlayUnderPointer()
{
    const QList<CaptureOverlay *> overlays = visibleOverlays();
    return std::any_of(overlays.cbegin(), overlays.cend(),
                       [](CaptureOverlay *overlay) { return overlay->underMouse(); });
}

} // namespace SwayHarness
