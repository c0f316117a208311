#include "app/UpdatePrompt.h"

#include "app/Notifier.h"
#include "update/UpdateChecker.h"

#include <QDesktopServices>

UpdatePrompt::UpdatePrompt(Notifier *notifier, QObject *parent)
    : QObject(parent)
    , m_notifier(notifier)
{
    UpdateChecker *checker = UpdateChecker::instance();
    connect(checker, &UpdateChecker::checkSucceeded, this, &UpdatePrompt::onSucceeded);
    connect(checker, &UpdateChecker::checkFailed, this, &UpdatePrompt::onFailed);
}

void UpdatePrompt::check()
{
    if (m_checking)
        return;
    m_checking = true;
    emit checkingChanged(true);
    UpdateChecker::instance()->checkNow();
}

bool UpdatePrompt::finish()
{
    if (!m_checking)
        return false;
    m_checking = false;
    emit checkingChanged(false);
    return true;
}

void UpdatePrompt::onSucceeded(bool updateAvailable, const QString &latestVersion, const QUrl &downloadUrl)
{
    if (!finish())
        return;
    if (!updateAvailable) {
        m_notifier->inform(tr("Check for Updates"), tr("You're up to date."));
        return;
    }
    if (m_notifier->ask(tr("Update Available"), tr("A new version is available: %1").arg(latestVersion),
                        tr("Download"), tr("Later")))
        QDesktopServices::openUrl(downloadUrl);
}

void UpdatePrompt::onFailed(const QString &message)
{
    if (finish())
        m_notifier->warn(tr("Check for Updates"), message);
}
