#pragma once

#include <QWidget>

class QCheckBox;
class QComboBox;
class QLabel;

// Page 0 of the preferences: start at login, pin the result window by default, interface language. Every
// change is carried out and stored at once.
class GeneralPage final : public QWidget
{
    Q_OBJECT

public:
    explicit GeneralPage(QWidget *parent = nullptr);

    bool startAtLogin() const;
    // Goes through the same handler as a click (the auto-start entry is updated).
    void setStartAtLogin(bool enabled);
    bool pinOverlayByDefault() const;
    void setPinOverlayByDefault(bool enabled);

protected:
    void changeEvent(QEvent *event) override;

private:
    void setupUI();
    void loadSettings();
    void retranslateUi();
    void rebuildLanguageCombo();
    void syncLanguageComboFromConfig();

    void onStartAtLoginChanged(int state);
    void onPinOverlayChanged(int state);
    void onLanguageChanged(int index);

    QLabel *m_titleLabel = nullptr;
    QCheckBox *m_startAtLoginCheck = nullptr;
    QLabel *m_startAtLoginHelp = nullptr;
    QLabel *m_autoStartStatus = nullptr;
    QCheckBox *m_pinOverlayCheck = nullptr;
    QLabel *m_pinOverlayHelp = nullptr;
    QLabel *m_languageHeader = nullptr;
    QComboBox *m_languageCombo = nullptr;
    QLabel *m_languageHelp = nullptr;
};
