#pragma once

#include <QByteArray>
#include <QHash>
#include <QList>
#include <QString>

#include <chrono>
#include <optional>

namespace orv {

// When the tasks of a queue may go on, as functions of the time, so that tests and simulations need neither
// clock nor timer. Times are those of a steady clock.

/// Scheme, host and port of a URL, the port also where it is the default one of the scheme.
QByteArray hostOf(const QString& url);

/// A bounded number of starts a second: a token bucket that holds one token, and tokens for 10 ms more, which
/// a late event loop may have missed.
class StartRate
{
public:
    using Time = std::chrono::milliseconds;

    /// Off for 0, a negative number and NaN.
    void setRate(double startsPerSecond, Time now);
    double rate() const { return m_rate; }
    /// How long to wait for the next start; 0 if it may be now.
    Time delay(Time now) const;
    void countStart(Time now);

private:
    double m_rate = 0;
    double m_interval = 0; // ms
    double m_next = 0;     // ms
};

/// The number of tasks that run for each host, and their limit.
class HostLimit
{
public:
    /// Off for 0 and negative numbers.
    void setLimit(int limit) { m_limit = limit; }
    int limit() const { return m_limit; }
    bool isFull(const QByteArray& host) const { return m_limit > 0 && m_running.value(host) >= m_limit; }
    /// An empty @p host stands for no host, and is not counted.
    void add(const QByteArray& host);
    void remove(const QByteArray& host);

private:
    int m_limit = 0;
    QHash<QByteArray, int> m_running;
};

/// Hosts that have asked for a pause.
class CoolDowns
{
public:
    using Time = std::chrono::milliseconds;

    /// How much of what a host asks for counts. Off for 0 and negative numbers.
    void setLongest(Time longest) { m_longest = longest; }
    Time longest() const { return m_longest; }
    /// Has a host pause for @p asked from now on. Never shortens a pause.
    void begin(const QByteArray& host, Time asked, Time now);
    bool isEmpty() const { return m_ends.isEmpty(); }
    bool isCooling(const QByteArray& host, Time now) const;
    /// Forgets the pauses that have ended, and returns their hosts.
    QList<QByteArray> takeEnded(Time now);
    /// When the next pause ends.
    std::optional<Time> nextEnd() const;

private:
    Time m_longest{0};
    QHash<QByteArray, Time> m_ends;
};

} // namespace orv
