#include "app/VontrelApp.h"

#include "app/DebugLog.h"
#include "config/ConfigManager.h"
#include "ui/IconTint.h"

#include <QAction>
#include <QApplication>
#include <QDebug>
#include <QFile>
#include <QGuiApplication>
#include <QMenu>
#include <QMessageBox>
#include <QPalette>
#include <QPixmap>
#include <QSystemTrayIcon>

#include <csignal>

namespace {

const QKeySequence kDefaultCaptureHotkey(Qt::META | Qt::SHIFT | Qt::Key_1);
const QKeySequence kDefaultClipboardTextHotkey(Qt::META | Qt::SHIFT | Qt::Key_2);

QKeySequence orDefault(const QKeySequence &configured, const QKeySequence &fallback)
{
    return configured.isEmpty() ? fallback : configured;
}

} // namespace

VontrelApp::VontrelApp(QObject *parent)
    : QObject(parent)
{}

VontrelApp::~VontrelApp() = default;

QColor VontrelApp::menuIconColor()
{
#if QT_VERSION >= QT_VERSION_CHECK(6, 5, 0)
    if (const QStyleHints *hints = QGuiApplication::styleHints()) {
        if (hints->colorScheme() == Qt::ColorScheme::Light)
            return QColor(QStringLiteral("#333333"));
        if (hints->colorScheme() == Qt::ColorScheme::Dark)
            return QColor(QStringLiteral("#e0e0e0"));
    }
#endif
    const QColor window = QGuiApplication::palette().color(QPalette::Window);
    return QColor(window.lightness() >= 128 ? QStringLiteral("#333333") : QStringLiteral("#e0e0e0"));
}

void VontrelApp::showWarning(const QString &title, const QString &text)
{
    if (!m_interactive) {
        m_shownMessages << title + QLatin1Char('\n') + text;
        return;
    }
    QMessageBox::warning(nullptr, title, text, QMessageBox::Ok);
}

void VontrelApp::completeConfiguration()
{
    ConfigManager *config = ConfigManager::instance();
    config->load();

    if (config->targetLanguage().isEmpty())
        config->setTargetLanguage(ConfigManager::defaultTargetLanguageForSystem());

    if (config->apiKey().isEmpty()) {
        const QString path = ConfigManager::configFilePath();
        qWarning().noquote() << "API key not configured. Please edit:" << path;
        config->save();
        showWarning(
            QObject::tr("Configuration Required"),
            QObject::tr("Please configure your API key in:\n%1\n\nThen restart the application.").arg(path));
    }
}

void VontrelApp::start()
{
    completeConfiguration();

    ConfigManager *config = ConfigManager::instance();
    m_lastCaptureHotkey = orDefault(config->captureHotkey(), kDefaultCaptureHotkey);
    m_lastClipboardTextHotkey = orDefault(config->clipboardTextHotkey(), kDefaultClipboardTextHotkey);

    createTray();
    qDebug().noquote() << "Vontrel started. Config file:" << ConfigManager::configFilePath();
}

void VontrelApp::createTray()
{
    m_trayIcon = std::make_unique<QSystemTrayIcon>();
    m_menu = std::make_unique<QMenu>();

    const QColor iconColor = menuIconColor();
    const QIcon captureIcon = tintedMenuIcon(QStringLiteral(":/icons/capture.svg"), iconColor);
    const QIcon clipboardIcon = tintedMenuIcon(QStringLiteral(":/icons/clipboard-text.svg"), iconColor);
    const QIcon refreshIcon = tintedMenuIcon(QStringLiteral(":/icons/refresh.svg"), iconColor);
    const QIcon settingsIcon = tintedMenuIcon(QStringLiteral(":/icons/settings.svg"), iconColor);
    const QIcon exitIcon = tintedMenuIcon(QStringLiteral(":/icons/exit.svg"), iconColor);

    m_captureAction = m_menu->addAction(captureIcon, QString());
    m_captureAction->setShortcut(m_lastCaptureHotkey);
    m_captureAction->setShortcutVisibleInContextMenu(true);
    m_clipboardTextAction = m_menu->addAction(clipboardIcon, QString());
    m_clipboardTextAction->setShortcut(m_lastClipboardTextHotkey);
    m_clipboardTextAction->setShortcutVisibleInContextMenu(true);
    m_menu->addSeparator();
    m_updateAction = m_menu->addAction(refreshIcon, QString());
    m_preferencesAction = m_menu->addAction(settingsIcon, QString());
    m_preferencesAction->setShortcut(QKeySequence());
    m_menu->addSeparator();
    m_quitAction = m_menu->addAction(exitIcon, QString());
    m_quitAction->setShortcut(QKeySequence::Quit);
    m_quitAction->setShortcutVisibleInContextMenu(true);

    updateTrayTexts();
    connect(m_quitAction, &QAction::triggered, qApp, &QCoreApplication::quit);

    m_trayIcon->setContextMenu(m_menu.get());
    QPixmap placeholder(32, 32);
    placeholder.fill(QColor(70, 130, 180));
    m_trayIcon->setIcon(QIcon(placeholder));
    const QString menuIconPath = QStringLiteral(":/icons/vontrel-menu-icon.svg");
    qDebug() << "tray icon exists:" << QFile::exists(menuIconPath);
    m_trayIcon->setIcon(QIcon(menuIconPath));
    m_trayIcon->setVisible(true);
}

void VontrelApp::updateTrayTexts()
{
    if (!m_menu)
        return;
    m_captureAction->setText(QObject::tr("AI Action (Text Screenshot)"));
    m_clipboardTextAction->setText(QObject::tr("AI Action (Selected/Clipboard Text)"));
    m_updateAction->setText(m_updateAction->isEnabled() ? QObject::tr("Check for Updates...")
                                                        : QObject::tr("Checking..."));
    m_preferencesAction->setText(QObject::tr("Preferences..."));
    m_quitAction->setText(QObject::tr("Quit"));
    m_trayIcon->setToolTip(QObject::tr("Vontrel - %1 Text Screenshot, %2 Selected/Clipboard Text")
                               .arg(m_captureAction->shortcut().toString(QKeySequence::NativeText),
                                    m_clipboardTextAction->shortcut().toString(QKeySequence::NativeText)));
}

int vontrelMain(int argc, char *argv[])
{
    // A provider that closes its connection early must not end the program.
    std::signal(SIGPIPE, SIG_IGN);

    QApplication app(argc, argv);
    QApplication::setApplicationName(QStringLiteral("Vontrel"));
    QApplication::setApplicationVersion(QStringLiteral(VONTREL_VERSION));
    QApplication::setOrganizationName(QStringLiteral("Vontrel"));
    QApplication::setQuitOnLastWindowClosed(false);

    VontrelApp vontrel;
    vontrel.start();
    return QApplication::exec();
}
