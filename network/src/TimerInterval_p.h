#pragma once

#include <algorithm>
#include <chrono>
#include <limits>

namespace orv {

/// The longest time that a QTimer takes: 24.8 days.
inline constexpr std::chrono::milliseconds longestTimerInterval{std::numeric_limits<int>::max()};

/// The time as an interval that a QTimer takes. What is due later takes several of them.
constexpr std::chrono::milliseconds timerInterval(std::chrono::milliseconds time)
{
    return std::clamp(time, std::chrono::milliseconds(0), longestTimerInterval);
}

} // namespace orv
