#include "app/TrayMenu.h"

#include "ui/IconTint.h"
#include "ui/ThemeColors.h"

#include <QAction>
#include <QCoreApplication>
#include <QCursor>
#include <QMenu>
#include <QSystemTrayIcon>

namespace {

QString nativeText(const QKeySequence &sequence)
{
    return sequence.toString(QKeySequence::NativeText);
}

} // namespace

TrayMenu::TrayMenu(bool trayRecoloursIcons, QObject *parent)
    : QObject(parent)
    , m_menu(std::make_unique<QMenu>())
    , m_icon(std::make_unique<QSystemTrayIcon>())
{
    // Icons in the colour of the menu's text in the current appearance.
    const QColor tint(vontrelThemeColors().textPrimary);
    const auto add = [this, &tint](const char *icon) {
        return m_menu->addAction(tintedMenuIcon(QLatin1String(icon), tint), QString());
    };
    m_hotkeysOff = m_menu->addAction(QString());
    m_hotkeysOff->setEnabled(false);
    m_hotkeysOff->setVisible(false);
    m_capture = add(":/icons/capture.svg");
    m_capture->setShortcutVisibleInContextMenu(true);
    m_clipboardText = add(":/icons/clipboard-text.svg");
    m_clipboardText->setShortcutVisibleInContextMenu(true);
    m_menu->addSeparator();
    m_update = add(":/icons/refresh.svg");
    m_preferences = add(":/icons/settings.svg");
    m_menu->addSeparator();
    m_quit = add(":/icons/exit.svg");
    m_quit->setShortcut(QKeySequence::Quit);
    m_quit->setShortcutVisibleInContextMenu(true);

    connect(m_capture, &QAction::triggered, this, &TrayMenu::captureRequested);
    connect(m_clipboardText, &QAction::triggered, this, &TrayMenu::clipboardTextRequested);
    connect(m_update, &QAction::triggered, this, &TrayMenu::updateCheckRequested);
    connect(m_preferences, &QAction::triggered, this, &TrayMenu::preferencesRequested);
    connect(m_quit, &QAction::triggered, qApp, &QCoreApplication::quit);

    m_icon->setContextMenu(m_menu.get());
    connect(m_icon.get(), &QSystemTrayIcon::activated, this, &TrayMenu::onActivated);
    m_icon->setIcon(QIcon(trayRecoloursIcons ? QStringLiteral(":/icons/vontrel-menu-icon.svg")
                                             : QStringLiteral(":/icons/icon_512x512.png")));
    retranslate();
    m_icon->setVisible(true);
}

TrayMenu::~TrayMenu()
{
    // The icon refers to the menu; drop it first so the menu is never used half-destroyed.
    m_icon.reset();
}

void TrayMenu::setHotkeys(const QKeySequence &capture, const QKeySequence &clipboardText)
{
    m_captureHotkey = capture;
    m_clipboardTextHotkey = clipboardText;
    retranslate();
}

void TrayMenu::setHotkeysOff(const QString &reason)
{
    m_offReason = reason;
    retranslate();
}

void TrayMenu::setChecking(bool checking)
{
    m_update->setEnabled(!checking);
    retranslate();
}

void TrayMenu::retranslate()
{
    const bool off = !m_offReason.isEmpty();
    m_capture->setShortcut(off ? QKeySequence() : m_captureHotkey);
    m_clipboardText->setShortcut(off ? QKeySequence() : m_clipboardTextHotkey);
    m_hotkeysOff->setVisible(off);
    // A menu entry is one line: the first line of the reason, cut to a readable length.
    QString reason = m_offReason.section(QLatin1Char('\n'), 0, 0);
    if (reason.size() > 90)
        reason = reason.left(89) + QChar(0x2026);
    m_hotkeysOff->setText(QObject::tr("Hotkeys off: %1").arg(reason));
    m_hotkeysOff->setToolTip(m_offReason);
    m_capture->setText(QObject::tr("AI Action (Text Screenshot)"));
    m_clipboardText->setText(QObject::tr("AI Action (Selected/Clipboard Text)"));
    m_update->setText(m_update->isEnabled() ? QObject::tr("Check for Updates...")
                                            : QObject::tr("Checking..."));
    m_preferences->setText(QObject::tr("Preferences..."));
    m_quit->setText(QObject::tr("Quit"));
    m_icon->setToolTip(off ? QObject::tr("Vontrel - hotkeys off")
                           : QObject::tr("Vontrel - %1 Text Screenshot, %2 Selected/Clipboard Text")
                                 .arg(nativeText(m_captureHotkey), nativeText(m_clipboardTextHotkey)));
}

void TrayMenu::onActivated(QSystemTrayIcon::ActivationReason reason)
{
    // Trays open the context menu on a right click themselves, but a left click only reports a Trigger; with
    // no main window to show, the same menu is what the user is looking for. The macOS status item already
    // opens the menu on any click.
#ifndef Q_OS_MACOS
    if (reason == QSystemTrayIcon::Trigger && !m_menu->isVisible())
        m_menu->popup(QCursor::pos());
#else
    Q_UNUSED(reason)
#endif
}
