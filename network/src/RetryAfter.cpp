#include "RetryAfter_p.h"

#include <QNetworkReply>
#include <QTimeZone>

#include <algorithm>
#include <limits>

namespace orv {

namespace {

using namespace std::chrono;

// Of a year with two digits, the latest that is less than fifty years ahead (RFC 9110, 5.6.7).
QDate withCentury(QDate date, const QDateTime& now)
{
    const int latest = now.toUTC().date().year() + 50;
    const int year = latest - ((latest - date.year()) % 100 + 100) % 100;
    return QDate(year, date.month(), date.day());
}

QDateTime utc(QDate date, const QString& time)
{
    return QDateTime(date, QTime::fromString(time, QStringLiteral("HH:mm:ss")), QTimeZone::utc());
}

// The three forms of a date in HTTP (RFC 9110, 5.6.7), without a look at the day of the week; invalid for all
// others.
QDateTime httpDate(const QByteArray& text, const QDateTime& now)
{
    const auto parts = QString::fromLatin1(text).simplified().split(QLatin1Char(' '));
    const bool isGmt = parts.last() == QLatin1String("GMT");
    if (parts.size() == 6 && isGmt) { // Sun, 06 Nov 1994 08:49:37 GMT
        const auto date = parts.mid(1, 3).join(QLatin1Char(' '));
        return utc(QDate::fromString(date, QStringLiteral("dd MMM yyyy")), parts.at(4));
    }
    if (parts.size() == 4 && isGmt) { // Sunday, 06-Nov-94 08:49:37 GMT
        const auto date = QDate::fromString(parts.at(1), QStringLiteral("dd-MMM-yy"));
        return utc(withCentury(date, now), parts.at(2));
    }
    if (parts.size() == 5) { // Sun Nov  6 08:49:37 1994
        const auto date = QStringList{parts.at(1), parts.at(2), parts.at(4)}.join(QLatin1Char(' '));
        return utc(QDate::fromString(date, QStringLiteral("MMM d yyyy")), parts.at(3));
    }
    return {};
}

milliseconds bounded(milliseconds time)
{
    return std::min<milliseconds>(time, seconds(std::numeric_limits<qint32>::max()));
}

milliseconds fromSeconds(const QByteArray& digits)
{
    bool fits = false;
    const auto number = digits.toUInt(&fits);
    return bounded(fits ? seconds(number) : seconds(std::numeric_limits<qint32>::max()));
}

} // namespace

std::optional<milliseconds> retryAfter(const QNetworkReply* reply, const QDateTime& now)
{
    const auto value = reply ? reply->rawHeader(QByteArrayLiteral("Retry-After")).trimmed() : QByteArray();
    if (value.isEmpty())
        return {};
    if (std::all_of(value.begin(), value.end(), [](char c) { return c >= '0' && c <= '9'; }))
        return fromSeconds(value);
    const auto date = httpDate(value, now);
    const auto sent = httpDate(reply->rawHeader(QByteArrayLiteral("Date")).trimmed(), now);
    const milliseconds wait(date.isValid() ? (sent.isValid() ? sent : now).msecsTo(date) : 0);
    if (wait <= milliseconds(0))
        return {};
    return bounded(wait);
}

} // namespace orv
