#pragma once

#include <QByteArray>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QString>

// Event-stream lines as chat-completions services send them.
namespace Sse {

inline QByteArray delta(const QString &content, const QByteArray &lineEnd = "\n\n")
{
    const QJsonObject object{{QStringLiteral("choices"),
                              QJsonArray{QJsonObject{{QStringLiteral("index"), 0},
                                                     {QStringLiteral("delta"),
                                                      QJsonObject{{QStringLiteral("content"), content}}}}}}};
    return "data: " + QJsonDocument(object).toJson(QJsonDocument::Compact) + lineEnd;
}

inline QByteArray stream(const QStringList &pieces)
{
    QByteArray bytes;
    for (const QString &piece : pieces)
        bytes += delta(piece);
    return bytes + "data: [DONE]\n\n";
}

} // namespace Sse
