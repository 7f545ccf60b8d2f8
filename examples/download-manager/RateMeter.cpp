#include "RateMeter.h"

#include <algorithm>

namespace downloads {

namespace {

using namespace std::chrono_literals;
using std::chrono::milliseconds;

constexpr milliseconds WINDOW = 2s;
constexpr milliseconds SHORTEST_SPAN = 200ms; // over less, the rate reflects buffering rather than speed

} // namespace

void RateMeter::start(milliseconds now)
{
    m_samples.clear();
    m_samples.push_back({now, 0});
}

void RateMeter::add(milliseconds now, qint64 received)
{
    m_samples.push_back({now, received});
    // One sample before the window is kept: the average starts from it.
    while (m_samples.size() > 2 && m_samples[1].time <= now - WINDOW)
        m_samples.pop_front();
}

qint64 RateMeter::bytesPerSecond(milliseconds now) const
{
    if (m_samples.empty())
        return 0;
    const auto isInside = [now](const Sample& sample) { return sample.time > now - WINDOW; };
    const auto inside = std::find_if(m_samples.begin(), m_samples.end(), isInside);
    const auto& first = inside == m_samples.begin() ? *inside : *std::prev(inside);
    const auto span = now - first.time;
    if (span < SHORTEST_SPAN)
        return 0;
    return (m_samples.back().received - first.received) * 1000 / span.count();
}

} // namespace downloads
