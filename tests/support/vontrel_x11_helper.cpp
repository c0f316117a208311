// A second X client for the desktop-integration tests; prints "ready [window id]" once set up:
//   own-clipboard FORMAT FILE [FORMAT FILE ...]  owns the CLIPBOARD with exactly these formats
//   text-window TEXT                             shows a focused line edit with TEXT selected
#include <QApplication>
#include <QClipboard>
#include <QFile>
#include <QLineEdit>
#include <QMimeData>
#include <QTimer>

#include <cstdio>

int main(int argc, char **argv)
{
    QApplication app(argc, argv);
    const QStringList args = app.arguments().mid(1);
    QLineEdit edit;
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
    } else if (args.value(0) == QLatin1String("text-window")) {
        edit.setText(args.value(1));
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
