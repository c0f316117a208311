#include "app/VontrelApp.h"

#include "ai/ActionService.h"
#include "app/DebugLog.h"
#include "app/GraphicalSession.h"
#include "app/SingleInstance.h"
#include "capture/CaptureService.h"
#include "config/ConfigManager.h"
#include "i18n/LanguageManager.h"
#include "ocr/IOcrProvider.h"
#include "platform/AutoStartManager.h"
#include "platform/ClipboardService.h"
#include "platform/HotkeyManager.h"
#include "platform/Platform.h"
#include "session/SessionController.h"
#include "ui/IconTint.h"
#include "ui/PermissionGuideDialog.h"
#include "ui/preferences/HotkeysPage.h"
#include "ui/preferences/PreferencesWindow.h"
#include "ui/result/ResultWindow.h"
#include "update/UpdateChecker.h"

#include <QAction>
#include <QApplication>
#include <QDebug>
#include <QDesktopServices>
#include <QFile>
#include <QGuiApplication>
#include <QMenu>
#include <QMessageBox>
#include <QPalette>
#include <QPixmap>
#include <QPushButton>
#include <QStyleHints>
#include <QSystemTrayIcon>
#include <QThreadPool>

#include <csignal>

namespace {

QString nativeText(const QKeySequence &sequence)
{
    return sequence.toString(QKeySequence::NativeText);
}

} // namespace

VontrelApp::VontrelApp(QObject *parent)
    : QObject(parent)
    , m_platform(Platform::create())
{}

VontrelApp::~VontrelApp()
{
    // The tray icon refers to the menu; drop it first so the menu is never used half-destroyed.
    m_trayIcon.reset();
    // A recognition still queued on the pool uses the OCR provider, which is destroyed with the members.
    QThreadPool::globalInstance()->waitForDone();
}

void VontrelApp::setHotkeyBackendForTesting(std::unique_ptr<IHotkeyBackend> backend)
{
    m_hotkeyBackendForTesting = std::move(backend);
}

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

QWidget *VontrelApp::dialogParent() const
{
    return m_preferencesWindow && m_preferencesWindow->isVisible() ? m_preferencesWindow.get() : nullptr;
}

void VontrelApp::showWarning(const QString &title, const QString &text, QWidget *parent)
{
    if (!m_interactive) {
        m_shownMessages << title + QLatin1Char('\n') + text;
        return;
    }
    QMessageBox::warning(parent, title, text, QMessageBox::Ok);
}

void VontrelApp::showInformation(const QString &title, const QString &text, QWidget *parent)
{
    if (!m_interactive) {
        m_shownMessages << title + QLatin1Char('\n') + text;
        return;
    }
    QMessageBox::information(parent, title, text, QMessageBox::Ok);
}

void VontrelApp::showBalloon(const QString &title, const QString &text, int msecs)
{
    m_shownBalloons << title + QLatin1Char('\n') + text;
    if (m_interactive && m_trayIcon)
        m_trayIcon->showMessage(title, text, QSystemTrayIcon::Warning, msecs);
}

void VontrelApp::completeConfiguration()
{
    ConfigManager *config = ConfigManager::instance();
    config->load();

    LanguageManager::instance()->applyLanguage(config->uiLanguage());
    connect(config, &ConfigManager::configChanged, LanguageManager::instance(),
            [config] { LanguageManager::instance()->applyLanguage(config->uiLanguage()); });

    if (config->targetLanguage().isEmpty())
        config->setTargetLanguage(ConfigManager::defaultTargetLanguageForSystem());

    const bool autoStartInstalled = AutoStartManager::instance()->isAutoStartEnabled();
    if (autoStartInstalled != config->startAtLogin())
        config->setStartAtLogin(autoStartInstalled);

    if (config->apiKey().isEmpty()) {
        const QString path = ConfigManager::configFilePath();
        qWarning().noquote() << "API key not configured. Please edit:" << path;
        config->save();
        showWarning(
            QObject::tr("Configuration Required"),
            QObject::tr("Please configure your API key in:\n%1\n\nThen restart the application.").arg(path));
    }

    // Without an X11 server the hotkeys and the capture cannot work; say so once and keep the rest usable.
    const QString limitation = m_platform->sessionLimitation();
    if (!limitation.isEmpty()) {
        qWarning().noquote() << "Vontrel:" << limitation;
        showWarning(QObject::tr("Limited Desktop Session"), limitation);
    }
}

void VontrelApp::createServices()
{
    ConfigManager *config = ConfigManager::instance();

    m_captureService = std::make_unique<CaptureService>();
    m_clipboardService = std::make_unique<ClipboardService>();
    m_hotkeyManager = m_hotkeyBackendForTesting
                          ? std::make_unique<HotkeyManager>(std::move(m_hotkeyBackendForTesting))
                          : std::make_unique<HotkeyManager>(m_platform->createHotkeyBackend());
    m_ocrProvider = m_platform->createOcrProvider();
    if (!m_ocrProvider->isAvailable())
        qWarning().noquote() << "OCR is not available on this system";

    m_selectedTextProvider = m_platform->createSelectedTextProvider();
    // The session only builds prompts; its requests stream through its own warm clients.
    m_actionService = std::make_unique<ActionService>(nullptr);
    m_actionService->setTargetLanguage(config->targetLanguage());

    m_sessionController = std::make_unique<SessionController>([platform = m_platform.get()] {
        auto *window = new ResultWindow;
        window->setPlatform(platform);
        return window;
    });
    m_sessionController->setPlatform(m_platform.get());
    m_sessionController->setConfig(config);
    m_sessionController->setCaptureService(m_captureService.get());
    m_sessionController->setClipboardService(m_clipboardService.get());
    m_sessionController->setSelectedTextProvider(m_selectedTextProvider.get());
    m_sessionController->setHotkeyManager(m_hotkeyManager.get());
    m_sessionController->setOcrProvider(m_ocrProvider.get());
    m_sessionController->setActionService(m_actionService.get());
}

void VontrelApp::logRegistration(const char *when, bool ok)
{
    qInfo().noquote() << QStringLiteral("Hotkey registration (%1): ok = %2, isRegistered = %3, capture = %4, "
                                        "clipboardText = %5, lastError = %6")
                             .arg(QLatin1String(when), ok ? QStringLiteral("true") : QStringLiteral("false"),
                                  m_hotkeyManager->isRegistered() ? QStringLiteral("true")
                                                                  : QStringLiteral("false"),
                                  nativeText(m_lastCaptureHotkey), nativeText(m_lastClipboardTextHotkey),
                                  m_hotkeyManager->lastError());
}

void VontrelApp::registerStartupHotkeys()
{
    ConfigManager *config = ConfigManager::instance();
    m_lastCaptureHotkey = HotkeysPage::effectiveHotkey(
        config->captureHotkey(), HotkeyManager::defaultCaptureHotkey(), config->clipboardTextHotkey());
    m_lastClipboardTextHotkey = HotkeysPage::effectiveHotkey(
        config->clipboardTextHotkey(), HotkeyManager::defaultClipboardTextHotkey(), config->captureHotkey());

    const bool ok = m_hotkeyManager->registerHotkeys(m_lastCaptureHotkey, m_lastClipboardTextHotkey);
    logRegistration("startup", ok);
    appendDebugLog(QStringLiteral("Startup hotkeys: capture=%1 clipboardText=%2 ok=%3")
                       .arg(nativeText(m_lastCaptureHotkey), nativeText(m_lastClipboardTextHotkey),
                            ok ? QStringLiteral("true") : QStringLiteral("false")));
    if (ok)
        return;

    // Where the system has a settings pane that grants the permission, point there; elsewhere the backend's
    // own reason (a combination another program holds, no X11 server) is what the user can act on.
    const QString hint = m_platform->hasSystemSettingsPanes()
                             ? QObject::tr("Please grant accessibility permissions to Vontrel in:\nSystem "
                                           "Preferences > Security & Privacy > Privacy > Accessibility")
                             : m_hotkeyManager->lastError();
    showWarning(QObject::tr("Hotkey Registration Failed"),
                QObject::tr("Failed to register global hotkeys.\n\n%1").arg(hint));
}

void VontrelApp::start()
{
    completeConfiguration();
    createServices();
    registerStartupHotkeys();
    const bool hotkeysOk = m_hotkeyManager->isRegistered();

    createTray();

    ConfigManager *config = ConfigManager::instance();
    connect(config, &ConfigManager::configChanged, this, &VontrelApp::applyAiSettings);
    connect(config, &ConfigManager::userNotice, this,
            [this](const QString &title, const QString &text) { showWarning(title, text, dialogParent()); });
    connect(LanguageManager::instance(), &LanguageManager::languageChanged, this,
            &VontrelApp::updateTrayTexts);
    connect(UpdateChecker::instance(), &UpdateChecker::checkSucceeded, this,
            &VontrelApp::onUpdateCheckSucceeded);
    connect(UpdateChecker::instance(), &UpdateChecker::checkFailed, this, &VontrelApp::onUpdateCheckFailed);
    connect(m_preferencesWindow.get(), &PreferencesWindow::hotkeyEditingChanged, this,
            &VontrelApp::onHotkeyEditingChanged);
    connect(m_preferencesWindow.get(), &PreferencesWindow::hotkeysChanged, this,
            &VontrelApp::onHotkeysChanged);

    if (!hotkeysOk) {
        const QString logPath = debugLogPath();
        showBalloon(QObject::tr("Hotkey Registration Failed"),
                    logPath.isEmpty()
                        ? QObject::tr("Global hotkeys are not active. Open Diagnostics from the "
                                      "tray menu for details.")
                        : QObject::tr("Global hotkeys are not active. See debug log:\n%1").arg(logPath),
                    7000);
    }

    connect(m_hotkeyManager.get(), &HotkeyManager::hotkeyTriggered, this, [](int hotkeyId) {
        qInfo().noquote() << "Hotkey triggered signal:" << hotkeyId;
        appendDebugLog(QStringLiteral("Hotkey triggered id=%1").arg(hotkeyId));
    });
    connect(m_sessionController.get(), &SessionController::error, this, &VontrelApp::onSessionError);
    connect(m_sessionController.get(), &SessionController::permissionMissing, this,
            [this](SessionController::Permission permission) {
                PermissionGuideDialog::ensurePermission(*m_platform,
                                                        permission == SessionController::Accessibility
                                                            ? PermissionGuideDialog::Accessibility
                                                            : PermissionGuideDialog::ScreenRecording);
            });

    qDebug().noquote() << "Vontrel started. Config file:" << ConfigManager::configFilePath();
}

void VontrelApp::createTray()
{
    m_trayIcon = std::make_unique<QSystemTrayIcon>();
    m_trayIcon->setToolTip(QObject::tr("Vontrel - %1 Text Screenshot, %2 Selected/Clipboard Text")
                               .arg(nativeText(m_lastCaptureHotkey), nativeText(m_lastClipboardTextHotkey)));

    m_preferencesWindow = std::make_unique<PreferencesWindow>();
    m_preferencesWindow->setPlatform(m_platform.get());
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

    // Queued, so the menu has closed before a capture overlay or a dialog opens.
    SessionController *controller = m_sessionController.get();
    connect(m_captureAction, &QAction::triggered, controller, [controller] {
        QMetaObject::invokeMethod(controller, "onHotkeyTriggered", Qt::QueuedConnection,
                                  Q_ARG(int, HotkeyManager::CaptureHotkey));
    });
    connect(m_clipboardTextAction, &QAction::triggered, controller, [controller] {
        QMetaObject::invokeMethod(controller, "onHotkeyTriggered", Qt::QueuedConnection,
                                  Q_ARG(int, HotkeyManager::ClipboardTextHotkey));
    });
    connect(m_updateAction, &QAction::triggered, this, &VontrelApp::onUpdateCheckRequested);
    connect(m_preferencesAction, &QAction::triggered, this, [this] {
        m_preferencesWindow->show();
        m_preferencesWindow->raise();
        m_preferencesWindow->activateWindow();
    });
    connect(m_quitAction, &QAction::triggered, qApp, &QCoreApplication::quit);

    m_trayIcon->setContextMenu(m_menu.get());
    QPixmap placeholder(32, 32);
    placeholder.fill(QColor(70, 130, 180));
    m_trayIcon->setIcon(QIcon(placeholder));
    const QString menuIconPath = QStringLiteral(":/icons/vontrel-menu-icon.svg");
    qDebug() << "tray icon exists:" << QFile::exists(menuIconPath);
    m_trayIcon->setIcon(
        QIcon(m_platform->trayRecoloursIcons() ? menuIconPath : QStringLiteral(":/icons/icon_512x512.png")));
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
    m_trayIcon->setToolTip(
        QObject::tr("Vontrel - %1 Text Screenshot, %2 Selected/Clipboard Text")
            .arg(nativeText(m_captureAction->shortcut()), nativeText(m_clipboardTextAction->shortcut())));
}

void VontrelApp::applyAiSettings()
{
    ConfigManager *config = ConfigManager::instance();
    m_actionService->setTargetLanguage(config->targetLanguage());
}

void VontrelApp::applyWorkingHotkeys(const QKeySequence &capture, const QKeySequence &clipboardText)
{
    m_lastCaptureHotkey = capture;
    m_lastClipboardTextHotkey = clipboardText;
    m_captureAction->setShortcut(capture);
    m_clipboardTextAction->setShortcut(clipboardText);
    updateTrayTexts();
}

void VontrelApp::onHotkeyEditingChanged(bool editing)
{
    m_hotkeyEditing = editing;
    qInfo().noquote() << "Hotkey editing:" << (editing ? "start" : "end");
    if (editing) {
        // The hotkeys stay off while the user records keys, so pressing the current pair starts no session.
        m_hotkeyManager->unregisterHotkeys();
        qInfo().noquote() << "Hotkeys temporarily disabled while editing";
        return;
    }

    const QKeySequence capture = m_hotkeyChangePending ? m_pendingCaptureHotkey : m_lastCaptureHotkey;
    const QKeySequence clipboardText =
        m_hotkeyChangePending ? m_pendingClipboardTextHotkey : m_lastClipboardTextHotkey;
    m_hotkeyChangePending = false;
    const bool ok = m_hotkeyManager->registerHotkeys(capture, clipboardText);
    qInfo().noquote() << QStringLiteral("Hotkey registration (after editing): ok = %1, isRegistered = %2, "
                                        "capture = %3, clipboardText = %4, lastError = %5")
                             .arg(ok ? QStringLiteral("true") : QStringLiteral("false"),
                                  m_hotkeyManager->isRegistered() ? QStringLiteral("true")
                                                                  : QStringLiteral("false"),
                                  nativeText(capture), nativeText(clipboardText),
                                  m_hotkeyManager->lastError());
    if (ok) {
        applyWorkingHotkeys(capture, clipboardText);
        return;
    }
    const QString reason = m_hotkeyManager->lastError();
    // Left alone, the failed pair would leave no hotkey at all until the next start: take back the pair
    // that worked, in the grabs, the settings and on the page, as a failed change does.
    const bool reverted = (capture != m_lastCaptureHotkey || clipboardText != m_lastClipboardTextHotkey) &&
                          m_hotkeyManager->registerHotkeys(m_lastCaptureHotkey, m_lastClipboardTextHotkey);
    if (reverted) {
        ConfigManager *config = ConfigManager::instance();
        config->setCaptureHotkey(m_lastCaptureHotkey);
        config->setClipboardTextHotkey(m_lastClipboardTextHotkey);
        m_preferencesWindow->setHotkeys(m_lastCaptureHotkey, m_lastClipboardTextHotkey);
    }
    showBalloon(QObject::tr("Hotkey Registration Failed"),
                reverted
                    ? QObject::tr("Failed to register hotkeys after editing.\n%1\nReverted to the previous "
                                  "working hotkeys.")
                          .arg(reason)
                    : QObject::tr("Failed to register hotkeys after editing.\n%1").arg(reason),
                5000);
}

void VontrelApp::onHotkeysChanged(const QKeySequence &capture, const QKeySequence &clipboardText)
{
    if (m_hotkeyEditing) {
        m_hotkeyChangePending = true;
        m_pendingCaptureHotkey = capture;
        m_pendingClipboardTextHotkey = clipboardText;
        qInfo().noquote() << "Hotkeys changed while editing; queued:"
                          << "capture =" << nativeText(capture)
                          << ", clipboardText =" << nativeText(clipboardText);
        return;
    }

    if (m_hotkeyManager->registerHotkeys(capture, clipboardText)) {
        applyWorkingHotkeys(capture, clipboardText);
        return;
    }

    showBalloon(QObject::tr("Hotkey Registration Failed"),
                QObject::tr("Failed to register the new hotkeys. Reverted to the previous working hotkeys."),
                5000);
    ConfigManager *config = ConfigManager::instance();
    config->setCaptureHotkey(m_lastCaptureHotkey);
    config->setClipboardTextHotkey(m_lastClipboardTextHotkey);
    m_preferencesWindow->setHotkeys(m_lastCaptureHotkey, m_lastClipboardTextHotkey);
    m_hotkeyManager->registerHotkeys(m_lastCaptureHotkey, m_lastClipboardTextHotkey);
    applyWorkingHotkeys(m_lastCaptureHotkey, m_lastClipboardTextHotkey);
}

void VontrelApp::onUpdateCheckRequested()
{
    m_updateAction->setEnabled(false);
    updateTrayTexts();
    UpdateChecker::instance()->checkNow();
}

void VontrelApp::onUpdateCheckSucceeded(bool updateAvailable, const QString &latestVersion,
                                        const QUrl &downloadUrl)
{
    // Checks started from the About page leave the menu alone.
    if (m_updateAction->isEnabled())
        return;
    m_updateAction->setEnabled(true);
    updateTrayTexts();

    QWidget *parent = dialogParent();
    if (!updateAvailable) {
        showInformation(QObject::tr("Check for Updates"), QObject::tr("You're up to date."), parent);
        return;
    }

    const QString title = QObject::tr("Update Available");
    const QString text = QObject::tr("A new version is available: %1").arg(latestVersion);
    if (!m_interactive) {
        m_shownMessages << title + QLatin1Char('\n') + text;
        return;
    }
    QMessageBox box(parent);
    box.setIcon(QMessageBox::Information);
    box.setWindowTitle(title);
    box.setText(text);
    QPushButton *download = box.addButton(QObject::tr("Download"), QMessageBox::AcceptRole);
    box.addButton(QObject::tr("Later"), QMessageBox::RejectRole);
    box.exec();
    if (box.clickedButton() == download)
        QDesktopServices::openUrl(downloadUrl);
}

void VontrelApp::onUpdateCheckFailed(const QString &message)
{
    if (m_updateAction->isEnabled())
        return;
    m_updateAction->setEnabled(true);
    updateTrayTexts();
    showWarning(QObject::tr("Check for Updates"), message, dialogParent());
}

void VontrelApp::onSessionError(const QString &message)
{
    showBalloon(QObject::tr("Vontrel Error"), message, 5000);
}

int vontrelMain(int argc, char *argv[])
{
    // A provider that closes its connection early must not end the program.
    std::signal(SIGPIPE, SIG_IGN);

    vontrelGuardPlatformStart();
    QApplication app(argc, argv);
    vontrelEndPlatformStartGuard();
    QApplication::setApplicationName(QStringLiteral("Vontrel"));
    QApplication::setApplicationVersion(QStringLiteral(VONTREL_VERSION));
    QApplication::setOrganizationName(QStringLiteral("Vontrel"));
    QApplication::setQuitOnLastWindowClosed(false);

    SingleInstance instance;
    if (!instance.claim())
        return instance.reportHandOver();

    VontrelApp vontrel;
    // Connected before start(), whose dialogs keep the event loop (and so the instance's socket) running.
    QObject::connect(&instance, &SingleInstance::activationRequested, &vontrel, [&vontrel] {
        if (QAction *preferences = vontrel.preferencesAction())
            preferences->trigger();
    });
    vontrel.start();
    return QApplication::exec();
}
