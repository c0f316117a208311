#include "ui/preferences/PreferencesWindow.h"

#include "platform/Platform.h"
#include "ui/ThemeColors.h"
#include "ui/preferences/AIProviderPage.h"
#include "ui/preferences/AboutPage.h"
#include "ui/preferences/GeneralPage.h"
#include "ui/preferences/HotkeysPage.h"
#include "ui/preferences/TranslationSettingsPage.h"

#include <QApplication>
#include <QCloseEvent>
#include <QCoreApplication>
#include <QFrame>
#include <QGuiApplication>
#include <QHBoxLayout>
#include <QKeyEvent>
#include <QListWidget>
#include <QScreen>
#include <QStackedWidget>

namespace {

struct PageTexts
{
    const char *name;
    const char *subtitle;
};

const PageTexts kPages[] = {
    {QT_TRANSLATE_NOOP("PreferencesWindow", "General"),
     QT_TRANSLATE_NOOP("PreferencesWindow", "General settings")},
    {QT_TRANSLATE_NOOP("PreferencesWindow", "Hotkeys"),
     QT_TRANSLATE_NOOP("PreferencesWindow", "Keyboard shortcuts")},
    {QT_TRANSLATE_NOOP("PreferencesWindow", "AI Provider"),
     QT_TRANSLATE_NOOP("PreferencesWindow", "API provider settings")},
    {QT_TRANSLATE_NOOP("PreferencesWindow", "AI Actions"),
     QT_TRANSLATE_NOOP("PreferencesWindow", "AI action settings")},
    {QT_TRANSLATE_NOOP("PreferencesWindow", "About"),
     QT_TRANSLATE_NOOP("PreferencesWindow", "Application information")},
};
constexpr int kPageCount = int(sizeof(kPages) / sizeof(kPages[0]));

QString translatedPageText(const char *text)
{
    return QCoreApplication::translate("PreferencesWindow", text);
}

// Placeholders, in order: windowBackground, textPrimary, sidebarSelected, sidebarHover, windowBorder,
// cardBackground, inputBorder, textSecondary, warning colour, inputBackground, inputFocusBorder,
// buttonBorder, buttonBackground, buttonText, buttonHover, buttonPressed, buttonDisabledBackground,
// buttonDisabledText, indicatorBorder, indicatorChecked.
const char kStyleSheet[] = R"(
QWidget#PreferencesWindow { background-color: %1; color: %2; }
QListWidget#PreferencesSidebar { background-color: %1; outline: none; border: none; padding: 10px 0px; }
QListWidget#PreferencesSidebar::item { border-radius: 0px; padding: 10px 0px 10px 14px; margin: 0px; color: %2; }
QListWidget#PreferencesSidebar::item:selected { background-color: %3; color: %2; }
QListWidget#PreferencesSidebar::item:hover:!selected { background-color: %4; }
QFrame#PreferencesSeparator { color: %5; }
QFrame#SettingsCard { background-color: %6; border: 1px solid %7; border-radius: 10px; }
QFrame#CardDivider { color: %7; }
QLabel#SettingsTitle { font-size: 22px; font-weight: 600; color: %2; }
QLabel#SettingsSectionHeader { font-size: 13px; font-weight: 600; color: %2; }
QLabel#SettingsHelpText { color: %8; font-size: 12px; }
QLabel#WarningText { color: %9; font-size: 12px; }
QLineEdit, QTextEdit, QComboBox, QKeySequenceEdit { background-color: %10; color: %2; border: 1px solid %7; border-radius: 6px; padding: 6px 8px; font-size: 13px; }
QLineEdit:focus, QTextEdit:focus, QComboBox:focus, QKeySequenceEdit:focus { border: 1px solid %11; }
QComboBox::drop-down { border: 0px; }
QPushButton { padding: 6px 10px; border: 1px solid %12; border-radius: 6px; background-color: %13; color: %14; font-size: 13px; }
QPushButton:hover { background-color: %15; }
QPushButton:pressed { background-color: %16; }
QPushButton:disabled { background-color: %17; color: %18; border-color: %17; }
QCheckBox, QRadioButton { color: %2; spacing: 8px; }
QCheckBox::indicator, QRadioButton::indicator { width: 14px; height: 14px; border: 1px solid %19; background-color: %10; }
QCheckBox::indicator { border-radius: 4px; }
QRadioButton::indicator { border-radius: 8px; }
QCheckBox::indicator:hover, QRadioButton::indicator:hover { border-color: %11; }
QCheckBox::indicator:checked { border-color: %20; background-color: %20; image: url(:/icons/check-mark.svg); }
QRadioButton::indicator:checked { border-color: %20; background-color: qradialgradient(cx: 0.5, cy: 0.5, radius: 0.5, fx: 0.5, fy: 0.5, stop: 0 #ffffff, stop: 0.38 #ffffff, stop: 0.45 %20, stop: 1 %20); }
QCheckBox::indicator:disabled, QRadioButton::indicator:disabled { border-color: %17; background-color: %17; }
)";

} // namespace

PreferencesWindow::PreferencesWindow(QWidget *parent)
    : QWidget(parent, Qt::Window)
{
    setObjectName(QStringLiteral("PreferencesWindow"));
    setupUI();

    connect(m_sidebar, &QListWidget::currentRowChanged, this, &PreferencesWindow::onSidebarCurrentRowChanged);
    connect(m_hotkeysPage, &HotkeysPage::hotkeysChanged, this, &PreferencesWindow::onHotkeysChanged);
    connect(m_hotkeysPage, &HotkeysPage::hotkeyEditingChanged, this,
            &PreferencesWindow::hotkeyEditingChanged);
    connect(m_aiProviderPage, &AIProviderPage::settingsChanged, this,
            &PreferencesWindow::onAISettingsChanged);
    connect(m_translationSettingsPage, &TranslationSettingsPage::settingsChanged, this,
            &PreferencesWindow::onAISettingsChanged);
    retranslateUi();
    // WORKAROUND(Qt): once its style sheet has given the window a palette of its own, Qt stops sending it
    // palette changes; the application object still hears about every switch between light and dark.
    qApp->installEventFilter(this);

    resize(700, 500);
    if (const QScreen *screen = QGuiApplication::primaryScreen()) {
        const QRect area = screen->geometry();
        move((area.width() - width()) / 2, (area.height() - height()) / 2);
    }
}

void PreferencesWindow::setupUI()
{
    auto *layout = new QHBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(0);

    m_sidebar = new QListWidget(this);
    m_sidebar->setObjectName(QStringLiteral("PreferencesSidebar"));
    m_sidebar->setFixedWidth(180);
    m_sidebar->setFrameShape(QFrame::NoFrame);
    m_sidebar->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    setupSidebar();
    layout->addWidget(m_sidebar, 0);

    auto *separator = new QFrame(this);
    separator->setObjectName(QStringLiteral("PreferencesSeparator"));
    separator->setFrameShape(QFrame::VLine);
    separator->setFrameShadow(QFrame::Plain);
    layout->addWidget(separator, 0);

    m_content = new QStackedWidget(this);
    m_content->setObjectName(QStringLiteral("PreferencesContent"));
    m_generalPage = new GeneralPage(this);
    m_hotkeysPage = new HotkeysPage(this);
    m_aiProviderPage = new AIProviderPage(this);
    m_translationSettingsPage = new TranslationSettingsPage(this);
    m_aboutPage = new AboutPage(this);
    m_content->addWidget(m_generalPage);
    m_content->addWidget(m_hotkeysPage);
    m_content->addWidget(m_aiProviderPage);
    m_content->addWidget(m_translationSettingsPage);
    m_content->addWidget(m_aboutPage);
    layout->addWidget(m_content, 1);

    m_sidebar->setCurrentRow(0);
    applyTheme();
}

void PreferencesWindow::setupSidebar()
{
    m_sidebar->setViewMode(QListView::ListMode);
    m_sidebar->setSpacing(0);
    m_sidebar->setUniformItemSizes(true);
    for (int i = 0; i < kPageCount; ++i) {
        auto *item = new QListWidgetItem(translatedPageText(kPages[i].name), m_sidebar);
        item->setData(Qt::UserRole, i);
        item->setData(Qt::SizeHintRole, QSize(0, 36));
        item->setToolTip(translatedPageText(kPages[i].subtitle));
    }
}

void PreferencesWindow::retranslateUi()
{
    setWindowTitle(tr("Preferences"));
    if (m_sidebar->count() < kPageCount)
        return;
    for (int i = 0; i < kPageCount; ++i) {
        QListWidgetItem *item = m_sidebar->item(i);
        item->setText(translatedPageText(kPages[i].name));
        item->setToolTip(translatedPageText(kPages[i].subtitle));
    }
}

void PreferencesWindow::applyTheme()
{
    // Setting a style sheet makes Qt send palette changes of its own; they must not start another round.
    if (m_applyingTheme)
        return;
    m_applyingTheme = true;

    const ThemeColors c = vontrelThemeColors();
    const QString warning = c.isDark ? QStringLiteral("#ff6b6b") : QStringLiteral("#d64545");
    const QString sheet =
        QString::fromLatin1(kStyleSheet)
            .arg(c.windowBackground, c.textPrimary, c.sidebarSelected, c.sidebarHover, c.windowBorder,
                 c.cardBackground, c.inputBorder, c.textSecondary, warning)
            .arg(c.inputBackground, c.inputFocusBorder, c.buttonBorder, c.buttonBackground, c.buttonText,
                 c.buttonHover, c.buttonPressed, c.buttonDisabledBackground, c.buttonDisabledText)
            .arg(c.indicatorBorder, c.indicatorChecked);
    // Re-setting an identical sheet would re-polish every child for nothing.
    if (styleSheet() != sheet)
        setStyleSheet(sheet);

    m_applyingTheme = false;
}

QKeySequence PreferencesWindow::captureHotkey() const
{
    return m_hotkeysPage->captureHotkey();
}

QKeySequence PreferencesWindow::clipboardTextHotkey() const
{
    return m_hotkeysPage->clipboardTextHotkey();
}

void PreferencesWindow::setHotkeys(const QKeySequence &capture, const QKeySequence &clipboardText)
{
    m_hotkeysPage->setCaptureHotkey(capture);
    m_hotkeysPage->setClipboardTextHotkey(clipboardText);
}

void PreferencesWindow::showPage(int index)
{
    if (index < 0 || index >= m_content->count())
        return;
    m_sidebar->setCurrentRow(index);
    m_content->setCurrentIndex(index);
}

int PreferencesWindow::currentPage() const
{
    return m_content->currentIndex();
}

void PreferencesWindow::onSidebarCurrentRowChanged(int row)
{
    if (row < 0 || row >= m_content->count())
        return;
    m_content->setCurrentIndex(row);
}

void PreferencesWindow::onHotkeysChanged()
{
    emit hotkeysChanged(m_hotkeysPage->captureHotkey(), m_hotkeysPage->clipboardTextHotkey());
}

void PreferencesWindow::onAISettingsChanged()
{
    emit aiSettingsChanged();
}

void PreferencesWindow::closeEvent(QCloseEvent *event)
{
    event->ignore();
    hide();
}

void PreferencesWindow::keyPressEvent(QKeyEvent *event)
{
    // Escape reaches the window only when the focused control has no use for it (a hotkey editor records it,
    // an open list closes itself), and then does what the close button does.
    if (event->key() == Qt::Key_Escape && event->modifiers() == Qt::NoModifier) {
        close();
        return;
    }
    QWidget::keyPressEvent(event);
}

void PreferencesWindow::showEvent(QShowEvent *event)
{
    QWidget::showEvent(event);
    if (m_platform)
        m_platform->setDockIconVisible(true);
}

void PreferencesWindow::hideEvent(QHideEvent *event)
{
    QWidget::hideEvent(event);
    if (m_platform)
        m_platform->setDockIconVisible(false);
}

bool PreferencesWindow::eventFilter(QObject *watched, QEvent *event)
{
    if (watched == qApp && event->type() == QEvent::ApplicationPaletteChange)
        applyTheme();
    return QWidget::eventFilter(watched, event);
}

void PreferencesWindow::changeEvent(QEvent *event)
{
    QWidget::changeEvent(event);
    switch (event->type()) {
    case QEvent::PaletteChange:
    case QEvent::ApplicationPaletteChange:
    case QEvent::ThemeChange:
        applyTheme();
        break;
    case QEvent::LanguageChange:
        retranslateUi();
        break;
    default:
        break;
    }
}
