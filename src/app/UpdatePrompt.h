#pragma once

#include <QObject>
#include <QUrl>

class Notifier;

// Runs an update check for one place that offers it (the tray menu, the About page) and answers there:
// up to date, a newer version with the offer to download it, or why the check failed. Answers to checks
// another place started are not this place's business.
class UpdatePrompt final : public QObject
{
    Q_OBJECT

public:
    explicit UpdatePrompt(Notifier *notifier, QObject *parent = nullptr);

    // Does nothing while this place's check is running.
    void check();
    bool isChecking() const { return m_checking; }

signals:
    void checkingChanged(bool checking);

private:
    void onSucceeded(bool updateAvailable, const QString &latestVersion, const QUrl &downloadUrl);
    void onFailed(const QString &message);
    bool finish();

    Notifier *m_notifier = nullptr;
    bool m_checking = false;
};
