#pragma once

#include <QMetaObject>
#include <QObject>

#include <functional>

class QWidget;
class QWindow;

// Hides an unpinned result window once the user turns to something else: the window loses activation,
// another window of this process takes the focus, or the application as a whole goes to the background.
// Installed as an event filter on the window; consumes the window's deactivation events.
class ResultAutoHide final : public QObject
{
    Q_OBJECT

public:
    ResultAutoHide(QWidget *window, std::function<bool()> isPinned);
    ~ResultAutoHide() override;

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    bool mayHide() const;
    void onFocusWindowChanged(QWindow *focus);
    void watch(bool on);

    QWidget *m_window = nullptr;
    std::function<bool()> m_isPinned;
    // Set for a moment after showing: showing a window can itself cost the activation for a moment (the
    // previous application answers first), and losing it then must not hide what the user just asked for.
    bool m_inGrace = false;
    QMetaObject::Connection m_focusWindowConnection;
    QMetaObject::Connection m_appStateConnection;
};
