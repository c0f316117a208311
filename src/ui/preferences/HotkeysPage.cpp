#include "ui/preferences/HotkeysPage.h"

#include "config/ConfigManager.h"
#include "ui/preferences/PreferencesPageLayout.h"

#include <QApplication>
#include <QEvent>
#include <QHBoxLayout>
#include <QKeySequenceEdit>
#include <QLabel>
#include <QPointer>
#include <QPushButton>
#include <QSignalBlocker>
#include <QTimer>
#include <QVBoxLayout>

namespace {

constexpr int kFirstModifierBit = 0x02000000;
constexpr int kKeyMask = 0x01FFFFFF;

QWidget *hotkeyRow(QWidget *parent, QLabel *label, QKeySequenceEdit *editor, QLabel *help)
{
    auto *row = new QWidget(parent);
    auto *layout = new QVBoxLayout(row);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(8);
    auto *line = new QHBoxLayout;
    line->setContentsMargins(0, 0, 0, 0);
    line->setSpacing(12);
    label->setParent(row);
    label->setMinimumWidth(170);
    editor->setParent(row);
    editor->setFixedWidth(170);
    line->addWidget(label);
    line->addWidget(editor);
    line->addStretch();
    layout->addLayout(line);
    help->setParent(row);
    layout->addWidget(help);
    return row;
}

} // namespace

HotkeysPage::HotkeysPage(QWidget *parent)
    : QWidget(parent)
{
    setupUI();
    loadSettings();
    retranslateUi();
}

HotkeysPage::~HotkeysPage()
{
    // Closing the window finishes a recording in progress, and the editors report it while this page is
    // already half destroyed: they must not reach it any more.
    for (QKeySequenceEdit *editor : {m_captureEdit, m_clipboardEdit}) {
        editor->removeEventFilter(this);
        editor->disconnect(this);
    }
}

QKeySequence HotkeysPage::effectiveHotkey(const QKeySequence &stored, const QKeySequence &fallback,
                                          const QKeySequence &other)
{
    // An editor emptied because the other took its combination stays empty: its default is very often that
    // very combination, and standing in for it would give one combination to both hotkeys.
    if (!stored.isEmpty() || sameHotkey(fallback, other))
        return stored;
    return fallback;
}

bool HotkeysPage::sameHotkey(const QKeySequence &a, const QKeySequence &b)
{
    // A global hotkey is the first combination only; "Meta+Shift+1, A" grabs what "Meta+Shift+1" grabs.
    return !a.isEmpty() && !b.isEmpty() && a[0] == b[0];
}

QKeySequence HotkeysPage::defaultCaptureHotkey()
{
    return QKeySequence(Qt::META | Qt::SHIFT | Qt::Key_1);
}

QKeySequence HotkeysPage::defaultClipboardTextHotkey()
{
    return QKeySequence(Qt::META | Qt::SHIFT | Qt::Key_2);
}

void HotkeysPage::setupUI()
{
    using namespace PreferencesPageLayout;
    QVBoxLayout *layout = pageLayout(this);
    m_titleLabel = titleLabel(this);
    layout->addWidget(m_titleLabel);

    QFrame *settingsCard = card(this, 16, 14, 16, 14, 14);
    auto *cardLayout = static_cast<QVBoxLayout *>(settingsCard->layout());

    m_offLabel = wrappedLabel(settingsCard, "WarningText");
    m_offLabel->setTextInteractionFlags(Qt::TextSelectableByMouse);
    m_offLabel->hide();
    cardLayout->addWidget(m_offLabel);

    m_captureLabel = new QLabel;
    m_captureEdit = new QKeySequenceEdit;
    m_captureEdit->setObjectName(QStringLiteral("CaptureHotkeyEdit"));
    m_captureHelp = wrappedLabel(settingsCard, "SettingsHelpText");
    cardLayout->addWidget(hotkeyRow(settingsCard, m_captureLabel, m_captureEdit, m_captureHelp));
    cardLayout->addWidget(divider(settingsCard));

    m_clipboardLabel = new QLabel;
    m_clipboardEdit = new QKeySequenceEdit;
    m_clipboardEdit->setObjectName(QStringLiteral("ClipboardHotkeyEdit"));
    m_clipboardHelp = wrappedLabel(settingsCard, "SettingsHelpText");
    cardLayout->addWidget(hotkeyRow(settingsCard, m_clipboardLabel, m_clipboardEdit, m_clipboardHelp));

    m_warningLabel = wrappedLabel(settingsCard, "WarningText");
    m_warningLabel->hide();
    cardLayout->addWidget(m_warningLabel);
    m_restoreButton = new QPushButton(settingsCard);
    cardLayout->addWidget(m_restoreButton, 0, Qt::AlignLeft);

    layout->addWidget(settingsCard);
    layout->addStretch();

    for (QKeySequenceEdit *editor : {m_captureEdit, m_clipboardEdit}) {
        // A clear button is the only way to empty an editor: every key pressed in it is recorded.
        editor->setClearButtonEnabled(true);
        // A global hotkey is one key combination; the editor would otherwise record up to four in a row.
#if QT_VERSION >= QT_VERSION_CHECK(6, 5, 0)
        editor->setMaximumSequenceLength(1);
#else
        connect(editor, &QKeySequenceEdit::editingFinished, this, [editor] {
            const QKeySequence sequence = editor->keySequence();
            if (sequence.count() > 1)
                editor->setKeySequence(QKeySequence(sequence[0]));
        });
#endif
        editor->installEventFilter(this);
        connect(editor, &QKeySequenceEdit::keySequenceChanged, this, &HotkeysPage::onHotkeyChanged);
    }
    connect(m_restoreButton, &QPushButton::clicked, this, &HotkeysPage::onRestoreDefaults);
}

void HotkeysPage::loadSettings()
{
    const QSignalBlocker blockCapture(m_captureEdit);
    const QSignalBlocker blockClipboard(m_clipboardEdit);
    ConfigManager *config = ConfigManager::instance();
    const QKeySequence capture = config->captureHotkey();
    const QKeySequence clip = config->clipboardTextHotkey();
    m_captureEdit->setKeySequence(effectiveHotkey(capture, defaultCaptureHotkey(), clip));
    m_clipboardEdit->setKeySequence(effectiveHotkey(clip, defaultClipboardTextHotkey(), capture));

    // A pair edited into the file by hand may be unusable: say so at once, but store and announce nothing.
    const QString message = validationMessage(m_captureEdit->keySequence(), m_clipboardEdit->keySequence());
    if (!message.isEmpty())
        showWarning(message);
}

void HotkeysPage::retranslateUi()
{
    m_titleLabel->setText(tr("Hotkeys"));
    m_captureLabel->setText(tr("Capture Screen"));
    m_captureHelp->setText(tr("Capture a region of the screen for OCR and translation"));
    m_clipboardLabel->setText(tr("Process Clipboard"));
    m_clipboardHelp->setText(tr("Process text from clipboard for translation"));
    m_restoreButton->setText(tr("Restore Defaults"));
    // Show the warning again in the new language. Validating afresh (rather than re-running the change
    // handler) keeps a duplicate notice on screen and stores and announces nothing.
    if (!m_warningLabel->isHidden()) {
        const QString message =
            validationMessage(m_captureEdit->keySequence(), m_clipboardEdit->keySequence());
        if (!message.isEmpty())
            m_warningLabel->setText(message);
        else if (m_clearedNotice != ClearedNotice::None)
            m_warningLabel->setText(clearedNoticeText());
        else
            hideWarning();
    }
}

QString HotkeysPage::clearedNoticeText() const
{
    switch (m_clearedNotice) {
    case ClearedNotice::ClipboardCleared:
        return tr("Clipboard hotkey was cleared due to conflict. Please set a different one.");
    case ClearedNotice::CaptureCleared:
        return tr("Capture hotkey was cleared due to conflict. Please set a different one.");
    case ClearedNotice::None:
        break;
    }
    return QString();
}

void HotkeysPage::showWarning(const QString &text)
{
    m_warningLabel->setText(text);
    m_warningLabel->show();
}

void HotkeysPage::hideWarning()
{
    m_clearedNotice = ClearedNotice::None;
    m_warningLabel->hide();
}

void HotkeysPage::changeEvent(QEvent *event)
{
    QWidget::changeEvent(event);
    if (event->type() == QEvent::LanguageChange)
        retranslateUi();
}

QKeySequence HotkeysPage::captureHotkey() const
{
    return m_captureEdit->keySequence();
}

QKeySequence HotkeysPage::clipboardTextHotkey() const
{
    return m_clipboardEdit->keySequence();
}

void HotkeysPage::setCaptureHotkey(const QKeySequence &sequence)
{
    const QSignalBlocker blocker(m_captureEdit);
    m_captureEdit->setKeySequence(sequence);
}

void HotkeysPage::setClipboardTextHotkey(const QKeySequence &sequence)
{
    const QSignalBlocker blocker(m_clipboardEdit);
    m_clipboardEdit->setKeySequence(sequence);
}

QString HotkeysPage::warningText() const
{
    return m_warningLabel->isHidden() ? QString() : m_warningLabel->text();
}

bool HotkeysPage::isValidHotkey(const QKeySequence &sequence) const
{
    if (sequence.isEmpty())
        return false;
    const int combined = sequence[0].toCombined();
    const int key = combined & kKeyMask;
    return (combined & ~kKeyMask) >= kFirstModifierBit && key != 0 && key != Qt::Key_unknown;
}

bool HotkeysPage::hasConflictingHotkey(const QKeySequence &sequence, QKeySequenceEdit *editor) const
{
    Q_UNUSED(editor)
    static const QKeySequence::StandardKey reserved[] = {
        QKeySequence::Copy, QKeySequence::Paste, QKeySequence::Cut,   QKeySequence::SelectAll,
        QKeySequence::Undo, QKeySequence::Redo,  QKeySequence::Print, QKeySequence::Close,
        QKeySequence::Quit, QKeySequence::Save,
    };
    for (QKeySequence::StandardKey standard : reserved) {
        const QKeySequence binding(standard);
        if (!binding.isEmpty() && sequence.matches(binding) == QKeySequence::ExactMatch)
            return true;
    }
    return false;
}

QString HotkeysPage::validationMessage(const QKeySequence &capture, const QKeySequence &clip) const
{
    if (capture.isEmpty() && clip.isEmpty())
        return tr("At least one hotkey must be set");
    if (!capture.isEmpty() && !isValidHotkey(capture))
        return tr("Invalid capture hotkey. Must include modifier (Ctrl/Cmd, Alt, or Shift)");
    if (!clip.isEmpty() && !isValidHotkey(clip))
        return tr("Invalid clipboard hotkey. Must include modifier (Ctrl/Cmd, Alt, or Shift)");
    if (!capture.isEmpty() && hasConflictingHotkey(capture, m_captureEdit))
        return tr("Capture hotkey conflicts with a system shortcut");
    if (!clip.isEmpty() && hasConflictingHotkey(clip, m_clipboardEdit))
        return tr("Clipboard hotkey conflicts with a system shortcut");
    // Only a pair edited into the file gets here: an edit on this page empties the other editor first.
    if (sameHotkey(capture, clip))
        return tr("The capture and clipboard hotkeys are both %1. Please set a different one.")
            .arg(capture.toString(QKeySequence::NativeText));
    return QString();
}

void HotkeysPage::onHotkeyChanged()
{
    QKeySequence capture = m_captureEdit->keySequence();
    QKeySequence clip = m_clipboardEdit->keySequence();
    QObject *source = sender();
    const bool fromEditor = source == m_captureEdit || source == m_clipboardEdit;

    bool clearedOther = false;
    if (fromEditor && sameHotkey(capture, clip)) {
        if (source == m_captureEdit) {
            setClipboardTextHotkey(QKeySequence());
            clip = QKeySequence();
            m_clearedNotice = ClearedNotice::ClipboardCleared;
        } else {
            setCaptureHotkey(QKeySequence());
            capture = QKeySequence();
            m_clearedNotice = ClearedNotice::CaptureCleared;
        }
        showWarning(clearedNoticeText());
        clearedOther = true;
    }

    const QString message = validationMessage(capture, clip);
    if (!message.isEmpty()) {
        m_clearedNotice = ClearedNotice::None;
        showWarning(message);
        return;
    }

    if (!clearedOther)
        hideWarning();
    ConfigManager *config = ConfigManager::instance();
    config->setCaptureHotkey(capture);
    config->setClipboardTextHotkey(clip);
    emit hotkeysChanged();
}

void HotkeysPage::onRestoreDefaults()
{
    m_captureEdit->setKeySequence(defaultCaptureHotkey());
    m_clipboardEdit->setKeySequence(defaultClipboardTextHotkey());
    onHotkeyChanged();
}

bool HotkeysPage::eventFilter(QObject *watched, QEvent *event)
{
    if (watched == m_captureEdit || watched == m_clipboardEdit) {
        if (event->type() == QEvent::FocusIn) {
            emit hotkeyEditingChanged(true);
        } else if (event->type() == QEvent::FocusOut) {
            // Decide after the focus has settled, so that moving from one editor to the other reports no end.
            QTimer::singleShot(0, this, [this] {
                emit hotkeyEditingChanged(m_captureEdit->hasFocus() || m_clipboardEdit->hasFocus());
            });
        }
    }
    return QWidget::eventFilter(watched, event);
}

void HotkeysPage::setHotkeysOff(const QString &reason)
{
    m_offLabel->setText(reason);
    m_offLabel->setVisible(!reason.isEmpty());
}

QString HotkeysPage::hotkeysOffText() const
{
    return m_offLabel->isHidden() ? QString() : m_offLabel->text();
}
