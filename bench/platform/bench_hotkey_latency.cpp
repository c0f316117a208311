// Press-to-signal latency of a global hotkey on X11: XTest presses Super+Shift+1 on a connection of its own,
// and the time until HotkeyManager emits hotkeyTriggered is taken. Needs an X server (DISPLAY), e.g.
//   xvfb-run -a ./bench_hotkey_latency
// Also times the copy keystroke (XTest Ctrl+C with the modifiers lifted and restored) up to the server's ack.
#include "platform/HotkeyManager.h"
#include "platform/Platform.h"

#include <QApplication>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QLoggingCategory>
#include <QTimer>

#include <X11/Xlib.h>
#include <X11/extensions/XTest.h>
#include <X11/keysym.h>

#include <algorithm>
#include <cstdio>
#include <vector>

namespace {

double percentile(std::vector<double> values, double p)
{
    std::sort(values.begin(), values.end());
    return values[std::min(values.size() - 1, size_t(p * double(values.size() - 1) + 0.5))];
}

void report(const char *name, const std::vector<double> &us)
{
    std::printf("%-28s n=%zu  median %.0f us  p95 %.0f us  max %.0f us\n", name, us.size(),
                percentile(us, 0.5), percentile(us, 0.95), percentile(us, 1.0));
}

} // namespace

int main(int argc, char **argv)
{
    qputenv("QT_QPA_PLATFORM", "xcb");
    QApplication app(argc, argv);
    Display *display = XOpenDisplay(nullptr);
    if (!display) {
        std::fprintf(stderr, "bench_hotkey_latency: needs an X server (DISPLAY)\n");
        return 1;
    }
    QLoggingCategory::setFilterRules(QStringLiteral("*.debug=false\n*.info=false"));
    const std::unique_ptr<Platform> platform = Platform::create();
    HotkeyManager manager(platform->createHotkeyBackend());
    if (!manager.registerHotkeys()) {
        std::fprintf(stderr, "registerHotkeys failed: %s\n", qPrintable(manager.lastError()));
        return 1;
    }
    const KeyCode super = XKeysymToKeycode(display, XK_Super_L);
    const KeyCode shift = XKeysymToKeycode(display, XK_Shift_L);
    const KeyCode one = XKeysymToKeycode(display, XK_1);

    const int rounds = 200;
    std::vector<double> latencies;
    QElapsedTimer clock;
    QEventLoop loop;
    QObject::connect(&manager, &HotkeyManager::hotkeyTriggered, &loop, [&](int) {
        latencies.push_back(double(clock.nsecsElapsed()) / 1000.0);
        loop.quit();
    });
    for (int i = 0; i < rounds; ++i) {
        XTestFakeKeyEvent(display, super, True, CurrentTime);
        XTestFakeKeyEvent(display, shift, True, CurrentTime);
        clock.start();
        XTestFakeKeyEvent(display, one, True, CurrentTime);
        XFlush(display);
        QTimer::singleShot(2000, &loop, &QEventLoop::quit);
        loop.exec();
        XTestFakeKeyEvent(display, one, False, CurrentTime);
        XTestFakeKeyEvent(display, shift, False, CurrentTime);
        XTestFakeKeyEvent(display, super, False, CurrentTime);
        XSync(display, False);
    }
    report("hotkey press -> signal", latencies);
    if (int(latencies.size()) != rounds)
        std::printf("missed presses: %d\n", rounds - int(latencies.size()));

    std::vector<double> copies;
    XTestFakeKeyEvent(display, super, True, CurrentTime);
    XTestFakeKeyEvent(display, shift, True, CurrentTime);
    XSync(display, False);
    for (int i = 0; i < rounds; ++i) {
        clock.start();
        platform->sendCopyKeystroke();
        copies.push_back(double(clock.nsecsElapsed()) / 1000.0);
    }
    XTestFakeKeyEvent(display, shift, False, CurrentTime);
    XTestFakeKeyEvent(display, super, False, CurrentTime);
    XSync(display, False);
    report("copy keystroke (synced)", copies);
    XCloseDisplay(display);
    return 0;
}
