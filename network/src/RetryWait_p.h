#pragma once

#include "TimerInterval_p.h"

#include <algorithm>
#include <chrono>

namespace orv {

/// The waiting time before a retry, as a function of everything that it depends on.
struct RetryWait
{
    std::chrono::seconds delay{0};           ///< That of the delay policy; a negative one counts as 0.
    double jitter = 0;                       ///< The share of the delay that is random, from 0 to 1.
    double random = 0;                       ///< A random number from 0 to 1 for the jitter.
    std::chrono::milliseconds retryAfter{0}; ///< How long the server asks to wait.
    std::chrono::seconds maxRetryAfter{0};   ///< How much of that counts.

    /// The delay less the random part of its jitter, or what the server asks for if that is longer; at most
    /// as long as a timer takes.
    std::chrono::milliseconds time() const
    {
        using namespace std::chrono;
        const auto limited = [](seconds time) {
            return milliseconds(std::clamp(time, seconds(0), duration_cast<seconds>(longestTimerInterval)));
        };
        const duration<double, std::milli> own = limited(delay) * (1 - jitter * random);
        return std::max(duration_cast<milliseconds>(own), std::min(retryAfter, limited(maxRetryAfter)));
    }
};

} // namespace orv
