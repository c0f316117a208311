#include "ai/StreamBody.h"

#include "ai/BlockingCompletion.h"
#include "ai/EventStreamParser.h"
#include "ai/ProviderErrors.h"

#include <QNetworkReply>
#include <QNetworkRequest>

void StreamBody::keepHead(QByteArrayView bytes)
{
    const qsizetype room = ProviderErrors::kMaxKeptBodyBytes - m_head.size();
    if (room > 0)
        m_head += bytes.first(qMin(room, bytes.size()));
}

void StreamBody::noteContentType(const QNetworkReply *reply)
{
    // The media type alone, without parameters such as the charset.
    if (m_contentType.isEmpty())
        m_contentType = reply->header(QNetworkRequest::ContentTypeHeader)
                            .toString()
                            .section(u';', 0, 0)
                            .trimmed()
                            .toLower();
}

QString StreamBody::endProblem(const EventStreamParser &parser, const ProviderErrors &errors,
                               QString *whole) const
{
    whole->clear();
    if (!parser.sawData()) {
        // Some services ignore "stream" and send the whole completion at once: it is still the answer.
        QString problem;
        if (m_bytes == m_head.size() && m_contentType.contains(QLatin1String("json")))
            *whole = vontrelCompletionContent(m_head, errors, &problem);
        return whole->isEmpty() ? errors.notAnEventStreamText(m_head, m_bytes, m_contentType) : QString();
    }
    // Every provider ends a complete answer with "[DONE]" or a finish reason; without either, the stream
    // was cut, whatever the transport made of the cut.
    return parser.sawEnd() ? QString() : cutOffText();
}

QString StreamBody::cutOffText()
{
    return tr("The connection was closed in the middle of the answer; the answer is incomplete.");
}
