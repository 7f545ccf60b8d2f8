#pragma once

#include <QtGlobal>

#include <chrono>
#include <deque>

namespace downloads {

/// The speed of a transfer, averaged over about the last two seconds.
///
/// All times count from the same arbitrary moment; the caller supplies them.
class RateMeter
{
public:
    /// Starts over, with nothing received at @p now.
    void start(std::chrono::milliseconds now);
    /// Records that @p received bytes have arrived in total.
    void add(std::chrono::milliseconds now, qint64 received);
    /// 0 while there is too little data for an average, and once nothing has arrived for a while.
    qint64 bytesPerSecond(std::chrono::milliseconds now) const;

private:
    struct Sample
    {
        std::chrono::milliseconds time;
        qint64 received;
    };

    std::deque<Sample> m_samples; // oldest first
};

} // namespace downloads
