#pragma once

#include "platform/Platform.h"

#include <QKeySequence>
#include <QMap>
#include <QStringList>

#include <memory>

// Records what HotkeyManager asks of a backend and fails on request; the state outlives the backend.
class FakeHotkeyBackend final : public IHotkeyBackend
{
public:
    struct State
    {
        QStringList calls;              // "install", "remove", "register 1 Meta+Shift+1", "unregister 1"
        QMap<int, HotkeyChord> grabbed; // held now, by id
        bool handlerInstalled = false;
        int installStatus = 0;         // non-zero: installHandler fails with it
        QMap<int, int> registerStatus; // id -> non-zero status to fail with
        QStringList refusedKeys;       // combinations ("Ctrl+Alt+Y") that fail whatever the id
        QString errorText;             // handed back on failures
    };
    std::shared_ptr<State> state() const { return m_state; }

    QString platformTag() const override { return QStringLiteral("fake"); }
    std::pair<quint32, quint32> nativeKey(const HotkeyChord &c) const override
    {
        return {quint32(c.key), quint32(c.modifiers.toInt())};
    }
    int installHandler(QString *error) override
    {
        m_state->calls << QStringLiteral("install");
        *error = m_state->installStatus ? m_state->errorText : QString();
        m_state->handlerInstalled = !m_state->installStatus;
        return m_state->installStatus;
    }
    void removeHandler() override
    {
        m_state->calls << QStringLiteral("remove");
        m_state->handlerInstalled = false;
    }
    int registerHotkey(int id, const HotkeyChord &c, const QString &, QString *error) override
    {
        const QString keys = QKeySequence(QKeyCombination(c.modifiers, c.key)).toString();
        m_state->calls << QStringLiteral("register %1 %2").arg(id).arg(keys);
        const int status = m_state->refusedKeys.contains(keys) ? 1 : m_state->registerStatus.value(id);
        if (status)
            *error = m_state->errorText;
        else
            m_state->grabbed.insert(id, c);
        return status;
    }
    void unregisterHotkey(int id) override
    {
        m_state->calls << QStringLiteral("unregister %1").arg(id);
        m_state->grabbed.remove(id);
    }

    // A native press of the hotkey registered under the id.
    void press(int id) { emit pressed(id, 0); }

private:
    std::shared_ptr<State> m_state = std::make_shared<State>();
};
