#include "ui/preferences/TranslationSettingsPage.h"

#include "config/ConfigManager.h"
#include "ui/preferences/PreferencesPageLayout.h"

#include <QComboBox>
#include <QCoreApplication>
#include <QEvent>
#include <QFormLayout>
#include <QLabel>
#include <QSignalBlocker>
#include <QTextEdit>
#include <QVBoxLayout>

namespace {

// The stored value is the English name; the list shows it in the interface language.
const char *const kTargetLanguages[] = {
    QT_TRANSLATE_NOOP("TranslationSettingsPage", "Chinese"),
    QT_TRANSLATE_NOOP("TranslationSettingsPage", "English"),
    QT_TRANSLATE_NOOP("TranslationSettingsPage", "Japanese"),
    QT_TRANSLATE_NOOP("TranslationSettingsPage", "Korean"),
    QT_TRANSLATE_NOOP("TranslationSettingsPage", "French"),
    QT_TRANSLATE_NOOP("TranslationSettingsPage", "German"),
    QT_TRANSLATE_NOOP("TranslationSettingsPage", "Spanish"),
    QT_TRANSLATE_NOOP("TranslationSettingsPage", "Russian"),
    QT_TRANSLATE_NOOP("TranslationSettingsPage", "Italian"),
    QT_TRANSLATE_NOOP("TranslationSettingsPage", "Portuguese"),
};

} // namespace

TranslationSettingsPage::TranslationSettingsPage(QWidget *parent)
    : QWidget(parent)
{
    setupUI();
    loadSettings();
    retranslateUi();
}

void TranslationSettingsPage::setupUI()
{
    using namespace PreferencesPageLayout;
    QVBoxLayout *layout = pageLayout(this);
    m_titleLabel = titleLabel(this);
    layout->addWidget(m_titleLabel);

    QFrame *languageCard = card(this, 16, 14, 16, 14, 12);
    auto *form = new QFormLayout;
    form->setHorizontalSpacing(12);
    form->setVerticalSpacing(12);
    form->setLabelAlignment(Qt::AlignLeft | Qt::AlignVCenter);
    form->setFormAlignment(Qt::AlignTop);
    form->setFieldGrowthPolicy(QFormLayout::AllNonFixedFieldsGrow);
    m_targetLanguageLabel = new QLabel(languageCard);
    m_targetLanguageCombo = new QComboBox(languageCard);
    m_targetLanguageCombo->setObjectName(QStringLiteral("TargetLanguageCombo"));
    form->addRow(m_targetLanguageLabel, m_targetLanguageCombo);
    static_cast<QVBoxLayout *>(languageCard->layout())->addLayout(form);
    layout->addWidget(languageCard);

    QFrame *promptCard = card(this, 16, 14, 16, 14, 12);
    m_promptEdit = new QTextEdit(promptCard);
    m_promptEdit->setObjectName(QStringLiteral("SystemPromptEdit"));
    m_promptEdit->setAcceptRichText(false);
    m_promptEdit->setMinimumHeight(160);
    m_promptEdit->setMaximumHeight(260);
    promptCard->layout()->addWidget(m_promptEdit);
    layout->addWidget(promptCard);
    layout->addStretch();

    // The list is filled here already so that loadSettings() finds the entries.
    rebuildTargetLanguageCombo();
    connect(m_targetLanguageCombo, &QComboBox::currentTextChanged, this,
            &TranslationSettingsPage::onSettingsChanged);
    connect(m_promptEdit, &QTextEdit::textChanged, this, &TranslationSettingsPage::onSettingsChanged);
}

void TranslationSettingsPage::rebuildTargetLanguageCombo()
{
    const QSignalBlocker blocker(m_targetLanguageCombo);
    const QString remembered = m_targetLanguageCombo->currentData().toString();
    m_targetLanguageCombo->clear();
    for (const char *name : kTargetLanguages)
        m_targetLanguageCombo->addItem(QCoreApplication::translate("TranslationSettingsPage", name),
                                       QString::fromLatin1(name));
    const int index = m_targetLanguageCombo->findData(remembered, Qt::UserRole, Qt::MatchExactly);
    m_targetLanguageCombo->setCurrentIndex(index >= 0 ? index : 0);
}

void TranslationSettingsPage::loadSettings()
{
    const QSignalBlocker blockCombo(m_targetLanguageCombo);
    const QSignalBlocker blockPrompt(m_promptEdit);
    ConfigManager *config = ConfigManager::instance();

    QString target = config->targetLanguage();
    if (target.isEmpty())
        target = ConfigManager::defaultTargetLanguageForSystem();
    // A value written into the file by hand that is not in the list leaves the first entry selected; the
    // file keeps that value until the user changes something here.
    const int index = m_targetLanguageCombo->findData(target, Qt::UserRole, Qt::MatchExactly);
    if (index >= 0)
        m_targetLanguageCombo->setCurrentIndex(index);

    const QString prompt = config->systemPrompt();
    m_promptEdit->setPlainText(prompt.isEmpty() ? ConfigManager::defaultSystemPrompt() : prompt);
}

void TranslationSettingsPage::retranslateUi()
{
    m_titleLabel->setText(tr("AI Actions"));
    m_targetLanguageLabel->setText(tr("Target Language:"));
    rebuildTargetLanguageCombo();
}

void TranslationSettingsPage::changeEvent(QEvent *event)
{
    QWidget::changeEvent(event);
    if (event->type() == QEvent::LanguageChange)
        retranslateUi();
}

void TranslationSettingsPage::onSettingsChanged()
{
    ConfigManager *config = ConfigManager::instance();
    config->setTargetLanguage(m_targetLanguageCombo->currentData().toString());
    config->setSystemPrompt(m_promptEdit->toPlainText());
    emit settingsChanged();
}
