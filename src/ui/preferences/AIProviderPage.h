#pragma once

#include <QPointer>
#include <QWidget>

class OpenAIClient;
class QComboBox;
class QLabel;
class QLineEdit;
class QPushButton;

// The service's base URL, API key and model, stored as typed on every edit, and a connection test that
// streams a tiny request through a client of its own.
class AIProviderPage final : public QWidget
{
    Q_OBJECT

public:
    explicit AIProviderPage(QWidget *parent = nullptr);

    // True while a connection test is running.
    bool isTesting() const { return !m_testClient.isNull(); }

signals:
    void settingsChanged();

public slots:
    void onSettingsChanged();
    void onTestConnection();

protected:
    void changeEvent(QEvent *event) override;

private:
    void setupUI();
    void loadSettings();
    void retranslateUi();
    void finishTestConnection();
    // Shows, under the address, that the key would travel unencrypted to another network's host.
    void updateClearTextWarning();

    QLabel *m_titleLabel = nullptr;
    QLabel *m_urlLabel = nullptr;
    QLabel *m_keyLabel = nullptr;
    QLabel *m_modelLabel = nullptr;
    QLineEdit *m_urlEdit = nullptr;
    QLineEdit *m_keyEdit = nullptr;
    QComboBox *m_modelCombo = nullptr;
    QLabel *m_clearTextWarning = nullptr;
    QPushButton *m_testButton = nullptr;
    QPointer<OpenAIClient> m_testClient;
};
