#pragma once

#include "platform/ClipboardService.h"

#include <QElapsedTimer>
#include <QMetaObject>
#include <QObject>
#include <QString>
#include <QTimer>

#include <functional>

class ISelectedTextProvider;
class Platform;

// Reads the selection of the frontmost application by a synthetic copy keystroke, and gives the user's
// clipboard back exactly as it was: the clipboard is saved first and restored as soon as the copy has landed
// (or its wait is over). A keystroke whose copy has not been seen yet may still bring one: for a short while
// a change that brings again the selection our keystrokes copied is taken as that copy and undone. Any other
// change, and any change once every keystroke's copy has been seen, is the user's own and stays. GUI thread
// only.
class SelectionCopier final : public QObject
{
    Q_OBJECT

public:
    enum Source {
        Nothing = 0,      // no selection and no clipboard text: the user is to type
        SelectedText = 1, // the selection the copy (or the selected-text provider) brought
        Clipboard = 2,    // nothing was selected; the clipboard's own text
    };
    Q_ENUM(Source)

    explicit SelectionCopier(ClipboardService *clipboard, QObject *parent = nullptr);
    // Quitting while a copy is outstanding still leaves the user's clipboard as it was.
    ~SelectionCopier() override;

    // Where sending a keystroke would disturb the focused program (a terminal reads Ctrl+C as an interrupt),
    // preferProvider answers true and the provider's selection is read instead, leaving the clipboard alone.
    // Without a preferProvider the platform's terminal check decides.
    void setSelectedTextProvider(ISelectedTextProvider *provider, std::function<bool()> preferProvider);
    // The system that sends the copy keystroke; without one, start() fails.
    void setPlatform(Platform *platform) { m_platform = platform; }

    // Starts reading; finished() follows once, with this tag. False, with the clipboard untouched and nothing
    // emitted, when the keystroke could not be sent. A read still outstanding is abandoned first.
    bool start(quint64 tag);
    // Ends an outstanding read without a result and hands the clipboard back at once.
    void abandon();
    bool isActive() const { return m_active; }

signals:
    // The text as it will be sent: a selection trimmed, the clipboard's text untouched; empty with Nothing.
    void finished(quint64 tag, const QString &text, SelectionCopier::Source source);

private:
    bool readsProvider() const;
    void finish(quint64 generation, bool changed);
    QString clipboardText() const;
    // Watches for the copies still owed by keystrokes already sent.
    void startRestoreGuard();
    void disarmRestoreGuard();
    // Forgets the copies owed: whatever comes now is the user's.
    void stopRestoreGuard();
    void onClipboardChangedAfterRestore();

    ClipboardService *m_clipboard = nullptr;
    Platform *m_platform = nullptr;
    ISelectedTextProvider *m_provider = nullptr;
    std::function<bool()> m_preferProvider;
    bool m_active = false;
    bool m_readingProvider = false;
    quint64 m_generation = 0;
    quint64 m_tag = 0;
    // Keystrokes sent whose copy has not been seen, and when the last one went.
    int m_copiesOwed = 0;
    QElapsedTimer m_sinceKeystroke;
    // The last selection a keystroke of ours copied (trimmed): what a late copy would bring again.
    QString m_copiedText;
    ClipboardService::Snapshot m_snapshot;
    QMetaObject::Connection m_copyLanded;
    QTimer m_restoreGuardTimer;
    QMetaObject::Connection m_restoreGuardConnection;
};
