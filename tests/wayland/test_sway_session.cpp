// Vontrel under a real tiling compositor: a headless sway with two outputs (the second at scale 2), the real
// desktop portal with its wlroots and GTK backends, PipeWire, mako for notifications, foot as the other
// application and wl-clipboard as another client's clipboard. The pointer is driven through the compositor's
// virtual-pointer protocol (vontrel_virtual_pointer). Started by tests/support/run-test.sh (mode sway).

#include "SessionRig.h"

#include "app/VontrelApp.h"
#include "capture/CaptureOverlay.h"
#include "capture/CaptureService.h"
#include "platform/Platform.h"
#include "ui/result/ResultWindow.h"
#include "update/UpdateChecker.h"

#include <QAction>
#include <QApplication>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QScreen>
#include <QSignalSpy>

#include <algorithm>
#include <functional>
#include <utility>

namespace {

constexpr int kBound = 30000;

QByteArray run(const QString &program, const QStringList &arguments, int *exitCode = nullptr)
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

QJsonDocument swaymsg(const QStringList &arguments)
{
    return QJsonDocument::fromJson(
        run(QStringLiteral("swaymsg"), QStringList{QStringLiteral("-r")} + arguments));
}

// Every view of sway's tree (tiled and floating) that the predicate accepts.
void collectViews(const QJsonObject &node, const std::function<bool(const QJsonObject &)> &accept,
                  QList<QJsonObject> *found)
{
    if (node.contains(QLatin1String("pid")) && accept(node))
        *found << node;
    for (const char *children : {"nodes", "floating_nodes"}) {
        for (const QJsonValue &child : node.value(QLatin1String(children)).toArray())
            collectViews(child.toObject(), accept, found);
    }
}

QList<QJsonObject> viewsOf(qint64 pid)
{
    QList<QJsonObject> views;
    const QJsonObject tree = swaymsg({QStringLiteral("-t"), QStringLiteral("get_tree")}).object();
    collectViews(
        tree, [pid](const QJsonObject &view) { return view.value(QLatin1String("pid")).toInteger() == pid; },
        &views);
    return views;
}

QRect rectOf(const QJsonObject &node)
{
    const QJsonObject rect = node.value(QLatin1String("rect")).toObject();
    return QRect(rect.value(QLatin1String("x")).toInt(), rect.value(QLatin1String("y")).toInt(),
                 rect.value(QLatin1String("width")).toInt(), rect.value(QLatin1String("height")).toInt());
}

QRect desktopRect()
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
QImage settledDesktop()
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
bool waitForInk(const QRect &area)
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
QString sentText(const LoopbackHttpServer &server, int index)
{
    const QJsonDocument body = QJsonDocument::fromJson(server.requests().at(index).body);
    const QString prompt =
        body[QLatin1String("messages")].toArray().last()[QLatin1String("content")].toString();
    const qsizetype at = prompt.lastIndexOf(QLatin1String("\n\nInput:\n"));
    return at < 0 ? prompt : prompt.mid(at + 9).simplified();
}

bool waitForOverlays(int count)
{
    return QTest::qWaitFor(
        [count] {
            int exposed = 0;
            for (QWidget *widget : QApplication::topLevelWidgets()) {
                auto *overlay = qobject_cast<CaptureOverlay *>(widget);
                if (overlay && overlay->isVisible() && overlay->windowHandle()->isExposed())
                    ++exposed;
            }
            return exposed == count;
        },
        kBound);
}

QList<CaptureOverlay *> visibleOverlays()
{
    QList<CaptureOverlay *> overlays;
    for (QWidget *widget : QApplication::topLevelWidgets()) {
        if (auto *overlay = qobject_cast<CaptureOverlay *>(widget); overlay && overlay->isVisible())
            overlays << overlay;
    }
    return overlays;
}

bool overlayUnderPointer()
{
    const QList<CaptureOverlay *> overlays = visibleOverlays();
    return std::any_of(overlays.cbegin(), overlays.cend(),
                       [](CaptureOverlay *overlay) { return overlay->underMouse(); });
}

} // namespace

class TestSwaySession : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase()
    {
        const QString unavailable = qEnvironmentVariable("VONTREL_WAYLAND_UNAVAILABLE");
        if (!unavailable.isEmpty())
            QSKIP(qPrintable(QStringLiteral("no headless sway with portals: ") + unavailable));
        QCOMPARE(QGuiApplication::platformName(), QStringLiteral("wayland"));
        QApplication::setApplicationName(QStringLiteral("Vontrel"));
        QApplication::setOrganizationName(QStringLiteral("Vontrel"));
        UpdateChecker::instance()->setServiceUrl(QUrl(QStringLiteral("http://127.0.0.1:1")));

        // A second output right of the first, at scale 2: 1280 x 800 pixels, 640 x 400 logical.
        run(QStringLiteral("swaymsg"), {QStringLiteral("create_output")});
        run(QStringLiteral("swaymsg"),
            {QStringLiteral("output HEADLESS-2 resolution 1280x800 position 1280 0 scale 2")});
        QTRY_COMPARE_WITH_TIMEOUT(QGuiApplication::screens().size(), 2, kBound);
        QTRY_COMPARE_WITH_TIMEOUT(desktopRect(), QRect(0, 0, 1920, 800), kBound);
        QVERIFY(m_pointer.start());
    }

    void selectorCoversEachOutputAndSelectsExactPixels_data()
    {
        QTest::addColumn<QRect>("selection"); // layout coordinates

        QTest::newRow("first output") << QRect(100, 60, 300, 90);
        QTest::newRow("second output, scale 2") << QRect(1300, 20, 200, 45);
    }

    void selectorCoversEachOutputAndSelectsExactPixels()
    {
        QFETCH(QRect, selection);
        Terminal left(QStringLiteral("Left output: the first line\nand its second line\n"));
        QVERIFY(left.waitFocused());
        run(QStringLiteral("swaymsg"), {QStringLiteral("focus output HEADLESS-2")});
        Terminal right(QStringLiteral("Right output\nscaled twice\n"));
        QVERIFY(right.waitFocused());
        QVERIFY(waitForInk(QRect(120, 0, 60, 20)));
        QVERIFY(waitForInk(QRect(1280 + 60, 0, 40, 30)));
        const QImage reference = settledDesktop();
        QVERIFY(!reference.isNull());

        std::unique_ptr<Platform> platform = Platform::create();
        CaptureService capture;
        capture.setScreenSource([&platform](QScreen *screen, QObject *context, auto done) {
            platform->grabScreen(screen, context, std::move(done));
        });
        QSignalSpy done(&capture, &CaptureService::captureDone);
        capture.startCapture();

        // One selector per output, each full screen on its own output at the output's exact geometry: no
        // tile.
        QVERIFY(waitForOverlays(2));
        const QList<CaptureOverlay *> overlays = visibleOverlays();
        QList<QRect> outputs;
        for (const QJsonValue &output :
             swaymsg({QStringLiteral("-t"), QStringLiteral("get_outputs")}).array())
            outputs << rectOf(output.toObject());
        QList<QJsonObject> views;
        QVERIFY(QTest::qWaitFor(
            [&] {
                views = viewsOf(QCoreApplication::applicationPid());
                return views.size() == 2;
            },
            kBound));
        for (const QJsonObject &view : std::as_const(views)) {
            QCOMPARE(view.value(QLatin1String("fullscreen_mode")).toInt(), 1);
            QVERIFY2(outputs.contains(rectOf(view)), qPrintable(QJsonDocument(view).toJson()));
        }
        QVERIFY(rectOf(views.at(0)) != rectOf(views.at(1)));
        for (CaptureOverlay *overlay : overlays)
            QCOMPARE(overlay->geometry(), overlay->screen()->geometry());

        // The pixels under the dragged rectangle, exactly as the screen showed them.
        QVERIFY(m_pointer.drag(selection.topLeft(), selection.bottomRight(), overlayUnderPointer));
        QTRY_COMPARE_WITH_TIMEOUT(done.size(), 1, kBound);
        QImage image = done.first().first().value<QImage>();
        const qreal scale = qreal(reference.width()) / desktopRect().width();
        QCOMPARE(image.devicePixelRatio(), scale);
        const QRect expected(selection.topLeft() * scale, selection.size() * scale);
        QCOMPARE(image.size(), expected.size());
        image.setDevicePixelRatio(1);
        QCOMPARE(image.convertToFormat(QImage::Format_RGB32),
                 reference.copy(expected).convertToFormat(QImage::Format_RGB32));
        QTRY_VERIFY_WITH_TIMEOUT(visibleOverlays().isEmpty(), kBound);
    }

    void dragOverATerminalSendsItsText()
    {
        LoopbackHttpServer server;
        QVERIFY(SessionRig::serveAsProvider(server));
        VontrelApp app;
        app.setInteractive(false);
        app.start();
        run(QStringLiteral("swaymsg"), {QStringLiteral("focus output HEADLESS-2")});
        Terminal terminal(QStringLiteral("Quiet harbour lights\n"));
        QVERIFY(terminal.waitFocused());
        // The end of the line, where no cursor stands before the text is there.
        QVERIFY(waitForInk(QRect(1280 + 120, 0, 60, 40)));

        app.captureAction()->trigger();
        QVERIFY(waitForOverlays(2));
        // The terminal fills the second output (scale 2), its text at the top left.
        QVERIFY(m_pointer.drag(QPoint(1281, 1), QPoint(1900, 100), overlayUnderPointer));
        QTRY_COMPARE_WITH_TIMEOUT(server.requests().size(), 1, kBound);
        const QString sent = sentText(server, 0);
        QVERIFY2(sent.contains(QLatin1String("Quiet harbour lights"), Qt::CaseInsensitive), qPrintable(sent));
    }

    void clipboardOfAnotherClientWhileItHasTheFocus_data()
    {
        QTest::addColumn<QString>("clipboard");
        QTest::addColumn<QString>("primary");
        QTest::addColumn<QString>("expected");

        QTest::newRow("clipboard") << QStringLiteral("Bonjour tout le monde") << QString()
                                   << QStringLiteral("Bonjour tout le monde");
        QTest::newRow("selected text before the clipboard")
            << QStringLiteral("Bonjour tout le monde") << QStringLiteral("Guten Tag")
            << QStringLiteral("Guten Tag");
    }

    void clipboardOfAnotherClientWhileItHasTheFocus()
    {
        QFETCH(QString, clipboard);
        QFETCH(QString, primary);
        QFETCH(QString, expected);

        LoopbackHttpServer server;
        QVERIFY(SessionRig::serveAsProvider(server));
        VontrelApp app;
        app.setInteractive(false);
        app.start();
        Terminal terminal(QStringLiteral("focused"));
        QVERIFY(terminal.waitFocused());
        // wl-copy stays in the background serving its clipboard until another client replaces it.
        run(QStringLiteral("wl-copy"), {clipboard});
        run(QStringLiteral("wl-copy"),
            primary.isEmpty() ? QStringList{QStringLiteral("--primary"), QStringLiteral("--clear")}
                              : QStringList{QStringLiteral("--primary"), primary});
        QVERIFY(terminal.waitFocused());

        app.clipboardTextAction()->trigger();
        QTRY_COMPARE_WITH_TIMEOUT(server.requests().size(), 1, kBound);
        QCOMPARE(sentText(server, 0), expected);

        // The result window floats at its own size instead of becoming a tile.
        ResultWindow *window = nullptr;
        QVERIFY(QTest::qWaitFor(
            [&] {
                window = dynamic_cast<ResultWindow *>(app.sessionController()->currentWindow());
                return window && window->isVisible() && window->getTranslation() == QLatin1String("Hello");
            },
            kBound));
        QList<QJsonObject> views;
        QVERIFY(QTest::qWaitFor(
            [&] {
                views = viewsOf(QCoreApplication::applicationPid());
                return views.size() == 1 && rectOf(views.first()).size() == window->size();
            },
            kBound));
        QCOMPARE(views.first().value(QLatin1String("type")).toString(), QStringLiteral("floating_con"));
        run(QStringLiteral("wl-copy"), {QStringLiteral("--clear")});
    }

    // Vontrel as a plain sway runs it: no bar, so no tray; no shortcuts portal, so the user binds sway keys
    // to `vontrel --selection` and `vontrel --capture`.
    void desktopShortcutsOnAPlainSway()
    {
        LoopbackHttpServer server;
        QVERIFY(SessionRig::serveAsProvider(server)); // the settings the program reads at start
        run(QStringLiteral("makoctl"), {QStringLiteral("dismiss"), QStringLiteral("--all")});
        const QString program = qEnvironmentVariable("VONTREL_BINARY_DIR") + QStringLiteral("/src/vontrel");
        QProcess vontrel;
        vontrel.setProcessChannelMode(QProcess::ForwardedChannels);
        vontrel.start(program, {});
        QVERIFY(vontrel.waitForStarted());

        // That the hotkeys cannot work arrives as a desktop notification.
        QTRY_VERIFY_WITH_TIMEOUT(
            run(QStringLiteral("makoctl"), {QStringLiteral("list")}).contains("Global Hotkeys Unavailable"),
            kBound);

        // Another client's clipboard, translated while a terminal has the focus.
        run(QStringLiteral("swaymsg"), {QStringLiteral("focus output HEADLESS-1")});
        Terminal terminal(QStringLiteral("Quiet harbour lights\n"));
        QVERIFY(terminal.waitFocused());
        run(QStringLiteral("wl-copy"), {QStringLiteral("Bonjour tout le monde")});
        run(QStringLiteral("wl-copy"), {QStringLiteral("--primary"), QStringLiteral("--clear")});
        int exitCode = -1;
        run(program, {QStringLiteral("--selection")}, &exitCode);
        QCOMPARE(exitCode, 0);
        QTRY_COMPARE_WITH_TIMEOUT(server.requests().size(), 1, kBound);
        QCOMPARE(sentText(server, 0), QStringLiteral("Bonjour tout le monde"));
        // Its window carries the app id of the desktop entry, and floats.
        QList<QJsonObject> views;
        QVERIFY(QTest::qWaitFor(
            [&] {
                views = viewsOf(vontrel.processId());
                return views.size() == 1;
            },
            kBound));
        QCOMPARE(views.first().value(QLatin1String("app_id")).toString(),
                 QStringLiteral("app.vontrel.Vontrel"));
        QCOMPARE(views.first().value(QLatin1String("type")).toString(), QStringLiteral("floating_con"));

        // A capture from the command line: selectors on both outputs, the text under the drag sent, and the
        // portal's screenshot file gone.
        QVERIFY(waitForInk(QRect(120, 0, 60, 20)));
        run(program, {QStringLiteral("--capture")}, &exitCode);
        QCOMPARE(exitCode, 0);
        QVERIFY(QTest::qWaitFor(
            [&] {
                const QList<QJsonObject> shown = viewsOf(vontrel.processId());
                return std::count_if(shown.cbegin(), shown.cend(), [](const QJsonObject &view) {
                           return view.value(QLatin1String("fullscreen_mode")).toInt() == 1;
                       }) == 2;
            },
            kBound));
        QVERIFY(m_pointer.drag(QPoint(1, 1), QPoint(400, 30), [] { return true; }));
        QTRY_COMPARE_WITH_TIMEOUT(server.requests().size(), 2, kBound);
        const QString sent = sentText(server, 1);
        QVERIFY2(sent.contains(QLatin1String("Quiet harbour lights"), Qt::CaseInsensitive), qPrintable(sent));
        QVERIFY(!QFile::exists(QStringLiteral("/tmp/out.png")));

        run(QStringLiteral("wl-copy"), {QStringLiteral("--clear")});
        vontrel.terminate();
        QVERIFY(vontrel.waitForFinished(kBound));
    }

private:
    VirtualPointer m_pointer;
};

QTEST_MAIN(TestSwaySession)
#include "test_sway_session.moc"
