// The clipboard, the copy keystroke and the PRIMARY selection against a real X server, with xclip and a
// second Qt process as the other applications.
#include "X11TestHelpers.h"
#include "platform/ClipboardService.h"
#include "platform/CopyShortcut.h"
#include "platform/Permissions.h"
#include "platform/linux/X11SelectedTextProvider.h"

#include <QBuffer>
#include <QImage>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

#include <X11/Xlib.h>
#include <X11/keysym.h>

using namespace X11TestHelpers;

namespace {

// Targets that describe the selection rather than carry its content.
bool isContentTarget(const QString &target)
{
    static const QStringList meta{"TARGETS", "TIMESTAMP", "MULTIPLE", "SAVE_TARGETS"};
    return !meta.contains(target);
}

QByteArray pngBytes()
{
    QImage image(7, 5, QImage::Format_ARGB32);
    image.fill(QColor(10, 200, 30, 128));
    QByteArray bytes;
    QBuffer buffer(&bytes);
    buffer.open(QIODevice::WriteOnly);
    image.save(&buffer, "PNG");
    return bytes;
}

bool keyIsDown(KeySym keysym)
{
    Display *display = XOpenDisplay(nullptr);
    if (!display)
        return false;
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
    void initTestCase();
    void emptyClipboardRestoresToEmpty();
    void snapshotAndRestoreKeepTargetsAndBytes_data();
    void snapshotAndRestoreKeepTargetsAndBytes();
    void hasTextCountsWhiteSpace_data();
    void hasTextCountsWhiteSpace();
    void copyKeystrokeReachesOtherProcessWhileModifiersHeld();
    void copyKeystrokeNotSentWithoutPermission();
    void primarySelectionIsTrimmed();
    void cleanup();

private:
    QTemporaryDir m_dir;
};

void TestX11Clipboard::initTestCase()
{
    if (QGuiApplication::platformName() != QLatin1String("xcb"))
        QSKIP("needs the xcb platform (run under the test's Xvfb)");
    QVERIFY(m_dir.isValid());
}

void TestX11Clipboard::cleanup()
{
    Permissions::setProbesForTesting({}, {});
    CopyShortcut::setSenderForTesting({});
}

void TestX11Clipboard::emptyClipboardRestoresToEmpty()
{
    ClipboardService service;
    // A fresh server: nobody owns the clipboard yet.
    QVERIFY(clipboardTargets().isEmpty());
    const ClipboardService::Snapshot empty = service.snapshot();
    QVERIFY(empty.isEmpty());

    service.setText(QStringLiteral("something"));
    QTRY_COMPARE_WITH_TIMEOUT(clipboardData(QStringLiteral("UTF8_STRING")).output, QByteArray("something"),
                              10000);

    QSignalSpy changed(&service, &ClipboardService::clipboardChanged);
    service.restore(empty);
    QVERIFY(changed.count() > 0 || changed.wait(10000));
    QVERIFY(!service.hasText());
    QVERIFY(service.getText().isEmpty());
    QVERIFY(!service.hasImage());
    for (const QString &target : clipboardTargets()) {
        if (isContentTarget(target))
            QFAIL(qPrintable(QStringLiteral("restored empty clipboard still offers %1").arg(target)));
    }
}

void TestX11Clipboard::snapshotAndRestoreKeepTargetsAndBytes_data()
{
    QTest::addColumn<QStringList>("formats");
    QTest::addColumn<QList<QByteArray>>("contents");
    QTest::addColumn<bool>("byXclip"); // one format served by xclip, else all by a Qt process

    QTest::newRow("xclip text/plain")
        << QStringList{"text/plain"} << QList<QByteArray>{QString::fromUtf8("Grüße, 世界\n").toUtf8()}
        << true;
    QTest::newRow("xclip text/html") << QStringList{"text/html"}
                                     << QList<QByteArray>{"<p>bold <b>words</b></p>"} << true;
    QTest::newRow("xclip image/png") << QStringList{"image/png"} << QList<QByteArray>{pngBytes()} << true;
    QTest::newRow("text, html and png together")
        << QStringList{"text/plain", "text/html", "image/png"}
        << QList<QByteArray>{"plain words", "<i>html words</i>", pngBytes()} << false;
}

void TestX11Clipboard::snapshotAndRestoreKeepTargetsAndBytes()
{
    QFETCH(QStringList, formats);
    QFETCH(QList<QByteArray>, contents);
    QFETCH(bool, byXclip);

    HelperProcess owner;
    if (byXclip) {
        QVERIFY(xclipOwn(formats[0], contents[0]));
    } else {
        QStringList arguments{QStringLiteral("own-clipboard")};
        for (int i = 0; i < formats.size(); ++i) {
            const QString path = m_dir.filePath(QStringLiteral("format%1").arg(i));
            QFile file(path);
            QVERIFY(file.open(QIODevice::WriteOnly));
            file.write(contents[i]);
            file.close();
            arguments << formats[i] << path;
        }
        QVERIFY(owner.start(arguments));
    }
    QTRY_VERIFY_WITH_TIMEOUT(clipboardTargets().contains(formats[0]), 10000);

    QStringList originalTargets = clipboardTargets();
    originalTargets.removeIf([](const QString &t) { return !isContentTarget(t); });
    QMap<QString, QByteArray> originalBytes;
    for (const QString &target : std::as_const(originalTargets)) {
        const ToolResult data = clipboardData(target);
        QCOMPARE(data.exitCode, 0);
        originalBytes.insert(target, data.output);
    }
    for (int i = 0; i < formats.size(); ++i)
        QCOMPARE(originalBytes.value(formats[i]), contents[i]);

    ClipboardService service;
    const ClipboardService::Snapshot snapshot = service.snapshot();
    for (int i = 0; i < formats.size(); ++i) {
        QVERIFY2(snapshot.formats.contains(formats[i]), qPrintable(snapshot.formats.join(u' ')));
        QCOMPARE(snapshot.dataByFormat.value(formats[i]), contents[i]);
    }

    // What the copy fallback does: someone else's text lands on the clipboard, then the snapshot goes back.
    service.setText(QStringLiteral("the copied selection"));
    QTRY_VERIFY_WITH_TIMEOUT(!clipboardTargets().contains(QStringLiteral("image/png")) || formats.size() > 1,
                             10000);
    service.restore(snapshot);

    const QStringList restoredTargets = clipboardTargets();
    for (const QString &target : std::as_const(originalTargets)) {
        QVERIFY2(restoredTargets.contains(target),
                 qPrintable(
                     QStringLiteral("%1 missing after restore: %2").arg(target, restoredTargets.join(u' '))));
        const ToolResult data = clipboardData(target);
        QCOMPARE(data.exitCode, 0);
        QCOMPARE(data.output, originalBytes.value(target));
    }
    QCOMPARE(service.snapshot().formats, snapshot.formats);
}

void TestX11Clipboard::hasTextCountsWhiteSpace_data()
{
    QTest::addColumn<QString>("target");
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<bool>("hasText");
    QTest::addColumn<bool>("hasImage");
    QTest::newRow("blank") << "UTF8_STRING" << QByteArray(" ") << true << false;
    QTest::newRow("line feeds") << "UTF8_STRING" << QByteArray("\n\n") << true << false;
    QTest::newRow("image only") << "image/png" << pngBytes() << false << true;
}

void TestX11Clipboard::hasTextCountsWhiteSpace()
{
    QFETCH(QString, target);
    QFETCH(QByteArray, bytes);
    QFETCH(bool, hasText);
    QFETCH(bool, hasImage);

    ClipboardService service;
    QSignalSpy changed(&service, &ClipboardService::clipboardChanged);
    QVERIFY(xclipOwn(target, bytes));
    QVERIFY(changed.count() > 0 || changed.wait(10000));
    QTRY_COMPARE_WITH_TIMEOUT(service.hasText(), hasText, 10000);
    QCOMPARE(service.hasImage(), hasImage);
    if (hasImage)
        QCOMPARE(service.getImage().size(), QSize(7, 5));
    else
        QCOMPARE(service.getText(), QString::fromUtf8(bytes));
}

void TestX11Clipboard::copyKeystrokeReachesOtherProcessWhileModifiersHeld()
{
    ClipboardService service;
    service.setText(QStringLiteral("before"));
    HelperProcess window;
    QVERIFY(window.start({QStringLiteral("text-window"), QStringLiteral("Selected words")}));

    // The user still holds the hotkey's Super and Shift when the copy is sent.
    QCOMPARE(runTool(QStringLiteral("xdotool"), {QStringLiteral("keydown"), QStringLiteral("super+shift")})
                 .exitCode,
             0);
    QVERIFY(keyIsDown(XK_Super_L));
    QVERIFY(CopyShortcut::sendCopy());
    QTRY_COMPARE_WITH_TIMEOUT(service.getText(), QStringLiteral("Selected words"), 10000);
    // The keys the user holds are held again afterwards.
    const bool superHeld = keyIsDown(XK_Super_L);
    const bool shiftHeld = keyIsDown(XK_Shift_L);
    runTool(QStringLiteral("xdotool"), {QStringLiteral("keyup"), QStringLiteral("super+shift")});
    QVERIFY(superHeld);
    QVERIFY(shiftHeld);
    QVERIFY(!keyIsDown(XK_Control_L));
}

void TestX11Clipboard::copyKeystrokeNotSentWithoutPermission()
{
    int sent = 0;
    CopyShortcut::setSenderForTesting([&sent]() {
        ++sent;
        return true;
    });
    Permissions::setProbesForTesting([]() { return false; }, {});
    QVERIFY(!CopyShortcut::sendCopy());
    QCOMPARE(sent, 0);

    Permissions::setProbesForTesting({}, {});
    QVERIFY(CopyShortcut::sendCopy());
    QCOMPARE(sent, 1);
}

void TestX11Clipboard::primarySelectionIsTrimmed()
{
    X11SelectedTextProvider provider;
    QVERIFY(xclipOwn(QStringLiteral("UTF8_STRING"), "\n  padded selection \t\n", QStringLiteral("primary")));
    QTRY_COMPARE_WITH_TIMEOUT(provider.selectedText(), QStringLiteral("padded selection"), 10000);
    // The clipboard is a different selection and stays out of it.
    ClipboardService service;
    QVERIFY(service.getText() != QStringLiteral("padded selection"));
}

QTEST_MAIN(TestX11Clipboard)
#include "test_x11clipboard.moc"
