#pragma once

#include <QtGlobal>

#include <chrono>
#include <deque>

namespace downloads {

/// The speed of a transfer, averaged over about the last two seconds.
///
/// Times count from any fixed moment; whoever measures brings the clock.
class RateMeter
{
public:
    /// Forgets everything and begins anew, with nothing received at @p now.
    void start(std::chrono::milliseconds now);
    /// Notes that @p received bytes have arrived in all.
    void add(std::chrono::milliseconds now, qint64 received);
    /// 0 as long as there is too little to judge from, and once nothing arrives any more.
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
