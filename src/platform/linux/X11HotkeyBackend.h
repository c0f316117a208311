#pragma once

#include "platform/Platform.h"

#include <QAbstractNativeEventFilter>

#include <vector>

// Global hotkeys as passive key grabs on the root window of Qt's own X connection; the presses arrive
// through a native event filter. Each combination is grabbed four times (with and without NumLock and
// CapsLock) because X delivers a grabbed key only when the modifier state matches exactly.
class X11HotkeyBackend final : public IHotkeyBackend, public QAbstractNativeEventFilter
{
public:
    X11HotkeyBackend();
    ~X11HotkeyBackend() override;

    QString platformTag() const override;
    std::pair<quint32, quint32> nativeKey(const HotkeyChord &chord) const override;
    int installHandler(QString *error) override;
    void removeHandler() override;
    int registerHotkey(int id, const HotkeyChord &chord, const QString &what, QString *error) override;
    void unregisterHotkey(int id) override;

    bool nativeEventFilter(const QByteArray &eventType, void *message, qintptr *result) override;

private:
    struct Grab
    {
        int id = 0;
        quint8 keycode = 0;
        quint16 modifiers = 0;
    };

    void readModifierMapping();
    quint16 modifierMask(Qt::KeyboardModifiers modifiers) const;
    void ungrab(const Grab &grab) const;

    std::vector<Grab> m_grabs;
    bool m_filterInstalled = false;
    quint16 m_numLockMask = 0;
    quint16 m_altMask = 0;
    quint16 m_superMask = 0;
};
