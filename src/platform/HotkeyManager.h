#pragma once

#include <QKeySequence>
#include <QObject>
#include <QString>

#include <array>
#include <memory>

class IHotkeyBackend;

// Turns the capture and clipboard-text key sequences into system-wide hotkeys and reports each press as
// hotkeyTriggered(id), always queued, so receivers run from the event loop and never inside the native
// callback. A registration is all or nothing. GUI thread only.
class HotkeyManager final : public QObject
{
    Q_OBJECT

public:
    enum HotkeyId {
        CaptureHotkey = 1,
        ClipboardHotkey = 2, // never registered; the slot exists and stays empty
        ClipboardTextHotkey = 3,
    };
    Q_ENUM(HotkeyId)

    // Uses the platform's backend.
    explicit HotkeyManager(QObject *parent = nullptr);
    // Uses the given backend (tests hand in a fake).
    explicit HotkeyManager(std::unique_ptr<IHotkeyBackend> backend, QObject *parent = nullptr);
    ~HotkeyManager() override;

    // Registers both sequences (an empty one is skipped). False leaves nothing registered and sets
    // lastError().
    bool registerHotkeys(const QKeySequence &capture, const QKeySequence &clipboardText);
    // Registers the default pair Meta+Shift+1 and Meta+Shift+2.
    bool registerHotkeys();
    // Releases everything; keeps lastError(). Safe when nothing is registered.
    void unregisterHotkeys();
    bool isRegistered() const { return m_registered; }
    // Message of the last failed registration; null after a success.
    QString lastError() const { return m_lastError; }

    static QKeySequence defaultCaptureHotkey();
    static QKeySequence defaultClipboardTextHotkey();

    // Called by backends for every native press. Reaches the current manager only through the instance
    // pointer, and re-posts the press as a queued hotkeyTriggered; ignored when no manager exists.
    static void dispatchHotkeyPress(int hotkeyId, int readStatus = 0);

signals:
    void hotkeyTriggered(int hotkeyId);

private:
    void teardown();
    QString logPrefix() const;

    std::unique_ptr<IHotkeyBackend> m_backend;
    std::array<bool, 3> m_slots{}; // one per HotkeyId, index = id - 1
    bool m_handlerInstalled = false;
    bool m_registered = false;
    QString m_lastError;
};
