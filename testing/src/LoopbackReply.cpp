#include "LoopbackReply_p.h"

#include <QHash>
#include <QJsonDocument>
#include <QJsonObject>

#include <algorithm>

namespace orv {

namespace {

QByteArray usualReason(int statusCode)
{
    // clang-format off
    static const QHash<int, QByteArray> reasons = {
        {100, "Continue"}, {101, "Switching Protocols"}, {103, "Early Hints"},
        {200, "OK"}, {201, "Created"}, {202, "Accepted"}, {204, "No Content"}, {206, "Partial Content"},
        {301, "Moved Permanently"}, {302, "Found"}, {303, "See Other"}, {304, "Not Modified"},
        {307, "Temporary Redirect"}, {308, "Permanent Redirect"},
        {400, "Bad Request"}, {401, "Unauthorized"}, {403, "Forbidden"}, {404, "Not Found"},
        {405, "Method Not Allowed"}, {408, "Request Timeout"}, {409, "Conflict"}, {410, "Gone"},
        {429, "Too Many Requests"},
        {500, "Internal Server Error"}, {501, "Not Implemented"}, {502, "Bad Gateway"},
        {503, "Service Unavailable"}, {504, "Gateway Timeout"},
    };
    // clang-format on
    return reasons.value(statusCode);
}

} // namespace

bool LoopbackReply::Private::hasField(const QByteArray& name) const
{
    return std::any_of(fields.cbegin(), fields.cend(), [&name](const auto& field) {
        return field.first.compare(name, Qt::CaseInsensitive) == 0;
    });
}

LoopbackReply::LoopbackReply(int statusCode, const QByteArray& content, const QByteArray& contentType)
    : d(new Private)
{
    d->statusCode = statusCode;
    d->reason = usualReason(statusCode);
    d->content = content;
    d->contentType = contentType;
}

LoopbackReply LoopbackReply::json(const QJsonObject& object, int statusCode)
{
    return LoopbackReply(statusCode, QJsonDocument(object).toJson(QJsonDocument::Compact),
                         "application/json");
}

LoopbackReply LoopbackReply::raw(const QByteArray& bytes)
{
    LoopbackReply reply(0, bytes);
    reply.d->form = Private::Form::Raw;
    reply.d->ending = Private::Ending::Close;
    return reply;
}

LoopbackReply LoopbackReply::silence()
{
    LoopbackReply reply;
    reply.d->form = Private::Form::Silence;
    return reply;
}

LoopbackReply::LoopbackReply(const LoopbackReply& other) = default;
LoopbackReply::LoopbackReply(LoopbackReply&& other) noexcept = default;
LoopbackReply& LoopbackReply::operator=(const LoopbackReply& other) = default;
LoopbackReply& LoopbackReply::operator=(LoopbackReply&& other) noexcept = default;
LoopbackReply::~LoopbackReply() = default;

LoopbackReply& LoopbackReply::withReason(const QByteArray& reason)
{
    d->reason = reason;
    return *this;
}

LoopbackReply& LoopbackReply::withField(const QByteArray& name, const QByteArray& value)
{
    d->fields.append({name, value});
    return *this;
}

LoopbackReply& LoopbackReply::chunked(int chunkSize)
{
    d->chunkSize = qMax(1, chunkSize);
    return *this;
}

LoopbackReply& LoopbackReply::untilClose()
{
    d->untilClose = true;
    return closing();
}

LoopbackReply& LoopbackReply::closing()
{
    d->announcesClose = true;
    d->ending = Private::Ending::Close;
    return *this;
}

LoopbackReply& LoopbackReply::delayed(std::chrono::milliseconds delay)
{
    d->delay = delay;
    return *this;
}

LoopbackReply& LoopbackReply::dripped(int bytes, std::chrono::milliseconds interval)
{
    d->dripBytes = qMax(1, bytes);
    d->dripInterval = interval;
    return *this;
}

LoopbackReply& LoopbackReply::splitAt(qint64 offset)
{
    d->splitOffset = offset;
    return *this;
}

LoopbackReply& LoopbackReply::cutAfter(qint64 bytes)
{
    d->limit = bytes;
    d->ending = Private::Ending::Close;
    return *this;
}

LoopbackReply& LoopbackReply::resetAfter(qint64 bytes)
{
    d->limit = bytes;
    d->ending = Private::Ending::Reset;
    return *this;
}

} // namespace orv
