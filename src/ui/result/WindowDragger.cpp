#include "ui/result/WindowDragger.h"

#include <QMouseEvent>
#include <QWidget>

WindowDragger::WindowDragger(QWidget *window)
    : QObject(window)
    , m_window(window)
{
    window->installEventFilter(this);
}

bool WindowDragger::eventFilter(QObject *watched, QEvent *event)
{
    if (watched != m_window)
        return false;
    switch (event->type()) {
    case QEvent::MouseButtonPress: {
        auto *mouse = static_cast<QMouseEvent *>(event);
        if (mouse->button() != Qt::LeftButton)
            return false;
        QWidget *child = m_window->childAt(mouse->position().toPoint());
        if (child && child != m_window)
            return false;
        m_dragging = true;
        m_offset = mouse->globalPosition().toPoint() - m_window->frameGeometry().topLeft();
        return true;
    }
    case QEvent::MouseMove: {
        auto *mouse = static_cast<QMouseEvent *>(event);
        if (!m_dragging || !(mouse->buttons() & Qt::LeftButton))
            return false;
        m_window->move(mouse->globalPosition().toPoint() - m_offset);
        return true;
    }
    case QEvent::MouseButtonRelease:
        if (static_cast<QMouseEvent *>(event)->button() == Qt::LeftButton)
            m_dragging = false;
        return false;
    case QEvent::Hide:
        m_dragging = false;
        return false;
    default:
        return false;
    }
}
