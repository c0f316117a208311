#pragma once

#include <QWidget>

class QLabel;
class QPushButton;
class UpdatePrompt;

// Name, version, description and web site of the application, and a button that checks for a newer
// version and reports the answer in a message box.
class AboutPage final : public QWidget
{
    Q_OBJECT

public:
    explicit AboutPage(QWidget *parent = nullptr);

    // The vendor's web site named on the page.
    static QString websiteUrl();

public slots:
    void onCheckUpdatesClicked();

protected:
    void changeEvent(QEvent *event) override;

private:
    void setupUI();
    void retranslateUi();
    void setDescriptionText(const QString &text);

    QLabel *m_titleLabel = nullptr;
    QLabel *m_versionLabel = nullptr;
    QLabel *m_descriptionLabel = nullptr;
    QLabel *m_websiteLabel = nullptr;
    QPushButton *m_updateButton = nullptr;
    UpdatePrompt *m_updatePrompt = nullptr;
};
