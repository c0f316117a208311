#include "ui/preferences/GeneralPage.h"

#include "config/ConfigManager.h"
#include "platform/AutoStartManager.h"
#include "ui/preferences/PreferencesPageLayout.h"

#include <QCheckBox>
#include <QComboBox>
#include <QEvent>
#include <QHBoxLayout>
#include <QLabel>
#include <QSignalBlocker>
#include <QVBoxLayout>

namespace {

// The help and status lines sit under their control, indented past the check box's indicator.
void addIndented(QVBoxLayout *row, QLabel *label)
{
    auto *line = new QHBoxLayout;
    line->setContentsMargins(0, 0, 0, 0);
    line->setSpacing(0);
    line->addSpacing(24);
    line->addWidget(label, 1);
    row->addLayout(line);
}

QVBoxLayout *rowLayout(QWidget *row)
{
    auto *layout = new QVBoxLayout(row);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(6);
    return layout;
}

} // namespace

GeneralPage::GeneralPage(QWidget *parent)
    : QWidget(parent)
{
    setupUI();
    loadSettings();
    retranslateUi();
    syncLanguageComboFromConfig();
}

void GeneralPage::setupUI()
{
    using namespace PreferencesPageLayout;
    QVBoxLayout *layout = pageLayout(this);
    m_titleLabel = titleLabel(this);
    layout->addWidget(m_titleLabel);

    QFrame *settingsCard = card(this, 16, 14, 16, 14, 14);
    auto *cardLayout = static_cast<QVBoxLayout *>(settingsCard->layout());

    auto *loginRow = new QWidget(settingsCard);
    QVBoxLayout *loginLayout = rowLayout(loginRow);
    m_startAtLoginCheck = new QCheckBox(loginRow);
    loginLayout->addWidget(m_startAtLoginCheck);
    m_startAtLoginHelp = wrappedLabel(loginRow, "SettingsHelpText");
    addIndented(loginLayout, m_startAtLoginHelp);
    m_autoStartStatus = wrappedLabel(loginRow, "SettingsHelpText");
    m_autoStartStatus->hide();
    addIndented(loginLayout, m_autoStartStatus);
    cardLayout->addWidget(loginRow);
    cardLayout->addWidget(divider(settingsCard));

    auto *pinRow = new QWidget(settingsCard);
    QVBoxLayout *pinLayout = rowLayout(pinRow);
    m_pinOverlayCheck = new QCheckBox(pinRow);
    pinLayout->addWidget(m_pinOverlayCheck);
    m_pinOverlayHelp = wrappedLabel(pinRow, "SettingsHelpText");
    addIndented(pinLayout, m_pinOverlayHelp);
    cardLayout->addWidget(pinRow);
    cardLayout->addWidget(divider(settingsCard));

    auto *languageRow = new QWidget(settingsCard);
    QVBoxLayout *languageLayout = rowLayout(languageRow);
    m_languageHeader = new QLabel(languageRow);
    m_languageHeader->setObjectName(QStringLiteral("SettingsSectionHeader"));
    languageLayout->addWidget(m_languageHeader);
    m_languageCombo = new QComboBox(languageRow);
    languageLayout->addWidget(m_languageCombo);
    m_languageHelp = wrappedLabel(languageRow, "SettingsHelpText");
    addIndented(languageLayout, m_languageHelp);
    cardLayout->addWidget(languageRow);

    layout->addWidget(settingsCard);
    layout->addStretch();

#if QT_VERSION >= QT_VERSION_CHECK(6, 7, 0)
    connect(m_startAtLoginCheck, &QCheckBox::checkStateChanged, this,
            [this](Qt::CheckState state) { onStartAtLoginChanged(state); });
    connect(m_pinOverlayCheck, &QCheckBox::checkStateChanged, this,
            [this](Qt::CheckState state) { onPinOverlayChanged(state); });
#else
    connect(m_startAtLoginCheck, &QCheckBox::stateChanged, this, &GeneralPage::onStartAtLoginChanged);
    connect(m_pinOverlayCheck, &QCheckBox::stateChanged, this, &GeneralPage::onPinOverlayChanged);
#endif
    connect(m_languageCombo, &QComboBox::currentIndexChanged, this, &GeneralPage::onLanguageChanged);
}

void GeneralPage::loadSettings()
{
    const QSignalBlocker blockLogin(m_startAtLoginCheck);
    const QSignalBlocker blockPin(m_pinOverlayCheck);
    const QSignalBlocker blockLanguage(m_languageCombo);
    ConfigManager *config = ConfigManager::instance();
    m_startAtLoginCheck->setChecked(config->startAtLogin());
    m_pinOverlayCheck->setChecked(config->pinOverlayByDefault());
}

void GeneralPage::retranslateUi()
{
    m_titleLabel->setText(tr("General"));
    m_startAtLoginCheck->setText(tr("Start at login"));
    m_startAtLoginHelp->setText(tr("Automatically start Vontrel when you log in to your computer"));
    if (!m_autoStartStatus->isHidden())
        m_autoStartStatus->setText(tr("Failed to update system auto-start setting"));
    m_pinOverlayCheck->setText(tr("Pin overlay window by default"));
    m_pinOverlayHelp->setText(tr("Keep the overlay window visible after translation completes"));
    m_languageHeader->setText(tr("App language"));
    m_languageHelp->setText(tr("Change the language used for Vontrel's user interface"));
    rebuildLanguageCombo();
}

void GeneralPage::rebuildLanguageCombo()
{
    const QSignalBlocker blocker(m_languageCombo);
    const QString remembered = m_languageCombo->currentData().toString();
    m_languageCombo->clear();
    m_languageCombo->addItem(tr("Follow System"), QString());
    m_languageCombo->addItem(tr("English"), QStringLiteral("en"));
    m_languageCombo->addItem(tr("Chinese"), QStringLiteral("zh-CN"));
    const int index = m_languageCombo->findData(remembered, Qt::UserRole, Qt::MatchExactly);
    m_languageCombo->setCurrentIndex(index >= 0 ? index : 0);
}

void GeneralPage::syncLanguageComboFromConfig()
{
    const QSignalBlocker blocker(m_languageCombo);
    const QString configured = ConfigManager::instance()->uiLanguage().trimmed();
    const int index = m_languageCombo->findData(configured, Qt::UserRole, Qt::MatchExactly);
    m_languageCombo->setCurrentIndex(index >= 0 ? index : 0);
}

void GeneralPage::changeEvent(QEvent *event)
{
    QWidget::changeEvent(event);
    if (event->type() == QEvent::LanguageChange) {
        retranslateUi();
        syncLanguageComboFromConfig();
    }
}

bool GeneralPage::startAtLogin() const
{
    return m_startAtLoginCheck->isChecked();
}

void GeneralPage::setStartAtLogin(bool enabled)
{
    m_startAtLoginCheck->setChecked(enabled);
}

bool GeneralPage::pinOverlayByDefault() const
{
    return m_pinOverlayCheck->isChecked();
}

void GeneralPage::setPinOverlayByDefault(bool enabled)
{
    m_pinOverlayCheck->setChecked(enabled);
}

void GeneralPage::onStartAtLoginChanged(int state)
{
    const bool on = state == Qt::Checked;
    ConfigManager *config = ConfigManager::instance();
    const bool stored = config->startAtLogin();
    if (AutoStartManager::instance()->setAutoStart(on)) {
        m_autoStartStatus->hide();
        config->setStartAtLogin(on);
        return;
    }
    m_autoStartStatus->setText(tr("Failed to update system auto-start setting"));
    m_autoStartStatus->show();
    const QSignalBlocker blocker(m_startAtLoginCheck);
    m_startAtLoginCheck->setChecked(stored);
}

void GeneralPage::onPinOverlayChanged(int state)
{
    ConfigManager::instance()->setPinOverlayByDefault(state == Qt::Checked);
}

void GeneralPage::onLanguageChanged(int index)
{
    Q_UNUSED(index)
    ConfigManager::instance()->setUiLanguage(m_languageCombo->currentData().toString());
}
