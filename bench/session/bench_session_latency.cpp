// Latency of the clipboard-text path, end to end on X11: xdotool presses Super+Shift+2, the session reads the
// selection of another X client by the synthetic copy (or, with nothing selected, falls back to the clipboard
// after the copy wait), opens its window and sends the request to a loopback provider. Needs an X server and
// the test helper program of the build tree, e.g. from the build directory:
//   xvfb-run -a ./bench/bench_session_latency [presses]
// Figures are medians over the presses; the copy wait itself is reported separately, since it is a fixed
// allowance for the other application and not the program's own latency.
#include "LoopbackHttpServer.h"
#include "X11TestHelpers.h"

#include "ai/ActionService.h"
#include "capture/CaptureService.h"
#include "config/ConfigManager.h"
#include "platform/ClipboardService.h"
#include "platform/HotkeyManager.h"
#include "platform/Platform.h"
#include "session/SessionController.h"
#include "ui/result/ResultWindow.h"

#include <QApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>
#include <QWindow>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <vector>

namespace {

QElapsedTimer g_clock;
qint64 g_fallbackEndNs = -1;
qint64 g_requestStartNs = -1;

// The fallback's end is taken from its own log line, so the program needs no hook for the benchmark.
void recordFallbackEnd(QtMsgType, const QMessageLogContext &, const QString &message)
{
    if (message.contains(QLatin1String("copy fallback restored clipboard")))
        g_fallbackEndNs = g_clock.nsecsElapsed();
    else if (message.contains(QLatin1String("Starting streaming AI request")))
        g_requestStartNs = g_clock.nsecsElapsed();
}

// Records when the current result window is first exposed on the X server.
class ExposeWatcher final : public QObject
{
public:
    explicit ExposeWatcher(SessionController *controller)
        : m_controller(controller)
    {}
    qint64 exposedNs = -1;

protected:
    bool eventFilter(QObject *watched, QEvent *event) override
    {
        if (event->type() == QEvent::Expose && exposedNs < 0) {
            auto *window = dynamic_cast<ResultWindow *>(m_controller->currentWindow());
            if (window && watched == window->windowHandle() && window->windowHandle()->isExposed())
                exposedNs = g_clock.nsecsElapsed();
        }
        return false;
    }

private:
    SessionController *m_controller;
};

double percentile(std::vector<double> values, double fraction)
{
    if (values.empty())
        return 0;
    std::sort(values.begin(), values.end());
    return values[std::min(values.size() - 1, size_t(fraction * double(values.size())))];
}

double median(const std::vector<double> &values)
{
    return percentile(values, 0.5);
}

struct Figures
{
    std::vector<double> pressToHotkey, hotkeyToFallbackEnd, fallbackEndToVisible, fallbackEndToRequest,
        fallbackEndToWorker;

    void print(const char *name) const
    {
        std::printf("%s (n=%zu, medians in ms)\n", name, pressToHotkey.size());
        std::printf("  xdotool start -> hotkey signal        %7.2f\n", median(pressToHotkey));
        std::printf("  hotkey signal -> copy fallback end    %7.2f\n", median(hotkeyToFallbackEnd));
        std::printf("  fallback end  -> window visible       %7.2f   (target 50)\n",
                    median(fallbackEndToVisible));
        std::printf("  fallback end  -> request started      %7.2f\n", median(fallbackEndToWorker));
        std::printf("  fallback end  -> request at provider  %7.2f   (target 10; p95 %.2f, target 20)\n",
                    median(fallbackEndToRequest), percentile(fallbackEndToRequest, 0.95));
    }
};

} // namespace

int main(int argc, char **argv)
{
    QTemporaryDir home;
    qputenv("XDG_CONFIG_HOME", home.path().toUtf8());
    qputenv("QT_QPA_PLATFORM", "xcb");
    QApplication app(argc, argv);
    if (qEnvironmentVariableIsEmpty("VONTREL_BINARY_DIR"))
        qputenv("VONTREL_BINARY_DIR",
                QDir(app.applicationDirPath() + QStringLiteral("/..")).absolutePath().toUtf8());
    const int presses = argc > 1 ? std::max(1, atoi(argv[1])) : 20;
    g_clock.start();
    qInstallMessageHandler(recordFallbackEnd);

    // The provider answers on a thread of its own and stamps each request as it arrives: on the GUI thread
    // the arrival would wait for whatever the program itself is doing (showing the window), and the figure
    // would measure that instead of the request.
    std::atomic<qint64> arrivalNs{-1};
    const LoopbackServerThread providerThread([&arrivalNs](LoopbackHttpServer &server) {
        server.setHandler([&arrivalNs](const RecordedRequest &) {
            arrivalNs = g_clock.nsecsElapsed();
            return ScriptedResponse::sse().send(
                "data: {\"choices\":[{\"delta\":{\"content\":\"Hallo\"}}]}\n\ndata: [DONE]\n\n");
        });
    });
    LoopbackHttpServer *const provider = providerThread.server();
    if (!providerThread.isListening())
        return 1;
    ConfigManager::instance()->setApiUrl(provider->baseUrl());
    ConfigManager::instance()->setApiKey(QStringLiteral("bench-key"));
    ConfigManager::instance()->setModel(QStringLiteral("bench-model"));

    CaptureService capture;
    ClipboardService clipboard;
    const std::unique_ptr<Platform> platform = Platform::create();
    HotkeyManager hotkeys(platform->createHotkeyBackend());
    ActionService actions(nullptr);
    SessionController controller([] { return new ResultWindow; });
    controller.setConfig(ConfigManager::instance());
    qint64 hotkeyNs = -1;
    QObject::connect(&hotkeys, &HotkeyManager::hotkeyTriggered, [&] { hotkeyNs = g_clock.nsecsElapsed(); });
    controller.setPlatform(platform.get());
    controller.setCaptureService(&capture);
    controller.setClipboardService(&clipboard);
    controller.setHotkeyManager(&hotkeys);
    controller.setActionService(&actions);
    if (!hotkeys.registerHotkeys()) {
        std::fprintf(stderr, "bench_session_latency: registerHotkeys failed: %s\n",
                     qPrintable(hotkeys.lastError()));
        return 1;
    }
    ExposeWatcher watcher(&controller);
    app.installEventFilter(&watcher);
    X11TestHelpers::HelperProcess owner;
    QTemporaryDir files;
    QFile before(files.filePath(QStringLiteral("before")));
    if (!before.open(QIODevice::WriteOnly) || before.write("clipboard before") < 0)
        return 1;
    before.close();
    if (!owner.start({QStringLiteral("own-clipboard"), QStringLiteral("text/plain"), before.fileName()})) {
        std::fprintf(stderr, "bench_session_latency: the helper %s did not start\n",
                     qPrintable(X11TestHelpers::helperProgram()));
        return 1;
    }

    auto run = [&](const QString &focusWindow, Figures &figures) {
        for (int i = 0; i < presses; ++i) {
            if (!focusWindow.isEmpty()) {
                QProcess::execute(QStringLiteral("xdotool"),
                                  {QStringLiteral("windowfocus"), QStringLiteral("--sync"), focusWindow});
            }
            const int requestsBefore = provider->requestCount();
            arrivalNs = -1;
            hotkeyNs = g_fallbackEndNs = g_requestStartNs = watcher.exposedNs = -1;
            QProcess xdotool;
            const qint64 pressNs = g_clock.nsecsElapsed();
            xdotool.start(QStringLiteral("xdotool"),
                          {QStringLiteral("key"), QStringLiteral("super+shift+2")});
            const bool done = QTest::qWaitFor(
                [&] {
                    return provider->requestCount() > requestsBefore && watcher.exposedNs >= 0 &&
                           controller.state() == SessionController::Done;
                },
                10000);
            xdotool.waitForFinished();
            if (!done || hotkeyNs < 0 || g_fallbackEndNs < 0) {
                std::fprintf(stderr, "press %d did not complete\n", i);
                continue;
            }
            figures.pressToHotkey.push_back(double(hotkeyNs - pressNs) / 1e6);
            figures.hotkeyToFallbackEnd.push_back(double(g_fallbackEndNs - hotkeyNs) / 1e6);
            figures.fallbackEndToVisible.push_back(double(watcher.exposedNs - g_fallbackEndNs) / 1e6);
            figures.fallbackEndToRequest.push_back(double(arrivalNs - g_fallbackEndNs) / 1e6);
            figures.fallbackEndToWorker.push_back(double(g_requestStartNs - g_fallbackEndNs) / 1e6);
        }
    };

    Figures selection;
    {
        X11TestHelpers::HelperProcess textWindow;
        if (!textWindow.start({QStringLiteral("text-window"), QStringLiteral("selected words to translate")}))
            return 1;
        run(textWindow.readyValue(), selection);
    }
    Figures clipboardText;
    run(QString(), clipboardText);

    selection.print("selection copied from another client");
    clipboardText.print("nothing selected: clipboard text after the 150 ms wait");
    return 0;
}
