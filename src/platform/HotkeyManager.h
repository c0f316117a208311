#pragma once

#include <QKeySequence>
#include <QObject>
#include <QString>

#include <array>
#include <memory>

#include "platform/Platform.h"

// Turns the capture and clipboard-text key sequences into system-wide hotkeys and reports each press as
// hotkeyTriggered(id, timestamp), always queued, so receivers run from the event loop and never inside the
// native callback. A registration is all or nothing. GUI thread only.
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

    // Takes the backend of Platform::createHotkeyBackend() (tests hand in a fake).
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
    // True after a registration the backend has sent but the system has not answered yet (a desktop portal);
    // registrationConfirmed() or registrationFailed() follows.
    bool isAwaitingAnswer() const { return m_awaitingAnswer; }
    // Message of the last failed registration; null after a success.
    QString lastError() const { return m_lastError; }

    static QKeySequence defaultCaptureHotkey();
    static QKeySequence defaultClipboardTextHotkey();

signals:
    // `timestamp` is the key event's system time (0 when unknown), for activating the window it opens.
    void hotkeyTriggered(int hotkeyId, quint64 timestamp);
    // A binding the backend had accepted was refused later (an asynchronous backend); nothing is registered
    // any more.
    void registrationFailed(const QString &error);
    // The system granted a registration that was awaiting its answer.
    void registrationConfirmed();

private:
    void teardown();
    QString logPrefix() const;

    std::unique_ptr<IHotkeyBackend> m_backend;
    std::array<bool, 3> m_slots{}; // one per HotkeyId, index = id - 1
    bool m_handlerInstalled = false;
    bool m_registered = false;
    bool m_awaitingAnswer = false;
    QString m_lastError;
};
