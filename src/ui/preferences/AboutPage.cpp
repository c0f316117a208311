#include "ui/preferences/AboutPage.h"

#include "app/Notifier.h"
#include "app/UpdatePrompt.h"
#include "ui/preferences/PreferencesPageLayout.h"

#include <QCoreApplication>
#include <QEvent>
#include <QFontMetrics>
#include <QLabel>
#include <QPushButton>
#include <QVBoxLayout>

AboutPage::AboutPage(QWidget *parent)
    : QWidget(parent)
{
    setupUI();
    retranslateUi();
    auto *notifier = new Notifier(this);
    notifier->setDialogParent([this] { return this; });
    m_updatePrompt = new UpdatePrompt(notifier, this);
    connect(m_updatePrompt, &UpdatePrompt::checkingChanged, this, [this](bool checking) {
        m_updateButton->setEnabled(!checking);
        retranslateUi();
    });
}

QString AboutPage::websiteUrl()
{
    return QStringLiteral("https://vontrel.app");
}

void AboutPage::setupUI()
{
    using namespace PreferencesPageLayout;
    QVBoxLayout *layout = pageLayout(this);
    m_titleLabel = titleLabel(this);
    layout->addWidget(m_titleLabel);

    QFrame *aboutCard = card(this, 16, 18, 16, 18, 10);
    auto *cardLayout = static_cast<QVBoxLayout *>(aboutCard->layout());

    auto *nameLabel = new QLabel(QStringLiteral("Vontrel"), aboutCard);
    nameLabel->setStyleSheet(QStringLiteral("font-size: 20px; font-weight: 600;"));
    nameLabel->setAlignment(Qt::AlignCenter);
    cardLayout->addWidget(nameLabel);

    m_versionLabel = new QLabel(aboutCard);
    m_versionLabel->setObjectName(QStringLiteral("SettingsHelpText"));
    m_versionLabel->setAlignment(Qt::AlignCenter);
    cardLayout->addWidget(m_versionLabel);

    m_descriptionLabel = new QLabel(aboutCard);
    m_descriptionLabel->setAlignment(Qt::AlignCenter);
    m_descriptionLabel->setWordWrap(true);
    m_descriptionLabel->setTextFormat(Qt::PlainText);
    m_descriptionLabel->setContentsMargins(0, 6, 0, 6);
    m_descriptionLabel->setSizePolicy(QSizePolicy::Expanding, QSizePolicy::MinimumExpanding);
    cardLayout->addWidget(m_descriptionLabel);

    m_websiteLabel = new QLabel(aboutCard);
    m_websiteLabel->setObjectName(QStringLiteral("SettingsHelpText"));
    m_websiteLabel->setAlignment(Qt::AlignCenter);
    m_websiteLabel->setTextFormat(Qt::RichText);
    m_websiteLabel->setTextInteractionFlags(Qt::TextBrowserInteraction);
    m_websiteLabel->setOpenExternalLinks(true);
    cardLayout->addWidget(m_websiteLabel);

    m_updateButton = new QPushButton(aboutCard);
    m_updateButton->setObjectName(QStringLiteral("CheckForUpdatesButton"));
    cardLayout->addWidget(m_updateButton, 0, Qt::AlignHCenter);

    layout->addWidget(aboutCard, 0, Qt::AlignTop);
    layout->addStretch();

    connect(m_updateButton, &QPushButton::clicked, this, &AboutPage::onCheckUpdatesClicked);
}

void AboutPage::setDescriptionText(const QString &text)
{
    m_descriptionLabel->setText(text);
    // Both lines must stay visible whatever their length in the current language.
    const int lines = int(text.count(QLatin1Char('\n'))) + 1;
    m_descriptionLabel->setMinimumHeight(QFontMetrics(m_descriptionLabel->font()).lineSpacing() * lines + 8);
}

void AboutPage::retranslateUi()
{
    m_titleLabel->setText(tr("About"));
    m_versionLabel->setText(tr("Version %1").arg(QCoreApplication::applicationVersion()));
    setDescriptionText(tr("A smart AI assistant for macOS and Windows.\n"
                          "Capture screenshots, recognize text, and translate instantly."));
    m_websiteLabel->setText(tr("Website: <a href=\"%1\">%1</a>").arg(websiteUrl()));
    m_updateButton->setText(m_updateButton->isEnabled() ? tr("Check for Updates") : tr("Checking..."));
}

void AboutPage::changeEvent(QEvent *event)
{
    QWidget::changeEvent(event);
    if (event->type() == QEvent::LanguageChange)
        retranslateUi();
}

void AboutPage::onCheckUpdatesClicked()
{
    m_updatePrompt->check();
}
