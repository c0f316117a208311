#include "ui/preferences/AIProviderPage.h"

#include "ai/OpenAIClient.h"
#include "ai/ProviderErrors.h"
#include "config/ConfigManager.h"
#include "ui/preferences/PreferencesPageLayout.h"

#include <QComboBox>
#include <QEvent>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QMessageBox>
#include <QPushButton>
#include <QSignalBlocker>
#include <QVBoxLayout>

namespace {

QFormLayout *formLayout()
{
    auto *form = new QFormLayout;
    form->setHorizontalSpacing(12);
    form->setVerticalSpacing(12);
    form->setLabelAlignment(Qt::AlignLeft | Qt::AlignVCenter);
    form->setFormAlignment(Qt::AlignTop);
    form->setFieldGrowthPolicy(QFormLayout::AllNonFixedFieldsGrow);
    return form;
}

} // namespace

AIProviderPage::AIProviderPage(QWidget *parent)
    : QWidget(parent)
{
    setupUI();
    loadSettings();
    retranslateUi();
}

void AIProviderPage::setupUI()
{
    using namespace PreferencesPageLayout;
    QVBoxLayout *layout = pageLayout(this);
    m_titleLabel = titleLabel(this);
    layout->addWidget(m_titleLabel);

    QFrame *fieldsCard = card(this, 16, 14, 16, 14, 12);
    QFormLayout *form = formLayout();
    m_urlLabel = new QLabel(fieldsCard);
    m_urlEdit = new QLineEdit(fieldsCard);
    m_urlEdit->setObjectName(QStringLiteral("ApiUrlEdit"));
    m_urlEdit->setPlaceholderText(ConfigManager::defaultApiUrl());
    form->addRow(m_urlLabel, m_urlEdit);
    m_keyLabel = new QLabel(fieldsCard);
    m_keyEdit = new QLineEdit(fieldsCard);
    m_keyEdit->setObjectName(QStringLiteral("ApiKeyEdit"));
    m_keyEdit->setEchoMode(QLineEdit::Password);
    m_keyEdit->setPlaceholderText(QStringLiteral("sk-xxxxxxxxxxxxxxxx"));
    form->addRow(m_keyLabel, m_keyEdit);
    m_modelLabel = new QLabel(fieldsCard);
    m_modelCombo = new QComboBox(fieldsCard);
    m_modelCombo->setObjectName(QStringLiteral("ModelCombo"));
    m_modelCombo->setEditable(true);
    // A typed model name must stay a typed name, not become a new list entry on Enter.
    m_modelCombo->setInsertPolicy(QComboBox::NoInsert);
    m_modelCombo->addItems({QStringLiteral("gpt-4o-mini"), QStringLiteral("gpt-4o"),
                            QStringLiteral("gpt-4-turbo"), QStringLiteral("claude-3-sonnet"),
                            QStringLiteral("claude-3-opus")});
    form->addRow(m_modelLabel, m_modelCombo);
    static_cast<QVBoxLayout *>(fieldsCard->layout())->addLayout(form);
    // A warning, not a block: services on a local network are often plain http.
    m_clearTextWarning = wrappedLabel(fieldsCard, "WarningText");
    m_clearTextWarning->hide();
    fieldsCard->layout()->addWidget(m_clearTextWarning);
    layout->addWidget(fieldsCard);

    QFrame *testCard = card(this, 16, 14, 16, 14, 12);
    auto *testRow = new QHBoxLayout;
    m_testButton = new QPushButton(testCard);
    m_testButton->setObjectName(QStringLiteral("TestConnectionButton"));
    testRow->addWidget(m_testButton);
    testRow->addStretch();
    static_cast<QVBoxLayout *>(testCard->layout())->addLayout(testRow);
    layout->addWidget(testCard);
    layout->addStretch();

    connect(m_urlEdit, &QLineEdit::textChanged, this, &AIProviderPage::onSettingsChanged);
    connect(m_keyEdit, &QLineEdit::textChanged, this, &AIProviderPage::onSettingsChanged);
    connect(m_modelCombo, &QComboBox::currentTextChanged, this, &AIProviderPage::onSettingsChanged);
    connect(m_testButton, &QPushButton::clicked, this, &AIProviderPage::onTestConnection);
}

void AIProviderPage::loadSettings()
{
    const QSignalBlocker blockUrl(m_urlEdit);
    const QSignalBlocker blockKey(m_keyEdit);
    const QSignalBlocker blockModel(m_modelCombo);
    ConfigManager *config = ConfigManager::instance();
    m_urlEdit->setText(config->apiUrl());
    m_keyEdit->setText(config->apiKey());
    m_modelCombo->setCurrentText(config->model());
    updateClearTextWarning();
}

void AIProviderPage::updateClearTextWarning()
{
    const QString warning = ProviderErrors::clearTextWarning(m_urlEdit->text());
    m_clearTextWarning->setText(warning);
    m_clearTextWarning->setVisible(!warning.isEmpty());
}

void AIProviderPage::retranslateUi()
{
    m_titleLabel->setText(tr("AI Provider"));
    m_urlLabel->setText(tr("Base URL:"));
    m_keyLabel->setText(tr("API Key:"));
    m_modelLabel->setText(tr("Model:"));
    m_testButton->setText(tr("Test Connection"));
    updateClearTextWarning();
}

void AIProviderPage::changeEvent(QEvent *event)
{
    QWidget::changeEvent(event);
    if (event->type() == QEvent::LanguageChange)
        retranslateUi();
}

void AIProviderPage::onSettingsChanged()
{
    ConfigManager *config = ConfigManager::instance();
    config->setApiUrl(m_urlEdit->text());
    config->setApiKey(m_keyEdit->text());
    config->setModel(m_modelCombo->currentText());
    updateClearTextWarning();
    emit settingsChanged();
}

void AIProviderPage::onTestConnection()
{
    onSettingsChanged();
    ConfigManager *config = ConfigManager::instance();
    if (config->apiKey().isEmpty()) {
        QMessageBox::warning(this, tr("Test Connection"), tr("Please enter an API key first."));
        return;
    }

    finishTestConnection();
    auto *client = new OpenAIClient(this);
    m_testClient = client;
    client->setApiUrl(config->apiUrl());
    client->setApiKey(config->apiKey());
    client->setModel(config->model());
    if (!client->isConfigured()) {
        QMessageBox::critical(this, tr("Test Connection Failed"),
                              tr("Failed to configure client. Please check your settings."));
        finishTestConnection();
        return;
    }

    m_testButton->setEnabled(false);
    connect(client, &OpenAIClient::streamingFinished, this, [this] {
        finishTestConnection();
        QMessageBox::information(this, tr("Test Connection"), tr("Connection successful! API is working."));
    });
    connect(client, &OpenAIClient::streamingError, this, [this](const QString &error) {
        finishTestConnection();
        QMessageBox::critical(this, tr("Test Connection Failed"), tr("Failed to connect:\n%1").arg(error));
    });
    client->completeStreaming(QStringLiteral("Say 'Hello' and nothing else."));
}

void AIProviderPage::finishTestConnection()
{
    if (OpenAIClient *client = m_testClient.data()) {
        m_testClient.clear();
        client->disconnect(this);
        client->cancelRequest();
        client->deleteLater();
    }
    m_testButton->setEnabled(true);
}
