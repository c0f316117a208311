#pragma once

#include <QObject>
#include <QString>

// Receives the outcome of one OcrWorker on the thread it lives in (the GUI thread). Exactly one of the two
// signals is emitted per run.
class OcrWorkerResult final : public QObject
{
    Q_OBJECT

public:
    using QObject::QObject;

signals:
    // The recognised text; empty when the image holds no text (that is a result, not a failure).
    void finished(QString text);
    // Recognition could not run at all: no provider, an invalid image or no engine on this system.
    void error(QString message);
};
