// Renders the result window in its typical states, in the light and the dark appearance, and saves
// screenshots of the screen around it (so the rounded corners show against a desktop).
//
// usage: overlay_screenshots OUTPUT_DIR   (on an X server; scripts/screenshots-overlay.sh provides one)
#include "ui/result/ResultWindow.h"

#include <QApplication>
#include <QDir>
#include <QEventLoop>
#include <QLinearGradient>
#include <QPainter>
#include <QPalette>
#include <QScreen>
#include <QTimer>
#include <QWidget>

#include <cstdio>

namespace {

// A calm desktop behind the window, so that corners and borders can be judged.
class Backdrop final : public QWidget
{
public:
    Backdrop()
        : QWidget(nullptr, Qt::FramelessWindowHint)
    {}

protected:
    void paintEvent(QPaintEvent *) override
    {
        QPainter painter(this);
        QLinearGradient gradient(rect().topLeft(), rect().bottomRight());
        gradient.setColorAt(0, QColor(0x5d, 0x7a, 0x99));
        gradient.setColorAt(1, QColor(0x8f, 0x7d, 0xa6));
        painter.fillRect(rect(), gradient);
    }
};

void settle(int ms)
{
    QEventLoop loop;
    QTimer::singleShot(ms, &loop, &QEventLoop::quit);
    loop.exec();
}

// What the user dragged a rectangle over: a line of text as a screen shows it.
QImage capturedText()
{
    QImage image(1040, 170, QImage::Format_RGB32);
    image.fill(QColor(0xfb, 0xfa, 0xf7));
    QPainter painter(&image);
    painter.setRenderHint(QPainter::TextAntialiasing);
    QFont font(QStringLiteral("DejaVu Serif"));
    font.setPixelSize(34);
    painter.setFont(font);
    painter.setPen(QColor(0x22, 0x22, 0x22));
    painter.drawText(QRect(30, 20, 1000, 130), Qt::AlignLeft | Qt::AlignVCenter | Qt::TextWordWrap,
                     QStringLiteral("Die Katze sitzt auf der Matte und\nbeobachtet den Regen am Fenster."));
    return image;
}

bool save(ResultWindow &window, const QString &path)
{
    window.show();
    window.raise();
    // Long enough for the deferred preview scaling and the rounded corners (50 ms after showing).
    settle(600);
    QScreen *screen = window.screen();
    const QRect area = window.frameGeometry().adjusted(-28, -28, 28, 28);
    const QPixmap shot = screen->grabWindow(0, area.x(), area.y(), area.width(), area.height());
    const bool ok = shot.save(path);
    std::printf("%s %s (%dx%d)\n", ok ? "wrote" : "FAILED", qPrintable(path), shot.width(), shot.height());
    return ok;
}

bool renderAll(const QString &dir, const QString &appearance)
{
    bool ok = true;
    {
        ResultWindow w;
        w.setMode(ResultWindow::CaptureMode);
        w.setPreviewImage(capturedText());
        w.setSourceEditable(false);
        w.setSourceText(
            QStringLiteral("Die Katze sitzt auf der Matte und\nbeobachtet den Regen am Fenster."));
        w.showTranslation(true);
        w.setProcessing(true);
        w.appendTranslation(QStringLiteral("The cat sits on the mat and\nwatches the rain at the window."));
        w.setProcessing(false);
        w.setPinned(true);
        ok &= save(w, dir + QStringLiteral("/overlay-capture-%1.png").arg(appearance));
    }
    {
        ResultWindow w;
        w.setMode(ResultWindow::TextMode);
        w.setSourceText(QStringLiteral(
            "Der schnelle Zugriff auf Übersetzungen spart Zeit: markieren, Tastenkürzel drücken, lesen. "
            "Das Fenster wächst mit dem Text und verschwindet, sobald man woanders hinklickt."));
        w.setSourceEditable(true);
        w.showTranslation(true);
        w.setProcessing(true);
        w.appendTranslation(QStringLiteral("Quick access to translations saves time: select, press the "));
        w.appendTranslation(QStringLiteral("hotkey, read. The window grows with"));
        ok &= save(w, dir + QStringLiteral("/overlay-streaming-%1.png").arg(appearance));
    }
    {
        ResultWindow w;
        w.setMode(ResultWindow::TextMode);
        w.setSourceText(QStringLiteral("Bonjour tout le monde"));
        w.setSourceEditable(true);
        w.showTranslation(true);
        w.setProcessing(true);
        w.setError(QStringLiteral("Request failed: 401 Unauthorized. Check the API key under Preferences, AI "
                                  "Provider."));
        ok &= save(w, dir + QStringLiteral("/overlay-error-%1.png").arg(appearance));
    }
    {
        ResultWindow w;
        w.setMode(ResultWindow::MessageMode);
        w.setMessageText(QStringLiteral("No text was found in the selected area. Drag a rectangle over "
                                        "printed or on-screen text and try again."));
        ok &= save(w, dir + QStringLiteral("/overlay-message-%1.png").arg(appearance));
    }
    return ok;
}

} // namespace

int main(int argc, char **argv)
{
    QApplication app(argc, argv);
    if (argc < 2) {
        std::fprintf(stderr, "usage: overlay_screenshots OUTPUT_DIR\n");
        return 2;
    }
    const QString dir = QDir(QString::fromLocal8Bit(argv[1])).absolutePath();
    QDir().mkpath(dir);

    Backdrop backdrop;
    backdrop.setGeometry(QGuiApplication::primaryScreen()->geometry());
    backdrop.show();
    settle(200);

    bool ok = renderAll(dir, QStringLiteral("light"));

    // The appearance follows the palette's window colour on this Qt; overlays take their colours when built.
    QPalette dark;
    dark.setColor(QPalette::Window, QColor(0x2d, 0x2d, 0x2d));
    dark.setColor(QPalette::WindowText, QColor(0xe0, 0xe0, 0xe0));
    dark.setColor(QPalette::Base, QColor(0x1e, 0x1e, 0x1e));
    dark.setColor(QPalette::Text, QColor(0xe0, 0xe0, 0xe0));
    dark.setColor(QPalette::PlaceholderText, QColor(0x80, 0x80, 0x80));
    QApplication::setPalette(dark);
    ok &= renderAll(dir, QStringLiteral("dark"));
    return ok ? 0 : 1;
}
