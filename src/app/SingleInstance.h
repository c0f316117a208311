#pragma once

#include <QObject>
#include <QString>

#include <memory>

class QLocalServer;
class QLockFile;

// One Vontrel per user and display: two would each save their own idea of the settings over the other's. The
// first start holds a lock and listens on a local socket; a later start asks it to show its Preferences and
// exits.
class SingleInstance final : public QObject
{
    Q_OBJECT

public:
    explicit SingleInstance(QObject *parent = nullptr);
    ~SingleInstance() override;

    // The lock and the socket for this user (the per-user runtime folder) and this display.
    static QString lockFilePath();
    static QString socketPath();

    // True when this process is now the instance for the display (also when the lock cannot be made at all:
    // running twice is better than not running). False when another one holds it; it has then been asked to
    // show its Preferences, and otherInstanceAnswered() says whether it confirmed.
    bool claim();
    bool otherInstanceAnswered() const { return m_otherAnswered; }
    // After a refused claim: says on the terminal what became of this start, and gives its exit status.
    int reportHandOver() const;

signals:
    // A later start asked this instance to show itself.
    void activationRequested();

private:
    void onNewConnection();
    bool askRunningInstance();

    std::unique_ptr<QLockFile> m_lock;
    QLocalServer *m_server = nullptr;
    bool m_otherAnswered = false;
};
