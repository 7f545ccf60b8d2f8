#include "NetworkQueuePolicies_p.h"

#include <QUrl>

#include <algorithm>
#include <cmath>
#include <limits>

namespace orv {

QByteArray hostOf(const QString& url)
{
    const QUrl parsed(url, QUrl::TolerantMode);
    const int byDefault = parsed.scheme() == QLatin1String("https") ? 443 : 80;
    return parsed.scheme().toLatin1() + "://" + parsed.host(QUrl::FullyEncoded).toLatin1() + ':' +
           QByteArray::number(parsed.port(byDefault));
}

void StartRate::setRate(double startsPerSecond, Time now)
{
    const bool isOn = startsPerSecond > 0; // not for NaN
    m_rate = isOn ? startsPerSecond : 0;
    m_interval = isOn ? 1000 / startsPerSecond : 0;
    m_next = std::min(m_next, static_cast<double>(now.count()) + m_interval);
}

StartRate::Time StartRate::delay(Time now) const
{
    const double left = std::ceil(m_next - static_cast<double>(now.count()));
    if (m_rate <= 0 || left <= 0)
        return Time(0);
    constexpr double longest = std::numeric_limits<int>::max();
    return Time(static_cast<Time::rep>(std::min(left, longest)));
}

void StartRate::countStart(Time now)
{
    constexpr double lateness = 10;
    m_next = std::max(m_next, static_cast<double>(now.count()) - lateness) + m_interval;
}

void HostLimit::add(const QByteArray& host)
{
    if (!host.isEmpty())
        ++m_running[host];
}

void HostLimit::remove(const QByteArray& host)
{
    const int left = m_running.value(host) - 1;
    if (left > 0)
        m_running.insert(host, left);
    else
        m_running.remove(host);
}

void CoolDowns::begin(const QByteArray& host, Time asked, Time now)
{
    const auto time = std::min(asked, m_longest);
    if (time <= Time(0))
        return;
    auto& end = m_ends[host];
    end = std::max(end, now + time);
}

bool CoolDowns::isCooling(const QByteArray& host, Time now) const
{
    const auto end = m_ends.constFind(host);
    return end != m_ends.cend() && *end > now;
}

QList<QByteArray> CoolDowns::takeEnded(Time now)
{
    QList<QByteArray> ended;
    m_ends.removeIf([&](QHash<QByteArray, Time>::iterator end) {
        const bool hasEnded = *end <= now;
        if (hasEnded)
            ended.append(end.key());
        return hasEnded;
    });
    return ended;
}

std::optional<CoolDowns::Time> CoolDowns::nextEnd() const
{
    const auto next = std::min_element(m_ends.cbegin(), m_ends.cend());
    return next == m_ends.cend() ? std::nullopt : std::optional(*next);
}

} // namespace orv
