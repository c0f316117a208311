#pragma once

#include <QObject>
#include <QPoint>

class QWidget;

// Moves a frameless window with the left mouse button pressed on its background (not on a child, so text
// can still be selected). Installed as an event filter on the window.
class WindowDragger final : public QObject
{
    Q_OBJECT

public:
    explicit WindowDragger(QWidget *window);

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    QWidget *m_window = nullptr;
    bool m_dragging = false;
    QPoint m_offset;
};
