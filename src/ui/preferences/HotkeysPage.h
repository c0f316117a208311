#pragma once

#include <QKeySequence>
#include <QWidget>

class QKeySequenceEdit;
class QLabel;
class QPushButton;

// Page 1 of the preferences: the capture and the clipboard-text hotkeys. A valid pair is stored at once and
// announced; while an editor has the focus the page reports that hotkeys are being edited, so that the
// application can release its global grabs and the editor receives the keys.
class HotkeysPage final : public QWidget
{
    Q_OBJECT

public:
    explicit HotkeysPage(QWidget *parent = nullptr);
    ~HotkeysPage() override;

    static QKeySequence defaultCaptureHotkey();
    static QKeySequence defaultClipboardTextHotkey();
    // The hotkey in use for a stored one: an empty one stands for its default, unless the other hotkey
    // already has that combination (then it stays empty, i.e. none).
    static QKeySequence effectiveHotkey(const QKeySequence &stored, const QKeySequence &fallback,
                                        const QKeySequence &other);
    // True when both grab the same key combination.
    static bool sameHotkey(const QKeySequence &a, const QKeySequence &b);

    QKeySequence captureHotkey() const;
    QKeySequence clipboardTextHotkey() const;
    // Set one editor without validating, storing or announcing anything.
    void setCaptureHotkey(const QKeySequence &sequence);
    void setClipboardTextHotkey(const QKeySequence &sequence);

    // True when the first combination carries a modifier and a real key.
    bool isValidHotkey(const QKeySequence &sequence) const;
    // True when the sequence is one of the platform's standard editing or window shortcuts.
    bool hasConflictingHotkey(const QKeySequence &sequence, QKeySequenceEdit *editor) const;

    // The text on the warning line; empty while it is hidden.
    QString warningText() const;

    // Says above the editors that the hotkeys do not work now, and why (`reason` is shown as it is); an empty
    // reason hides it.
    void setHotkeysOff(const QString &reason);
    // The reason shown; empty while the hotkeys work.
    QString hotkeysOffText() const;

public slots:
    void onHotkeyChanged();

signals:
    void hotkeysChanged();
    void hotkeyEditingChanged(bool editing);

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;
    void changeEvent(QEvent *event) override;

private:
    void setupUI();
    void loadSettings();
    void retranslateUi();
    QString validationMessage(const QKeySequence &capture, const QKeySequence &clip) const;
    QString clearedNoticeText() const;
    void showWarning(const QString &text);
    void hideWarning();
    void onRestoreDefaults();

    QLabel *m_titleLabel = nullptr;
    QLabel *m_offLabel = nullptr;
    QLabel *m_captureLabel = nullptr;
    QKeySequenceEdit *m_captureEdit = nullptr;
    QLabel *m_captureHelp = nullptr;
    QLabel *m_clipboardLabel = nullptr;
    QKeySequenceEdit *m_clipboardEdit = nullptr;
    QLabel *m_clipboardHelp = nullptr;
    QLabel *m_warningLabel = nullptr;
    QPushButton *m_restoreButton = nullptr;

    // Which editor the last duplicate was cleared from while its notice is on the warning line.
    enum class ClearedNotice { None, ClipboardCleared, CaptureCleared };
    ClearedNotice m_clearedNotice = ClearedNotice::None;
};
