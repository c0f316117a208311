#include "FakeHotkeyBackend.h"

#include <QKeySequence>

std::pair<quint32, quint32> FakeHotkeyBackend::nativeKey(const HotkeyChord &chord) const
{
    return {quint32(vontrelMacVirtualKeyCode(chord.key)), vontrelMacModifierMask(chord.modifiers)};
}

int FakeHotkeyBackend::installHandler(QString *error)
{
    m_state->calls << QStringLiteral("install");
    if (m_state->installStatus != 0) {
        *error = m_state->errorText;
        return m_state->installStatus;
    }
    m_state->handlerInstalled = true;
    return 0;
}

void FakeHotkeyBackend::removeHandler()
{
    m_state->calls << QStringLiteral("remove");
    m_state->handlerInstalled = false;
}

int FakeHotkeyBackend::registerHotkey(int id, const HotkeyChord &chord, const QString &, QString *error)
{
    const QString text = QKeySequence(QKeyCombination(chord.modifiers, chord.key)).toString();
    m_state->calls << QStringLiteral("register %1 %2").arg(id).arg(text);
    if (const int status = m_state->registerStatus.value(id); status != 0) {
        *error = m_state->errorText;
        return status;
    }
    m_state->grabbed.insert(id, chord);
    return 0;
}

void FakeHotkeyBackend::unregisterHotkey(int id)
{
    m_state->calls << QStringLiteral("unregister %1").arg(id);
    m_state->grabbed.remove(id);
}
