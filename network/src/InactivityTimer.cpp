#include "InactivityTimer_p.h"

#include "NetworkConstants.h"

#include <utility>

namespace orv {

InactivityTimer::InactivityTimer(std::function<void()> onTimeout, QObject* parent)
    : QTimer(parent)
    , m_onTimeout(std::move(onTimeout))
{
    setSingleShot(true);
    setInterval(network::DEFAULT_TIMEOUT);
}

void InactivityTimer::watch(int limit)
{
    stop();
    setInterval(limit);
    m_limit = limit;
    m_isWatching = true;
    restart();
}

void InactivityTimer::unwatch()
{
    m_isWatching = false;
    stop();
}

void InactivityTimer::restart()
{
    noteProgress();
    if (m_isWatching && m_limit >= 0 && !isActive())
        start(m_limit);
}

void InactivityTimer::timerEvent(QTimerEvent* /*event*/)
{
    const auto left = m_limit - m_sinceProgress.elapsed();
    const auto early = m_limit / 20; // as much as a coarse timer may be
    if (left > early) {
        start(static_cast<int>(left));
    } else {
        unwatch();
        const auto onTimeout = m_onTimeout; // the timer may go
        onTimeout();
    }
}

} // namespace orv
