#include "InactivityTimer_p.h"

#include "NetworkConstants.h"

#include <QPointer>
#include <QTimer>

#include <utility>

namespace orv {

namespace {

// Calls back without a connection, which would cost each exchange more than the timer itself.
class CallingTimer : public QTimer
{
public:
    CallingTimer(QObject* parent, std::function<void()> onTimeout)
        : QTimer(parent)
        , m_onTimeout(std::move(onTimeout))
    {
    }

protected:
    void timerEvent(QTimerEvent* event) override
    {
        const QPointer<CallingTimer> self(this);
        QTimer::timerEvent(event);
        if (!self)
            return;
        const auto onTimeout = m_onTimeout;
        onTimeout();
    }

private:
    const std::function<void()> m_onTimeout;
};

} // namespace

InactivityTimer::InactivityTimer(QObject* parent, std::function<void()> onTimeout)
    : m_timer(new CallingTimer(parent, std::move(onTimeout)))
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
    stop();
    if (limit < 0)
        return;
    m_timer->setInterval(limit);
    m_isEnabled = true;
    startAnew();
}

void InactivityTimer::suspend()
{
    m_timer->stop();
}

void InactivityTimer::stop()
{
    m_isEnabled = false;
    m_timer->stop();
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
