#include "platform/PermissionGuideDialog.h"

#include "platform/Permissions.h"

#include <QDesktopServices>
#include <QElapsedTimer>
#include <QEvent>
#include <QHBoxLayout>
#include <QLabel>
#include <QPointer>
#include <QPushButton>
#include <QUrl>
#include <QVBoxLayout>

namespace {

constexpr qint64 ThrottleMs = 30000;
const char GeneralSecurityPane[] = "x-apple.systempreferences:com.apple.preference.security";

struct GuideState
{
    QPointer<PermissionGuideDialog> openGuide;
    QElapsedTimer clock;
    qint64 lastShown[2] = {-1, -1};
    std::function<qint64()> testClock;
    std::function<int(PermissionGuideDialog *)> testRunner;
    std::function<bool(const QString &)> testUrlOpener;
};

GuideState &state()
{
    static GuideState s;
    return s;
}

bool isKnownType(int type)
{
    return type == PermissionGuideDialog::ScreenRecording || type == PermissionGuideDialog::Accessibility;
}

QString paneUrl(int type)
{
    switch (type) {
    case PermissionGuideDialog::ScreenRecording:
        return QStringLiteral(
            "x-apple.systempreferences:com.apple.preference.security?Privacy_ScreenCapture");
    case PermissionGuideDialog::Accessibility:
        return QStringLiteral(
            "x-apple.systempreferences:com.apple.preference.security?Privacy_Accessibility");
    default:
        return QString();
    }
}

bool openUrl(const QString &url)
{
    if (state().testUrlOpener)
        return state().testUrlOpener(url);
    return QDesktopServices::openUrl(QUrl(url));
}

qint64 clockNow()
{
    if (state().testClock)
        return state().testClock();
    if (!state().clock.isValid())
        state().clock.start();
    return state().clock.elapsed();
}

} // namespace

bool PermissionGuideDialog::probe(PermissionType type)
{
    switch (type) {
    case ScreenRecording:
        return Permissions::hasScreenRecordingPermission();
    case Accessibility:
        return Permissions::hasAccessibilityPermission();
    }
    return true;
}

void PermissionGuideDialog::bringToFront(QWidget *window)
{
    Permissions::activateApp();
    window->raise();
    window->activateWindow();
}

bool PermissionGuideDialog::ensurePermission(PermissionType type, QWidget *parent)
{
    if (!isKnownType(type) || probe(type))
        return true;

    GuideState &s = state();
    // One guide at a time: a press while it is open only brings it back to the front.
    if (s.openGuide) {
        bringToFront(s.openGuide);
        return false;
    }

    // Repeated presses while the permission is missing must not pop the guide up again and again.
    const qint64 now = clockNow();
    qint64 &lastShown = s.lastShown[type];
    if (lastShown >= 0 && now - lastShown < ThrottleMs)
        return false;
    lastShown = now;

    PermissionGuideDialog dialog(type, parent);
    s.openGuide = &dialog;
    Permissions::activateApp();
    if (s.testRunner)
        s.testRunner(&dialog);
    else
        dialog.exec();
    s.openGuide = nullptr;
    return probe(type);
}

PermissionGuideDialog::PermissionGuideDialog(PermissionType type, QWidget *parent)
    : QDialog(parent)
    , m_type(type)
{
    setWindowFlag(Qt::WindowStaysOnTopHint, true);
    setWindowModality(Qt::ApplicationModal);

    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(16, 16, 16, 16);
    layout->setSpacing(12);

    m_titleLabel = new QLabel(this);
    QFont titleFont = font();
    titleFont.setPointSize(titleFont.pointSize() + 2);
    titleFont.setWeight(QFont::Bold);
    m_titleLabel->setFont(titleFont);
    m_titleLabel->setWordWrap(true);

    m_bodyLabel = new QLabel(this);
    m_bodyLabel->setWordWrap(true);
    m_bodyLabel->setTextFormat(Qt::RichText);
    m_bodyLabel->setTextInteractionFlags(Qt::TextSelectableByMouse | Qt::LinksAccessibleByMouse);

    auto *buttons = new QHBoxLayout;
    buttons->setContentsMargins(0, 0, 0, 0);
    buttons->setSpacing(8);
    buttons->addStretch();
    m_openButton = new QPushButton(this);
    m_openButton->setDefault(true);
    m_recheckButton = new QPushButton(this);
    m_laterButton = new QPushButton(this);
    buttons->addWidget(m_openButton);
    buttons->addWidget(m_recheckButton);
    buttons->addWidget(m_laterButton);
    connect(m_openButton, &QPushButton::clicked, this, &PermissionGuideDialog::openSystemSettings);
    connect(m_recheckButton, &QPushButton::clicked, this, &PermissionGuideDialog::recheckPermission);
    connect(m_laterButton, &QPushButton::clicked, this, &QDialog::reject);

    // Without settings panes (Linux) there is nothing to open; recheck becomes the default action.
    if (!Permissions::hasSystemSettingsPanes()) {
        m_openButton->setVisible(false);
        m_openButton->setDefault(false);
        m_recheckButton->setDefault(true);
    }

    layout->addWidget(m_titleLabel);
    layout->addWidget(m_bodyLabel);
    layout->addLayout(buttons);

    retranslateUi();
    resize(520, sizeHint().height());
}

void PermissionGuideDialog::retranslateUi()
{
    setWindowTitle(tr("Vontrel Permissions"));
    m_openButton->setText(tr("Open System Settings"));
    m_recheckButton->setText(tr("I've enabled it, recheck"));
    m_laterButton->setText(tr("Later"));

    const bool panes = Permissions::hasSystemSettingsPanes();
    if (m_type == ScreenRecording) {
        if (panes) {
            m_titleLabel->setText(tr("Screen Recording permission required"));
            m_bodyLabel->setText(
                tr("<p>Vontrel needs access to your screen to capture screenshots and run OCR.</p>"
                   "<p><b>Steps</b></p><ol><li>Open System Settings → Privacy &amp; Security</li>"
                   "<li>Go to Screen Recording</li><li>Enable Vontrel</li>"
                   "<li>If macOS asks you to quit and reopen Vontrel, please do so</li></ol>"
                   "<p>If Vontrel is not listed, trigger the screenshot hotkey once and check again.</p>"));
        } else {
            m_titleLabel->setText(tr("Screen capture needs an X11 session"));
            m_bodyLabel->setText(
                tr("<p>Vontrel captures the screen through the X11 display server, and this desktop session "
                   "offers none (for example a Wayland session without X11).</p>"
                   "<p><b>Steps</b></p><ol><li>Log out</li>"
                   "<li>At the login screen, choose a session that runs on X11 (often named \"on Xorg\" or "
                   "\"(X11)\")</li><li>Log in and start Vontrel again</li></ol>"
                   "<p>Translating typed or copied text works in any session.</p>"));
        }
    } else {
        if (panes) {
            m_titleLabel->setText(tr("Accessibility permission required"));
            m_bodyLabel->setText(tr(
                "<p>Vontrel simulates a ⌘C to read selected text from the current app, and restores your "
                "clipboard. macOS requires Accessibility permission to send such input events.</p>"
                "<p><b>Steps</b></p><ol><li>Open System Settings → Privacy &amp; Security</li>"
                "<li>Go to Accessibility</li><li>Enable Vontrel</li><li>Then retry the hotkey</li></ol>"
                "<p>On newer macOS versions you may also see a system prompt about allowing paste from other "
                "apps. This is expected.</p>"));
        } else {
            m_titleLabel->setText(tr("Reading the selection needs an X11 session"));
            m_bodyLabel->setText(tr(
                "<p>Vontrel sends a Ctrl+C to the current application to read its selected text, and "
                "restores your clipboard. Sending such input needs the X11 display server, and this desktop "
                "session offers none (for example a Wayland session without X11).</p>"
                "<p><b>Steps</b></p><ol><li>Log out</li>"
                "<li>At the login screen, choose a session that runs on X11 (often named \"on Xorg\" or "
                "\"(X11)\")</li><li>Log in and start Vontrel again</li></ol>"
                "<p>Until then, copy the text yourself and use the clipboard text hotkey's window.</p>"));
        }
    }
}

void PermissionGuideDialog::changeEvent(QEvent *event)
{
    if (event->type() == QEvent::LanguageChange)
        retranslateUi();
    QDialog::changeEvent(event);
}

void PermissionGuideDialog::openSystemSettings()
{
    const QString url = paneUrl(m_type);
    if (url.isEmpty() || !QUrl(url).isValid() || !openUrl(url))
        openUrl(QString::fromLatin1(GeneralSecurityPane));
}

void PermissionGuideDialog::recheckPermission()
{
    if (!isKnownType(m_type) || probe(m_type)) {
        accept();
        return;
    }
    // System Settings may have covered the guide meanwhile.
    bringToFront(this);
}

void PermissionGuideDialog::setClockForTesting(std::function<qint64()> clock)
{
    state().testClock = std::move(clock);
}

void PermissionGuideDialog::setRunnerForTesting(std::function<int(PermissionGuideDialog *)> runner)
{
    state().testRunner = std::move(runner);
}

void PermissionGuideDialog::setUrlOpenerForTesting(std::function<bool(const QString &)> opener)
{
    state().testUrlOpener = std::move(opener);
}

void PermissionGuideDialog::resetStateForTesting()
{
    state().lastShown[0] = state().lastShown[1] = -1;
    state().clock.invalidate();
}

PermissionGuideDialog *PermissionGuideDialog::openGuide()
{
    return state().openGuide;
}
