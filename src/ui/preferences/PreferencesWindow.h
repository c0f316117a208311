#pragma once

#include <QKeySequence>
#include <QWidget>

class AIProviderPage;
class AboutPage;
class GeneralPage;
class HotkeysPage;
class Platform;
class QListWidget;
class QStackedWidget;
class TranslationSettingsPage;

// The one settings window: a sidebar of page names, a stack of the five pages, and the style sheet they are
// all drawn with. Closing it only hides it; it lives until the application ends.
class PreferencesWindow final : public QWidget
{
    Q_OBJECT

public:
    enum Page {
        GeneralPageIndex = 0,
        HotkeysPageIndex,
        AIProviderPageIndex,
        AIActionsPageIndex,
        AboutPageIndex
    };

    explicit PreferencesWindow(QWidget *parent = nullptr);
    // The system whose Dock icon shows while the window is open; none by default.
    void setPlatform(Platform *platform) { m_platform = platform; }

    // The sequences currently in the Hotkeys page's editors.
    QKeySequence captureHotkey() const;
    QKeySequence clipboardTextHotkey() const;
    // Shows a pair in the Hotkeys page without validating or storing it (used to show a reverted pair).
    void setHotkeys(const QKeySequence &capture, const QKeySequence &clipboardText);
    // Selects a page by index; out-of-range indices are ignored.
    void showPage(int index);

    int currentPage() const;
    GeneralPage *generalPage() const { return m_generalPage; }
    HotkeysPage *hotkeysPage() const { return m_hotkeysPage; }
    AIProviderPage *aiProviderPage() const { return m_aiProviderPage; }
    TranslationSettingsPage *translationSettingsPage() const { return m_translationSettingsPage; }
    AboutPage *aboutPage() const { return m_aboutPage; }

signals:
    void hotkeysChanged(const QKeySequence &capture, const QKeySequence &clipboardText);
    void hotkeyEditingChanged(bool editing);
    void aiSettingsChanged();

public slots:
    void onSidebarCurrentRowChanged(int row);
    void onHotkeysChanged();
    void onAISettingsChanged();

protected:
    void closeEvent(QCloseEvent *event) override;
    void keyPressEvent(QKeyEvent *event) override;
    void showEvent(QShowEvent *event) override;
    void hideEvent(QHideEvent *event) override;
    void changeEvent(QEvent *event) override;
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    void setupUI();
    void setupSidebar();
    void retranslateUi();
    void applyTheme();

    QListWidget *m_sidebar = nullptr;
    QStackedWidget *m_content = nullptr;
    GeneralPage *m_generalPage = nullptr;
    HotkeysPage *m_hotkeysPage = nullptr;
    AIProviderPage *m_aiProviderPage = nullptr;
    TranslationSettingsPage *m_translationSettingsPage = nullptr;
    AboutPage *m_aboutPage = nullptr;
    bool m_applyingTheme = false;
    Platform *m_platform = nullptr;
};
