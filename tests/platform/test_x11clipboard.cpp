// The clipboard, the copy keystroke and the PRIMARY selection on the test's own Xvfb, with xclip and a second
// Qt process as the other applications.
#include "X11TestHelpers.h"
#include "platform/ClipboardService.h"
#include "platform/Platform.h"
#include "platform/linux/X11SelectedTextProvider.h"

#include <QBuffer>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

#include <X11/Xlib.h>
#include <X11/keysym.h>

using namespace X11TestHelpers;

namespace {

// The content targets of the CLIPBOARD (not TARGETS, TIMESTAMP ...) with their bytes as xclip reads them.
QMap<QString, QByteArray> clipboardContents(const QStringList &targets)
{
    static const QStringList meta{"TARGETS", "TIMESTAMP", "MULTIPLE", "SAVE_TARGETS"};
    QMap<QString, QByteArray> contents;
    for (const QString &target : targets) {
        if (!meta.contains(target))
            contents.insert(target, clipboardData(target).output);
    }
    return contents;
}

QByteArray pngBytes()
{
    QImage image(7, 5, QImage::Format_ARGB32);
    image.fill(QColor(10, 200, 30, 128));
    QBuffer buffer;
    buffer.open(QIODevice::WriteOnly);
    image.save(&buffer, "PNG");
    return buffer.data();
}

bool keyIsDown(KeySym keysym)
{
    Display *display = XOpenDisplay(nullptr);
    char keys[32] = {};
    XQueryKeymap(display, keys);
    const KeyCode code = XKeysymToKeycode(display, keysym);
    XCloseDisplay(display);
    return code && (keys[code / 8] & (1 << (code % 8)));
}

} // namespace

class TestX11Clipboard : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase()
    {
        if (QGuiApplication::platformName() != QLatin1String("xcb"))
            QSKIP("needs the xcb platform (run under the test's Xvfb)");
    }

    void emptyClipboardRestoresToEmpty()
    {
        ClipboardService service;
        QVERIFY(clipboardTargets().isEmpty()); // a fresh server: nobody owns the clipboard
        const ClipboardService::Snapshot empty = service.snapshot();
        QVERIFY(empty.isEmpty());
        service.setText(QStringLiteral("something"));
        QTRY_COMPARE_WITH_TIMEOUT(clipboardData("UTF8_STRING").output, QByteArray("something"), 10000);

        QSignalSpy changed(&service, &ClipboardService::clipboardChanged);
        service.restore(empty);
        QVERIFY(changed.count() > 0 || changed.wait(10000));
        QVERIFY(!service.hasText() && !service.hasImage());
        QCOMPARE(clipboardContents(clipboardTargets()), (QMap<QString, QByteArray>()));
    }

    void snapshotAndRestoreKeepTargetsAndBytes()
    {
        const QStringList formats{"text/plain", "text/html", "image/png"};
        const QList<QByteArray> contents{QString::fromUtf8("Grüße, 世界\n").toUtf8(), "<i>html</i>",
                                         pngBytes()};
        ClipboardService service;
        QSignalSpy changed(&service, &ClipboardService::clipboardChanged);
        HelperProcess owner;
        QTemporaryDir dir;
        QStringList arguments{"own-clipboard"};
        for (int i = 0; i < formats.size(); ++i) {
            QFile file(dir.filePath(formats[i].section(u'/', 1)));
            QVERIFY(file.open(QIODevice::WriteOnly) && file.write(contents[i]) == contents[i].size());
            arguments << formats[i] << file.fileName();
        }
        QVERIFY(owner.start(arguments));
        QVERIFY(changed.count() > 0 || changed.wait(10000));
        QTRY_VERIFY_WITH_TIMEOUT(service.hasImage() && service.hasText(), 10000);
        const QMap<QString, QByteArray> before = clipboardContents(clipboardTargets());
        const ClipboardService::Snapshot snapshot = service.snapshot();
        for (int i = 0; i < formats.size(); ++i)
            QCOMPARE(snapshot.dataByFormat.value(formats[i]), contents[i]);
        // What the copy fallback does: other text lands on the clipboard, then the snapshot goes back.
        service.setText(QStringLiteral("copied"));
        QTRY_COMPARE_WITH_TIMEOUT(clipboardData("UTF8_STRING").output, QByteArray("copied"), 10000);
        service.restore(snapshot);
        QCOMPARE(clipboardContents(before.keys()), before);
    }

    void copyKeystrokeReachesOtherProcessWhileModifiersHeld()
    {
        ClipboardService service;
        service.setText(QStringLiteral("before"));
        HelperProcess window;
        QVERIFY(window.start({"text-window", "Selected words"}));
        // The user still holds the hotkey's Super and Shift when the copy is sent.
        QCOMPARE(runTool(QStringLiteral("xdotool"), {"keydown", "super+shift"}).exitCode, 0);
        QVERIFY(Platform::create()->sendCopyKeystroke());
        QTRY_COMPARE_WITH_TIMEOUT(service.getText(), QStringLiteral("Selected words"), 10000);
        // Held again afterwards, and Ctrl is not left down.
        const bool held = keyIsDown(XK_Super_L) && keyIsDown(XK_Shift_L) && !keyIsDown(XK_Control_L);
        runTool(QStringLiteral("xdotool"), {"keyup", "super+shift"});
        QVERIFY(held);
    }

    void primarySelectionIsTrimmed()
    {
        X11SelectedTextProvider provider;
        QVERIFY(xclipOwn("UTF8_STRING", "\n  padded selection \t\n", "primary"));
        QTRY_COMPARE_WITH_TIMEOUT(provider.selectedText(), QStringLiteral("padded selection"), 10000);
    }
};

QTEST_MAIN(TestX11Clipboard)
#include "test_x11clipboard.moc"
