#pragma once

#include <QAbstractButton>
#include <QApplication>
#include <QMessageBox>
#include <QPointer>
#include <QTimer>

// Answers the modal message boxes a page opens: records what each one said and presses the chosen button
// (or closes the box with its window control when no button is named).
class MessageBoxCatcher : public QObject
{
public:
    struct Seen
    {
        QString title;
        QString text;
        QMessageBox::Icon icon;
    };

    explicit MessageBoxCatcher(const QString &answer = QString())
        : m_answer(answer)
    {
        m_timer.setInterval(5);
        connect(&m_timer, &QTimer::timeout, this, &MessageBoxCatcher::poll);
        m_timer.start();
    }

    QList<Seen> seen;

private:
    void poll()
    {
        auto *box = qobject_cast<QMessageBox *>(QApplication::activeModalWidget());
        if (!box || box == m_last)
            return;
        m_last = box;
        seen.append({box->windowTitle(), box->text(), box->icon()});
        for (QAbstractButton *button : box->buttons()) {
            if (!m_answer.isEmpty() && button->text() == m_answer) {
                button->click();
                return;
            }
        }
        if (m_answer.isEmpty())
            box->close();
        else
            box->buttons().value(0)->click();
    }

    QString m_answer;
    QTimer m_timer;
    QPointer<QMessageBox> m_last;
};
