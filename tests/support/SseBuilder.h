#pragma once

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QStringList>

// Event-stream lines as chat-completions services send them.
namespace Sse {
inline QByteArray delta(const QString &content, const QByteArray &lineEnd = "\n\n")
{
    const QJsonArray choices{QJsonObject{{"delta", QJsonObject{{"content", content}}}}};
    return "data: " + QJsonDocument(QJsonObject{{"choices", choices}}).toJson(QJsonDocument::Compact) +
           lineEnd;
}

inline QByteArray stream(const QStringList &pieces)
{
    QByteArray bytes;
    for (const QString &piece : pieces)
        bytes += delta(piece);
    return bytes + "data: [DONE]\n\n";
}
} // namespace Sse
