#pragma once

#include <QDateTime>

#include <chrono>
#include <optional>

class QNetworkReply;

namespace orv {

/// How long the Retry-After field of @p reply asks to wait (RFC 9110, 10.2.3), in seconds or as a date; at
/// most 68 years. A date is relative to the Date of the reply, so that a wrong clock does not matter, or to
/// @p now if there is none. Empty if there is no such field, or if it is invalid or in the past. @p reply may
/// be null.
std::optional<std::chrono::milliseconds> retryAfter(const QNetworkReply* reply, const QDateTime& now);

} // namespace orv
