#include "app/Notifier.h"

#include <QMessageBox>
#include <QPushButton>
#include <QSystemTrayIcon>

#include <utility>

Notifier::Notifier(QObject *parent)
    : QObject(parent)
{}

bool Notifier::record(const QString &title, const QString &text)
{
    if (m_interactive)
        return false;
    m_shownMessages << title + QLatin1Char('\n') + text;
    return true;
}

void Notifier::warn(const QString &title, const QString &text)
{
    if (!record(title, text))
        QMessageBox::warning(dialogParent(), title, text, QMessageBox::Ok);
}

void Notifier::inform(const QString &title, const QString &text)
{
    if (!record(title, text))
        QMessageBox::information(dialogParent(), title, text, QMessageBox::Ok);
}

bool Notifier::ask(const QString &title, const QString &text, const QString &accept, const QString &reject)
{
    if (record(title, text))
        return std::exchange(m_nextAnswer, false);
    QMessageBox box(QMessageBox::Information, title, text, QMessageBox::NoButton, dialogParent());
    QPushButton *yes = box.addButton(accept, QMessageBox::AcceptRole);
    box.addButton(reject, QMessageBox::RejectRole);
    box.exec();
    return box.clickedButton() == yes;
}

void Notifier::balloon(const QString &title, const QString &text, int msecs)
{
    m_shownBalloons << title + QLatin1Char('\n') + text;
    if (m_interactive && m_trayIcon)
        m_trayIcon->showMessage(title, text, QSystemTrayIcon::Warning, msecs);
}
