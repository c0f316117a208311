#pragma once

#include <QKeySequence>
#include <QObject>

class ConfigManager;
class HotkeyManager;
class Notifier;

// Keeps a working pair of global hotkeys: registers the configured pair at start, stands the hotkeys down
// while the user records new ones, and registers a changed pair; a pair that fails is reported and the last
// working pair is taken back (grabs, settings and the Hotkeys page), so the user is never left with none.
class HotkeyRegistrar final : public QObject
{
    Q_OBJECT

public:
    // With settingsPanes, a failure points the user at the system's settings pane that grants the
    // permission; otherwise the backend's own reason is what the user can act on.
    HotkeyRegistrar(HotkeyManager *manager, ConfigManager *config, Notifier *notifier, bool settingsPanes,
                    QObject *parent = nullptr);

    // The configured pair, or the defaults where none is set. False when it could not be registered (the
    // user has been told why); the pair tried still counts as the working one.
    bool registerAtStart();

    QKeySequence capture() const { return m_capture; }
    QKeySequence clipboardText() const { return m_clipboardText; }
    // Why the hotkeys do not work (a combination held elsewhere, a desktop without the shortcuts portal, a
    // binding refused); empty while they work or the desktop has yet to answer.
    QString offReason() const { return m_offReason; }

    // How to start the two actions from the desktop's own keyboard shortcuts instead, for the desktop this
    // runs on (all known ones where it cannot tell). `desktop` is XDG_CURRENT_DESKTOP's form ("GNOME",
    // "KDE", "sway", colon-separated).
    static QString desktopShortcutAdvice(const QString &desktop);

public slots:
    void onEditingChanged(bool editing);
    void onHotkeysChanged(const QKeySequence &capture, const QKeySequence &clipboardText);

signals:
    void workingPairChanged(const QKeySequence &capture, const QKeySequence &clipboardText);
    // The settings went back to the working pair; the Hotkeys page is to show it again.
    void revertedTo(const QKeySequence &capture, const QKeySequence &clipboardText);
    void offReasonChanged(const QString &reason);

private:
    bool tryPair(const char *when, const QKeySequence &capture, const QKeySequence &clipboardText);
    void setWorking(const QKeySequence &capture, const QKeySequence &clipboardText);
    void setOffReason(const QString &reason);
    // Registers the working pair again and stores it. False when it was the pair that just failed.
    bool revert(const QKeySequence &failedCapture, const QKeySequence &failedClipboardText);

    HotkeyManager *m_manager = nullptr;
    ConfigManager *m_config = nullptr;
    Notifier *m_notifier = nullptr;
    bool m_settingsPanes = false;
    QString m_offReason;
    const char *m_lastAttempt = "startup";
    QKeySequence m_capture;
    QKeySequence m_clipboardText;
    bool m_editing = false;
    bool m_changePending = false;
    QKeySequence m_pendingCapture;
    QKeySequence m_pendingClipboardText;
};
