#include "ai/EventStreamParser.h"

#include "log/LogCategories.h"

#include <QDebug>

#include <algorithm>
#include <cstring>

#include <rapidjson/document.h>
#include <rapidjson/error/en.h>

namespace {

// The event-stream format allows a blank after the field's colon or none; compact streams leave it out.
const QByteArray kDataPrefix = QByteArrayLiteral("data:");
const QByteArray kEventPrefix = QByteArrayLiteral("event:");
const QByteArray kDoneMarker = QByteArrayLiteral("[DONE]");
// A service that sends nothing but garbage would otherwise write one warning per line into the log.
constexpr int kLoggedParseFailures = 3;
// An error payload that is not JSON is shown as it came; a page of it helps nobody.
constexpr int kMaxRawErrorChars = 300;

using PooledAllocator = rapidjson::MemoryPoolAllocator<>;
using PooledDocument = rapidjson::GenericDocument<rapidjson::UTF8<>, PooledAllocator, PooledAllocator>;

bool isBlank(char c)
{
    return c == ' ' || c == '\t' || c == '\r' || c == '\n' || c == '\v' || c == '\f';
}

bool startsWith(const char *begin, const char *end, const QByteArray &prefix)
{
    return end - begin >= prefix.size() && std::memcmp(begin, prefix.constData(), size_t(prefix.size())) == 0;
}

QString stringOf(const rapidjson::Value &value)
{
    // Malformed UTF-8 becomes replacement characters rather than costing the whole piece.
    return value.IsString() ? QString::fromUtf8(value.GetString(), qsizetype(value.GetStringLength()))
                            : QString();
}

QString errorMessageOf(const rapidjson::Value &error)
{
    if (error.IsString())
        return stringOf(error);
    if (!error.IsObject())
        return QString();
    const auto message = error.FindMember("message");
    return message != error.MemberEnd() ? stringOf(message->value) : QString();
}

const rapidjson::Value *firstChoice(const rapidjson::Value &object)
{
    const auto choices = object.FindMember("choices");
    if (choices == object.MemberEnd() || !choices->value.IsArray() || choices->value.Empty())
        return nullptr;
    const rapidjson::Value &choice = choices->value[0];
    return choice.IsObject() ? &choice : nullptr;
}

// choices[0].delta.content when it is a string; empty otherwise.
QString deltaContentOf(const rapidjson::Value &choice)
{
    const auto delta = choice.FindMember("delta");
    if (delta == choice.MemberEnd() || !delta->value.IsObject())
        return QString();
    const auto content = delta->value.FindMember("content");
    return content != delta->value.MemberEnd() ? stringOf(content->value) : QString();
}

bool hasFinishReason(const rapidjson::Value &choice)
{
    const auto reason = choice.FindMember("finish_reason");
    return reason != choice.MemberEnd() && reason->value.IsString() && reason->value.GetStringLength() > 0;
}

// Passes the reader's events on to the document and refuses to open a level beyond the limit, so that the
// recursive reader never goes deeper than that.
struct DepthLimitedHandler
{
    PooledDocument &document;
    int depth = 0;
    bool tooDeep = false;

    bool open()
    {
        tooDeep = ++depth > EventStreamParser::kMaxJsonDepth;
        return !tooDeep;
    }
    bool Null() { return document.Null(); }
    bool Bool(bool b) { return document.Bool(b); }
    bool Int(int i) { return document.Int(i); }
    bool Uint(unsigned i) { return document.Uint(i); }
    bool Int64(int64_t i) { return document.Int64(i); }
    bool Uint64(uint64_t i) { return document.Uint64(i); }
    bool Double(double d) { return document.Double(d); }
    bool RawNumber(const char *str, rapidjson::SizeType length, bool copy)
    {
        return document.RawNumber(str, length, copy);
    }
    bool String(const char *str, rapidjson::SizeType length, bool copy)
    {
        return document.String(str, length, copy);
    }
    bool Key(const char *str, rapidjson::SizeType length, bool copy)
    {
        return document.Key(str, length, copy);
    }
    bool StartObject() { return open() && document.StartObject(); }
    bool EndObject(rapidjson::SizeType members) { return --depth, document.EndObject(members); }
    bool StartArray() { return open() && document.StartArray(); }
    bool EndArray(rapidjson::SizeType elements) { return --depth, document.EndArray(elements); }
};

struct DepthLimitedParse
{
    const char *payload;
    size_t length;
    PooledAllocator *parseAllocator;
    rapidjson::ParseResult result;
    bool tooDeep = false;

    bool operator()(PooledDocument &document)
    {
        DepthLimitedHandler handler{document};
        rapidjson::MemoryStream memory(payload, length);
        rapidjson::EncodedInputStream<rapidjson::UTF8<>, rapidjson::MemoryStream> input(memory);
        rapidjson::GenericReader<rapidjson::UTF8<>, rapidjson::UTF8<>, PooledAllocator> reader(
            parseAllocator);
        result = reader.Parse<rapidjson::kParseDefaultFlags>(input, handler);
        tooDeep = handler.tooDeep;
        return !result.IsError();
    }
};

} // namespace

void EventStreamParser::reset()
{
    *this = EventStreamParser();
}

bool EventStreamParser::feed(QByteArrayView bytes, QStringList *pieces)
{
    return feed(bytes, [pieces](const QString &piece) {
        pieces->append(piece);
        return true;
    });
}

bool EventStreamParser::feed(QByteArrayView bytes, const PieceHandler &onPiece)
{
    if (m_failed)
        return false;
    if (m_skipLineFeed && !bytes.isEmpty()) {
        m_skipLineFeed = false;
        if (bytes.front() == '\n')
            bytes = bytes.sliced(1);
    }
    m_pending.append(bytes.data(), bytes.size());
    if (m_atStart) {
        // An event stream may begin with a UTF-8 byte order mark, which is no part of its first line.
        static constexpr char kByteOrderMark[] = "\xEF\xBB\xBF";
        const QByteArrayView mark(kByteOrderMark, 3);
        if (m_pending.size() < mark.size() && mark.startsWith(m_pending))
            return true; // too few bytes yet to tell
        if (m_pending.startsWith(mark))
            m_pending.remove(0, mark.size());
        m_atStart = false;
    }

    // Lines are taken by offset and the consumed prefix removed once, so a large read costs linear time.
    const char *const data = m_pending.constData();
    const char *const dataEnd = data + m_pending.size();
    const char *lineBegin = data;
    // Every byte is searched once: the start of an incomplete line was searched by an earlier call, and one
    // line feed found ahead serves all the lines that end in a bare CR before it.
    const char *const searchFrom = data + m_searchedBytes;
    m_searchedBytes = 0;
    const char *lineFeed = nullptr; // the next LF at or after lineBegin; dataEnd when there is none
    while (!m_failed && lineBegin < dataEnd) {
        const char *from = std::max(lineBegin, searchFrom);
        if (!lineFeed || lineFeed < lineBegin) {
            lineFeed = static_cast<const char *>(std::memchr(from, '\n', size_t(dataEnd - from)));
            if (!lineFeed)
                lineFeed = dataEnd;
        }
        const auto *carriageReturn =
            static_cast<const char *>(std::memchr(from, '\r', size_t(lineFeed - from)));
        const char *lineEnd = nullptr;
        const char *next = nullptr;
        if (carriageReturn) {
            lineEnd = carriageReturn;
            next = carriageReturn + 1;
            if (next == dataEnd)
                m_skipLineFeed = true; // CR LF may be split between two reads
            else if (next == lineFeed)
                ++next;
        } else if (lineFeed != dataEnd) {
            lineEnd = lineFeed;
            next = lineFeed + 1;
        } else {
            m_searchedBytes = dataEnd - lineBegin;
            break;
        }
        if (!handleLine(lineBegin, lineEnd, onPiece))
            return false; // this object may have been reset meanwhile: nothing of it is touched again
        lineBegin = next;
    }
    if (m_failed) {
        m_pending.clear();
        m_pending.squeeze();
        return false;
    }
    m_pending.remove(0, lineBegin - data);
    return true;
}

bool EventStreamParser::handleLine(const char *begin, const char *end, const PieceHandler &onPiece)
{
    while (begin < end && isBlank(*begin))
        ++begin;
    while (end > begin && isBlank(end[-1]))
        --end;
    if (begin == end) {
        m_errorEvent = false; // an empty line ends the event
        return true;
    }
    if (startsWith(begin, end, kEventPrefix)) {
        const char *type = begin + kEventPrefix.size();
        while (type < end && isBlank(*type))
            ++type;
        m_errorEvent = QByteArrayView(type, end - type) == "error";
        return true;
    }
    if (!startsWith(begin, end, kDataPrefix))
        return true;
    m_sawData = true;
    const char *payload = begin + kDataPrefix.size();
    while (payload < end && isBlank(*payload))
        ++payload;
    const size_t length = size_t(end - payload);
    if (QByteArrayView(payload, qsizetype(length)) == kDoneMarker) {
        m_sawEnd = true;
        return true;
    }
    return handlePayload(payload, length, onPiece);
}

bool EventStreamParser::handlePayload(const char *payload, size_t length, const PieceHandler &onPiece)
{
    // RapidJSON with stack buffers for its allocators: a delta is parsed without touching the heap, which
    // keeps the parser far ahead of any network (the toolkit's JSON classes cost several times as much).
    char valueBuffer[4096];
    char parseBuffer[1024];
    PooledAllocator valueAllocator(valueBuffer, sizeof valueBuffer);
    PooledAllocator parseAllocator(parseBuffer, sizeof parseBuffer);
    PooledDocument document(&valueAllocator, sizeof parseBuffer, &parseAllocator);
    DepthLimitedParse parse{payload, length, &parseAllocator, {}};
    document.Populate(parse);

    const bool parsed = !parse.result.IsError() && document.IsObject();
    if (m_errorEvent) {
        // The service said this event is an error; its data may be JSON or plain text.
        m_failed = true;
        if (parsed) {
            const auto error = document.FindMember("error");
            m_errorMessage = errorMessageOf(error != document.MemberEnd() ? error->value : document);
        } else {
            m_errorMessage = QString::fromUtf8(payload, qsizetype(qMin<size_t>(length, kMaxRawErrorChars)));
        }
        return true;
    }
    if (!parsed) {
        if (m_parseFailures++ < kLoggedParseFailures) {
            if (parse.tooDeep)
                qCWarning(lcAi).noquote() << "Failed to parse SSE JSON:"
                                          << "nested deeper than" << kMaxJsonDepth << "levels";
            else if (parse.result.IsError())
                qCWarning(lcAi).noquote()
                    << "Failed to parse SSE JSON:" << rapidjson::GetParseError_En(parse.result.Code())
                    << "at offset" << parse.result.Offset();
            else
                qCWarning(lcAi).noquote() << "Failed to parse SSE JSON:"
                                          << "payload is not an object";
        }
        return true;
    }
    const auto error = document.FindMember("error");
    if (error != document.MemberEnd() && !error->value.IsNull()) {
        m_failed = true;
        m_errorMessage = errorMessageOf(error->value);
        return true;
    }
    const rapidjson::Value *choice = firstChoice(document);
    if (!choice)
        return true;
    if (hasFinishReason(*choice))
        m_sawEnd = true;
    const QString piece = deltaContentOf(*choice);
    return piece.isEmpty() || onPiece(piece);
}
