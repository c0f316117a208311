#include "ai/AiWorker.h"

#include <QDebug>
#include <QMetaObject>

AiWorker::AiWorker(ActionService::ActionType type, const QString &text, ActionService *service,
                   AiWorkerResult *result)
    : m_type(type)
    , m_text(text)
    , m_service(service)
    , m_result(result)
{}

void AiWorker::run()
{
    if (!m_service) {
        deliver("error", QStringLiteral("Action service not available"));
        return;
    }
    if (m_text.trimmed().isEmpty()) {
        deliver("error", QStringLiteral("Input text is empty"));
        return;
    }
    qDebug().noquote() << "AiWorker: Starting action" << ActionService::actionName(m_type);
    const QString answer = m_service->executeAction(m_type, m_text);
    if (!answer.isEmpty()) {
        qDebug().noquote() << "AiWorker: Action completed, result length:" << answer.size();
        deliver("finished", answer);
        return;
    }
    const QString error = m_service->lastError();
    deliver("error", error.isEmpty() ? QStringLiteral("Unknown error during AI processing") : error);
}

void AiWorker::deliver(const char *signal, const QString &argument)
{
    // Queued, so the receivers run on the result object's thread, never on this pool thread.
    if (m_result)
        QMetaObject::invokeMethod(m_result, signal, Qt::QueuedConnection, Q_ARG(QString, argument));
}
