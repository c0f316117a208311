#pragma once

#include "platform/IHotkeyBackend.h"

#include <QMap>
#include <QStringList>

#include <memory>

// Records what HotkeyManager asks of a backend and fails on request. The state lives in a shared record so
// that a test keeps looking at it after handing the backend to the manager.
class FakeHotkeyBackend final : public IHotkeyBackend
{
public:
    struct State
    {
        QStringList calls;              // "install", "remove", "register 1 Meta+Shift+1", "unregister 1"
        QMap<int, HotkeyChord> grabbed; // what is held now, by id
        bool handlerInstalled = false;
        int installStatus = 0;         // non-zero: installHandler fails with it
        QMap<int, int> registerStatus; // id -> non-zero status to fail with
        QString errorText;             // message handed back on failures (empty: the manager's default)
    };

    FakeHotkeyBackend()
        : m_state(std::make_shared<State>())
    {}
    std::shared_ptr<State> state() const { return m_state; }

    QString platformTag() const override { return QStringLiteral("fake"); }
    std::pair<quint32, quint32> nativeKey(const HotkeyChord &chord) const override;
    int installHandler(QString *error) override;
    void removeHandler() override;
    int registerHotkey(int id, const HotkeyChord &chord, const QString &what, QString *error) override;
    void unregisterHotkey(int id) override;

private:
    std::shared_ptr<State> m_state;
};
