#include "app/VontrelApp.h"

#include "ai/ActionService.h"
#include "app/DebugLog.h"
#include "app/GraphicalSession.h"
#include "app/HotkeyRegistrar.h"
#include "app/Notifier.h"
#include "app/SingleInstance.h"
#include "app/TrayMenu.h"
#include "app/UpdatePrompt.h"
#include "capture/CaptureService.h"
#include "config/ConfigManager.h"
#include "i18n/LanguageManager.h"
#include "log/LogCategories.h"
#include "ocr/IOcrProvider.h"
#include "platform/AutoStartManager.h"
#include "platform/ClipboardService.h"
#include "platform/HotkeyManager.h"
#include "platform/Platform.h"
#include "session/SessionController.h"
#include "ui/PermissionGuideDialog.h"
#include "ui/preferences/HotkeysPage.h"
#include "ui/preferences/PreferencesWindow.h"
#include "ui/result/ResultWindow.h"

#include <QAction>
#include <QApplication>
#include <QDebug>
#include <QIcon>
#include <QScreen>
#include <QSystemTrayIcon>
#include <QThreadPool>
#include <QTimer>

#include <csignal>

VontrelApp::VontrelApp(QObject *parent)
    : QObject(parent)
    , m_notifier(new Notifier(this))
    , m_platform(Platform::create())
{
    m_notifier->setDialogParent([this]() -> QWidget * {
        return m_preferencesWindow && m_preferencesWindow->isVisible() ? m_preferencesWindow.get() : nullptr;
    });
}

VontrelApp::~VontrelApp()
{
    // The tray first: its menu's entries refer to the services.
    m_tray.reset();
    // A recognition still queued on the pool uses the OCR provider, which is destroyed with the members.
    QThreadPool::globalInstance()->waitForDone();
}

void VontrelApp::setInteractive(bool interactive)
{
    m_notifier->setInteractive(interactive);
}

QStringList VontrelApp::shownMessages() const
{
    return m_notifier->shownMessages();
}

QStringList VontrelApp::shownBalloons() const
{
    return m_notifier->shownBalloons();
}

void VontrelApp::setHotkeyBackendForTesting(std::unique_ptr<IHotkeyBackend> backend)
{
    m_hotkeyBackendForTesting = std::move(backend);
}

void VontrelApp::setPlatformForTesting(std::unique_ptr<Platform> platform)
{
    m_platform = std::move(platform);
}

QMenu *VontrelApp::trayMenu() const
{
    return m_tray ? m_tray->menu() : nullptr;
}

QSystemTrayIcon *VontrelApp::trayIcon() const
{
    return m_tray ? m_tray->icon() : nullptr;
}

QAction *VontrelApp::captureAction() const
{
    return m_tray ? m_tray->captureAction() : nullptr;
}

QAction *VontrelApp::clipboardTextAction() const
{
    return m_tray ? m_tray->clipboardTextAction() : nullptr;
}

QAction *VontrelApp::updateAction() const
{
    return m_tray ? m_tray->updateAction() : nullptr;
}

QAction *VontrelApp::preferencesAction() const
{
    return m_tray ? m_tray->preferencesAction() : nullptr;
}

QAction *VontrelApp::quitAction() const
{
    return m_tray ? m_tray->quitAction() : nullptr;
}

QKeySequence VontrelApp::lastWorkingCaptureHotkey() const
{
    return m_hotkeys ? m_hotkeys->capture() : QKeySequence();
}

QKeySequence VontrelApp::lastWorkingClipboardTextHotkey() const
{
    return m_hotkeys ? m_hotkeys->clipboardText() : QKeySequence();
}

void VontrelApp::onHotkeyEditingChanged(bool editing)
{
    m_hotkeys->onEditingChanged(editing);
}

void VontrelApp::onHotkeysChanged(const QKeySequence &capture, const QKeySequence &clipboardText)
{
    m_hotkeys->onHotkeysChanged(capture, clipboardText);
}

void VontrelApp::onSessionError(const QString &message)
{
    m_notifier->balloon(QObject::tr("Vontrel Error"), message, 5000);
}

void VontrelApp::completeConfiguration()
{
    ConfigManager *config = ConfigManager::instance();
    // Before the load: what it finds about the file is held until someone listens, and must not be lost.
    connect(config, &ConfigManager::userNotice, m_notifier, &Notifier::warn);
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
        qCWarning(lcApp).noquote() << "API key not configured. Please edit:" << path;
        config->save();
        // A settings file kept aside explains the missing key: its notice comes first.
        config->deliverNotices();
        m_notifier->warn(
            QObject::tr("Configuration Required"),
            QObject::tr("Please configure your API key in:\n%1\n\nThen restart the application.").arg(path));
    }

    // Without an X11 server the hotkeys and the capture cannot work; say so once and keep the rest usable.
    const QString limitation = m_platform->sessionLimitation();
    if (!limitation.isEmpty()) {
        qCWarning(lcApp).noquote() << "Vontrel:" << limitation;
        m_notifier->warn(QObject::tr("Limited Desktop Session"), limitation);
    }
}

void VontrelApp::createServices()
{
    ConfigManager *config = ConfigManager::instance();

    m_captureService = std::make_unique<CaptureService>();
    m_captureService->setScreenSource([this](QScreen *screen, QObject *context, auto done) {
        m_screenshotAwaited = true;
        m_platform->grabScreen(screen, context, [this, done](const ScreenGrab &grab) {
            m_screenshotAwaited = false;
            done(grab);
        });
    });
    m_clipboardService = std::make_unique<ClipboardService>();
    m_hotkeyManager = m_hotkeyBackendForTesting
                          ? std::make_unique<HotkeyManager>(std::move(m_hotkeyBackendForTesting))
                          : std::make_unique<HotkeyManager>(m_platform->createHotkeyBackend());
    m_ocrProvider = m_platform->createOcrProvider();
    if (!m_ocrProvider->isAvailable())
        qCWarning(lcApp).noquote() << "OCR is not available on this system";

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
    // Where no copy keystroke can be sent (Wayland) or it would interrupt (a terminal), the selection is read
    // as it is, then the clipboard.
    m_sessionController->setSelectedTextProvider(m_selectedTextProvider.get(), [platform = m_platform.get()] {
        return !platform->canSendCopyKeystroke() || platform->focusedWindowIsTerminal();
    });
    m_sessionController->setHotkeyManager(m_hotkeyManager.get());
    m_sessionController->setOcrProvider(m_ocrProvider.get());
    m_sessionController->setActionService(m_actionService.get());
}

void VontrelApp::start()
{
    completeConfiguration();
    createServices();
    m_hotkeys = std::make_unique<HotkeyRegistrar>(m_hotkeyManager.get(), ConfigManager::instance(),
                                                  m_notifier, m_platform->hasSystemSettingsPanes());
    const bool hotkeysOk = m_hotkeys->registerAtStart();
    createTray();
    showHotkeyStatus();
    connect(m_hotkeys.get(), &HotkeyRegistrar::offReasonChanged, this, &VontrelApp::showHotkeyStatus);
    connect(LanguageManager::instance(), &LanguageManager::languageChanged, this,
            &VontrelApp::showHotkeyStatus);
    connect(m_platform.get(), &Platform::refusalRemembered, this, [this](Platform::Permission permission) {
        if (!m_notifier->ask(QObject::tr("Screenshots Refused"),
                             QObject::tr("The desktop refuses Vontrel's screenshots because of an earlier "
                                         "Deny that it keeps. Should it ask again at the next capture?"),
                             QObject::tr("Ask Again"), QObject::tr("Not Now")))
            return;
        if (m_platform->forgetRefusal(permission))
            m_notifier->balloon(QObject::tr("Screenshots Refused"),
                                QObject::tr("Capture again: the desktop will ask whether Vontrel may take "
                                            "screenshots."),
                                7000);
        else
            m_notifier->balloon(QObject::tr("Screenshots Refused"),
                                QObject::tr("The desktop's stored answer could not be removed; see the "
                                            "capture's message for the command that does it."),
                                7000);
    });
    connect(m_platform.get(), &Platform::notice, m_notifier,
            [this](const QString &title, const QString &text) { m_notifier->balloon(title, text, 10000); });

    ConfigManager *config = ConfigManager::instance();
    connect(config, &ConfigManager::configChanged, this,
            [this, config] { m_actionService->setTargetLanguage(config->targetLanguage()); });
    connect(m_preferencesWindow.get(), &PreferencesWindow::hotkeyEditingChanged, m_hotkeys.get(),
            &HotkeyRegistrar::onEditingChanged);
    connect(m_preferencesWindow.get(), &PreferencesWindow::hotkeysChanged, m_hotkeys.get(),
            &HotkeyRegistrar::onHotkeysChanged);
    connect(m_hotkeys.get(), &HotkeyRegistrar::revertedTo, m_preferencesWindow.get(),
            &PreferencesWindow::setHotkeys);

    if (!hotkeysOk) {
        const QString logPath = debugLogPath();
        m_notifier->balloon(
            QObject::tr("Hotkey Registration Failed"),
            logPath.isEmpty() ? QObject::tr("Global hotkeys are not active.")
                              : QObject::tr("Global hotkeys are not active. See debug log:\n%1").arg(logPath),
            7000);
    }

    connect(m_hotkeyManager.get(), &HotkeyManager::hotkeyTriggered, this, [this](int hotkeyId) {
        qCInfo(lcApp).noquote() << "Hotkey triggered signal:" << hotkeyId;
        appendDebugLog(QStringLiteral("Hotkey triggered id=%1").arg(hotkeyId));
        // The session took the press already; a capture it could not start because a screenshot is still
        // awaited is told here.
        if (hotkeyId == HotkeyManager::CaptureHotkey && m_screenshotAwaited)
            startAction(hotkeyId, 0);
    });
    connect(m_sessionController.get(), &SessionController::error, this, &VontrelApp::onSessionError);
    // A desktop portal answers the binding later, and may refuse it or lack the interface; each reason is
    // told once, and the tray keeps working.
    connect(m_hotkeyManager.get(), &HotkeyManager::registrationFailed, this, [this](const QString &error) {
        if (m_toldHotkeyFailures.contains(error))
            return;
        m_toldHotkeyFailures.insert(error);
        m_notifier->balloon(QObject::tr("Global Hotkeys Unavailable"), hotkeysOffText(), 10000);
    });
    connect(m_sessionController.get(), &SessionController::permissionMissing, this,
            [this](SessionController::Permission permission) {
                PermissionGuideDialog::ensurePermission(*m_platform,
                                                        permission == SessionController::Accessibility
                                                            ? PermissionGuideDialog::Accessibility
                                                            : PermissionGuideDialog::ScreenRecording);
            });
    qCDebug(lcApp).noquote() << "Vontrel started. Config file:" << ConfigManager::configFilePath();
}

void VontrelApp::createTray()
{
    m_preferencesWindow = std::make_unique<PreferencesWindow>();
    m_preferencesWindow->setPlatform(m_platform.get());
    m_tray = std::make_unique<TrayMenu>(m_platform->trayRecoloursIcons());
    m_notifier->setTrayIcon(m_tray->icon());
    m_tray->setHotkeys(m_hotkeys->capture(), m_hotkeys->clipboardText());
    connect(m_hotkeys.get(), &HotkeyRegistrar::workingPairChanged, m_tray.get(), &TrayMenu::setHotkeys);
    connect(LanguageManager::instance(), &LanguageManager::languageChanged, m_tray.get(),
            &TrayMenu::retranslate);

    // Queued, so the menu has closed before a capture overlay or a dialog opens.
    connect(
        m_tray.get(), &TrayMenu::captureRequested, this,
        [this] { startAction(HotkeyManager::CaptureHotkey, 0); }, Qt::QueuedConnection);
    connect(
        m_tray.get(), &TrayMenu::clipboardTextRequested, this,
        [this] { startAction(HotkeyManager::ClipboardTextHotkey, 0); }, Qt::QueuedConnection);

    m_updatePrompt = new UpdatePrompt(m_notifier, this);
    connect(m_tray.get(), &TrayMenu::updateCheckRequested, m_updatePrompt, &UpdatePrompt::check);
    connect(m_updatePrompt, &UpdatePrompt::checkingChanged, m_tray.get(), &TrayMenu::setChecking);
    connect(m_tray.get(), &TrayMenu::preferencesRequested, this, [this] { showPreferences(0); });
}

void VontrelApp::showPreferences(quint64 timestamp)
{
    m_preferencesWindow->show();
    m_preferencesWindow->raise();
    m_preferencesWindow->activateWindow();
    if (timestamp)
        m_platform->activateWindow(m_preferencesWindow->windowHandle(), timestamp);
}

void VontrelApp::startAction(int hotkeyId, quint64 timestamp)
{
    if (hotkeyId == HotkeyManager::CaptureHotkey && m_screenshotAwaited) {
        m_notifier->balloon(
            QObject::tr("Screenshot Pending"),
            QObject::tr("The capture asked for earlier is still waiting for the desktop's "
                        "screenshot. If the desktop asks whether to allow screenshots, answer "
                        "it: the capture goes on as soon as the screenshot arrives."),
            7000);
        return;
    }
    m_sessionController->onHotkeyTriggered(hotkeyId, timestamp);
}

void VontrelApp::handleRequest(const InstanceRequest &request)
{
    // Under focus-stealing prevention only the desktop's token for this launch lets the window the action
    // opens take the focus: Qt hands the compositor the token in this variable at the next activation.
    if (!request.activationToken.isEmpty())
        qputenv("XDG_ACTIVATION_TOKEN", request.activationToken);
    const quint64 time = InstanceRequest::startupTime(request.startupId);
    switch (request.action) {
    case InstanceRequest::Capture:
        qCInfo(lcApp).noquote() << "Capture asked for on the command line";
        startAction(HotkeyManager::CaptureHotkey, time);
        break;
    case InstanceRequest::Selection:
        qCInfo(lcApp).noquote() << "Selected-text translation asked for on the command line";
        startAction(HotkeyManager::ClipboardTextHotkey, time);
        break;
    case InstanceRequest::ShowPreferences:
        showPreferences(time);
        break;
    }
}

QString VontrelApp::hotkeysOffText() const
{
    const QString reason = m_hotkeys ? m_hotkeys->offReason() : QString();
    if (reason.isEmpty())
        return {};
    QString text = QObject::tr("Global hotkeys are off: %1").arg(reason);
#if defined(Q_OS_UNIX) && !defined(Q_OS_MACOS)
    text += QStringLiteral("\n\n") +
            HotkeyRegistrar::desktopShortcutAdvice(qEnvironmentVariable("XDG_CURRENT_DESKTOP"));
    if (!m_notifier->trayShown())
        text += QStringLiteral("\n\n") +
                QObject::tr("This desktop shows no tray icon: start Vontrel again, or open it from the "
                            "applications menu, to reach its Preferences.");
#endif
    return text;
}

void VontrelApp::showHotkeyStatus()
{
    const QString reason = m_hotkeys->offReason();
    m_tray->setHotkeysOff(reason);
    m_preferencesWindow->hotkeysPage()->setHotkeysOff(hotkeysOffText());
}

int vontrelMain(int argc, char *argv[], CommandLineAction action)
{
    // A provider that closes its connection early must not end the program.
    std::signal(SIGPIPE, SIG_IGN);

    // Taken before Qt starts: its X11 plugin consumes the startup id of this launch.
    const InstanceRequest request = InstanceRequest::fromEnvironment(
        action == CommandLineAction::Capture     ? InstanceRequest::Capture
        : action == CommandLineAction::Selection ? InstanceRequest::Selection
                                                 : InstanceRequest::ShowPreferences);

    vontrelGuardPlatformStart();
    QApplication app(argc, argv);
    vontrelEndPlatformStartGuard();
    QApplication::setApplicationName(QStringLiteral("Vontrel"));
    QApplication::setApplicationVersion(QStringLiteral(VONTREL_VERSION));
    QApplication::setOrganizationName(QStringLiteral("Vontrel"));
    // The Wayland app id: the compositor finds the desktop entry and its icon by it.
    QGuiApplication::setDesktopFileName(QStringLiteral(VONTREL_APP_ID));
    // X11 window managers show this in task switchers; an icon theme may bring its own version of it.
    QApplication::setWindowIcon(
        QIcon::fromTheme(QStringLiteral(VONTREL_APP_ID), QIcon(QStringLiteral(":/icons/icon_512x512.png"))));
    QApplication::setQuitOnLastWindowClosed(false);

    SingleInstance instance;
    if (!instance.claim(request))
        return instance.reportHandOver();

    VontrelApp vontrel;
    vontrel.setCommandLineAction(action);
    // Connected before start(), whose dialogs keep the event loop (and so the instance's socket) running.
    QObject::connect(&instance, &SingleInstance::requested, &vontrel, &VontrelApp::handleRequest);
    vontrel.start();
    // A first start asked for an action runs it once it is up, from the event loop like a hotkey's. A plain
    // one opens no window, and its launch token would only be turned down when a window opens much later.
    if (request.action != InstanceRequest::ShowPreferences)
        QTimer::singleShot(0, &vontrel, [&vontrel, request] { vontrel.handleRequest(request); });
    else
        qunsetenv("XDG_ACTIVATION_TOKEN");
    return QApplication::exec();
}
