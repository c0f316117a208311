#include "ui/PermissionGuideDialog.h"

#include "platform/Platform.h"

#include <QElapsedTimer>
#include <QEvent>
#include <QHBoxLayout>
#include <QLabel>
#include <QPointer>
#include <QPushButton>
#include <QVBoxLayout>

namespace {

constexpr qint64 ThrottleMs = 30000;

struct GuideState
{
    QPointer<PermissionGuideDialog> openGuide;
    QElapsedTimer clock;
    qint64 lastShown[2] = {-1, -1};
    std::function<qint64()> testClock;
    std::function<int(PermissionGuideDialog *)> testRunner;
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

Platform::Permission permissionOf(PermissionGuideDialog::PermissionType type)
{
    return type == PermissionGuideDialog::ScreenRecording ? Platform::Permission::ScreenRecording
                                                          : Platform::Permission::Accessibility;
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

bool PermissionGuideDialog::probe(Platform &platform, PermissionType type)
{
    return platform.hasPermission(permissionOf(type));
}

void PermissionGuideDialog::bringToFront(Platform &platform, QWidget *window)
{
    platform.activateApplication();
    window->raise();
    window->activateWindow();
}

bool PermissionGuideDialog::ensurePermission(Platform &platform, PermissionType type, QWidget *parent)
{
    if (!isKnownType(type) || probe(platform, type))
        return true;

    GuideState &s = state();
    // One guide at a time: a press while it is open only brings it back to the front.
    if (s.openGuide) {
        bringToFront(platform, s.openGuide);
        return false;
    }

    // Repeated presses while the permission is missing must not pop the guide up again and again.
    const qint64 now = clockNow();
    qint64 &lastShown = s.lastShown[type];
    if (lastShown >= 0 && now - lastShown < ThrottleMs)
        return false;
    lastShown = now;

    PermissionGuideDialog dialog(platform, type, parent);
    s.openGuide = &dialog;
    platform.activateApplication();
    if (s.testRunner)
        s.testRunner(&dialog);
    else
        dialog.exec();
    s.openGuide = nullptr;
    return probe(platform, type);
}

PermissionGuideDialog::PermissionGuideDialog(Platform &platform, PermissionType type, QWidget *parent)
    : QDialog(parent)
    , m_platform(platform)
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
    if (!m_platform.hasSystemSettingsPanes()) {
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

    const Platform::GuideText text = m_platform.permissionGuideText(permissionOf(m_type));
    m_titleLabel->setText(text.title);
    m_bodyLabel->setText(text.body);
}

void PermissionGuideDialog::changeEvent(QEvent *event)
{
    if (event->type() == QEvent::LanguageChange)
        retranslateUi();
    QDialog::changeEvent(event);
}

void PermissionGuideDialog::openSystemSettings()
{
    m_platform.openPermissionSettings(permissionOf(m_type));
}

void PermissionGuideDialog::recheckPermission()
{
    if (!isKnownType(m_type) || probe(m_platform, m_type)) {
        accept();
        return;
    }
    // System Settings may have covered the guide meanwhile.
    bringToFront(m_platform, this);
}

void PermissionGuideDialog::setClockForTesting(std::function<qint64()> clock)
{
    state().testClock = std::move(clock);
}

void PermissionGuideDialog::setRunnerForTesting(std::function<int(PermissionGuideDialog *)> runner)
{
    state().testRunner = std::move(runner);
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
