#pragma once

#include <QWidget>

class QComboBox;
class QLabel;
class QTextEdit;

// The page titled "AI Actions": the target language of translations and the translation prompt, stored at
// once on every change.
class TranslationSettingsPage final : public QWidget
{
    Q_OBJECT

public:
    explicit TranslationSettingsPage(QWidget *parent = nullptr);

signals:
    void settingsChanged();

public slots:
    void onSettingsChanged();

protected:
    void changeEvent(QEvent *event) override;

private:
    void setupUI();
    void loadSettings();
    void retranslateUi();
    void rebuildTargetLanguageCombo();

    QLabel *m_titleLabel = nullptr;
    QLabel *m_targetLanguageLabel = nullptr;
    QComboBox *m_targetLanguageCombo = nullptr;
    QTextEdit *m_promptEdit = nullptr;
};
