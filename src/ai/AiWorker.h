#pragma once

#include "ai/ActionService.h"

#include <QObject>
#include <QRunnable>
#include <QString>

// Carries an AiWorker's outcome back to the thread that created it: exactly one of the two signals per task.
class AiWorkerResult final : public QObject
{
    Q_OBJECT

public:
    using QObject::QObject;

signals:
    void finished(QString result);
    void error(QString errorMessage);
};

// A thread-pool task that runs one blocking action through ActionService::executeAction. The pool deletes it.
class AiWorker final : public QRunnable
{
public:
    // Neither the service nor the result object is owned; both must outlive the task.
    AiWorker(ActionService::ActionType type, const QString &text, ActionService *service,
             AiWorkerResult *result);

    void run() override;

private:
    void deliver(const char *signal, const QString &argument);

    ActionService::ActionType m_type;
    QString m_text;
    ActionService *m_service = nullptr;
    AiWorkerResult *m_result = nullptr;
};
