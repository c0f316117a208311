#pragma once

#include <QMutex>
#include <QMutexLocker>
#include <QString>
#include <QStringList>
#include <QtGlobal>

// Records the log lines written while it exists (and still passes them on), so a test can wait for a line
// that marks an event nothing else makes visible.
class LogCapture
{
public:
    LogCapture() { s_previous = qInstallMessageHandler(&LogCapture::handler); }
    ~LogCapture()
    {
        qInstallMessageHandler(s_previous);
        QMutexLocker locker(&s_mutex);
        s_lines.clear();
    }
    LogCapture(const LogCapture &) = delete;
    LogCapture &operator=(const LogCapture &) = delete;

    bool contains(const QString &fragment) const
    {
        QMutexLocker locker(&s_mutex);
        for (const QString &line : qAsConst(s_lines)) {
            if (line.contains(fragment))
                return true;
        }
        return false;
    }

private:
    static void handler(QtMsgType type, const QMessageLogContext &context, const QString &message)
    {
        {
            QMutexLocker locker(&s_mutex);
            s_lines.append(message);
        }
        if (s_previous)
            s_previous(type, context, message);
    }

    static inline QtMessageHandler s_previous = nullptr;
    static inline QMutex s_mutex;
    static inline QStringList s_lines;
};
