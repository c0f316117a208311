#pragma once

#include "ai/OpenAIClient.h"

#include <QSignalSpy>
#include <QStringList>
#include <QTest>

// Whether the text is the expected one, in which a "*" stands for any text.
inline bool matches(const QString &actual, const QString &expected)
{
    const qsizetype star = expected.indexOf(QLatin1Char('*'));
    if (star < 0)
        return actual == expected;
    return actual.size() >= expected.size() - 1 && actual.startsWith(expected.left(star)) &&
           actual.endsWith(expected.mid(star + 1));
}

// Everything one client reports, in order.
struct StreamRecorder
{
    explicit StreamRecorder(OpenAIClient *client)
        : chunks(client, &OpenAIClient::streamingChunk)
        , finished(client, &OpenAIClient::streamingFinished)
        , errors(client, &OpenAIClient::streamingError)
    {}
    QStringList chunkTexts() const
    {
        QStringList texts;
        for (const QList<QVariant> &arguments : chunks)
            texts << arguments.at(0).toString();
        return texts;
    }
    bool waitForEnd(int waitMs = 20000)
    {
        return QTest::qWaitFor([this] { return finished.size() + errors.size(); }, waitMs);
    }
    QString error() const { return errors.isEmpty() ? QString() : errors.first().at(0).toString(); }

    QSignalSpy chunks, finished, errors;
};
