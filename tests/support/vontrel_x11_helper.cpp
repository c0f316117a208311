// A second X client for the desktop-integration tests; prints "ready [window id]" once set up:
//   own-clipboard FORMAT FILE [FORMAT FILE ...]  owns the CLIPBOARD with exactly these formats
//   text-window TEXT                             shows a focused line edit with TEXT selected
//   terminal-window CLASS TEXT                   a focused window of WM_CLASS CLASS that owns PRIMARY with
//                                                TEXT, as a terminal does; prints "interrupted" on Ctrl+C
#include <QApplication>
#include <QClipboard>
#include <QFile>
#include <QKeyEvent>
#include <QLineEdit>
#include <QMimeData>
#include <QTimer>

#include <cstdio>

namespace {

// What a shell in a terminal would take as an interrupt.
class InterruptWatch final : public QObject
{
public:
    bool eventFilter(QObject *watched, QEvent *event) override
    {
        if (event->type() == QEvent::KeyPress) {
            const auto *key = static_cast<QKeyEvent *>(event);
            if (key->key() == Qt::Key_C && key->modifiers().testFlag(Qt::ControlModifier)) {
                std::printf("interrupted\n");
                std::fflush(stdout);
                return true;
            }
        }
        return QObject::eventFilter(watched, event);
    }
};

} // namespace

int main(int argc, char **argv)
{
    QApplication app(argc, argv);
    const QStringList args = app.arguments().mid(1);
    QLineEdit edit;
    InterruptWatch interruptWatch;
    QTimer poll;
    if (args.value(0) == QLatin1String("own-clipboard")) {
        auto *data = new QMimeData;
        for (int i = 1; i + 1 < args.size(); i += 2) {
            QFile file(args[i + 1]);
            if (!file.open(QIODevice::ReadOnly))
                return 2;
            data->setData(args[i], file.readAll());
        }
        QGuiApplication::clipboard()->setMimeData(data, QClipboard::Clipboard);
        std::printf("ready\n");
    } else if (args.value(0) == QLatin1String("text-window") ||
               args.value(0) == QLatin1String("terminal-window")) {
        const bool terminal = args.value(0) == QLatin1String("terminal-window");
        if (terminal) {
            // The class half of WM_CLASS is the application name when the first window is made.
            QCoreApplication::setApplicationName(args.value(1));
            QGuiApplication::clipboard()->setText(args.value(2), QClipboard::Selection);
            edit.installEventFilter(&interruptWatch);
        }
        edit.setText(args.value(terminal ? 2 : 1));
        edit.resize(400, 40);
        edit.show();
        edit.selectAll();
        edit.activateWindow();
        // Ready only once the window has the keyboard focus, so the test's keystroke cannot go elsewhere.
        QObject::connect(&poll, &QTimer::timeout, [&]() {
            if (edit.isActiveWindow() && edit.hasFocus()) {
                poll.stop();
                std::printf("ready %llu\n", static_cast<unsigned long long>(edit.winId()));
                std::fflush(stdout);
            }
        });
        poll.start(10);
    } else {
        return 1;
    }
    std::fflush(stdout);
    return app.exec();
}
