#include "InactivityTimer_p.h"

#include "NetworkConstants.h"

namespace orv {

InactivityTimer::InactivityTimer(QObject* parent)
    : m_timer(new QTimer(parent))
{
    m_timer->setSingleShot(true);
    m_timer->setInterval(network::DEFAULT_TIMEOUT);
}

InactivityTimer::~InactivityTimer()
{
    delete m_timer;
}

void InactivityTimer::start(int limit)
{
    disable();
    if (limit < 0)
        return;
    m_timer->setInterval(limit);
    m_isEnabled = true;
    startAnew();
}

void InactivityTimer::stop()
{
    m_timer->stop();
}

void InactivityTimer::disable()
{
    m_isEnabled = false;
    stop();
}

void InactivityTimer::extend()
{
    if (m_timer->isActive() && m_sinceStart.hasExpired(m_timer->interval() / 100))
        startAnew();
}

void InactivityTimer::restart()
{
    if (m_timer->isActive())
        extend();
    else if (m_isEnabled)
        startAnew();
}

void InactivityTimer::startAnew()
{
    m_sinceStart.start();
    m_timer->start();
}

} // namespace orv
