#include "InactivityTimer_p.h"

#include <QPointer>
#include <QTimer>

#include <utility>

namespace orv {

namespace {

// Calls back without a connection, which would cost each exchange more than the timer itself.
class CallingTimer : public QTimer
{
public:
    CallingTimer(QObject* parent, const std::function<void()>& onTimeout)
        : QTimer(parent)
        , m_onTimeout(onTimeout)
    {
        setSingleShot(true);
    }

protected:
    void timerEvent(QTimerEvent* event) override
    {
        const QPointer<CallingTimer> self(this);
        QTimer::timerEvent(event);
        if (!self)
            return;
        const auto onTimeout = m_onTimeout; // it may delete the original
        onTimeout();
    }

private:
    const std::function<void()>& m_onTimeout;
};

} // namespace

InactivityTimer::InactivityTimer(QObject* parent, std::function<void()> onTimeout)
    : m_parent(parent)
    , m_onTimeout(std::move(onTimeout))
{
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
    if (!m_timer)
        m_timer = new CallingTimer(m_parent, m_onTimeout);
    m_timer->setInterval(limit);
    m_isEnabled = true;
    startAnew();
}

void InactivityTimer::suspend()
{
    if (m_timer)
        m_timer->stop();
}

void InactivityTimer::stop()
{
    m_isEnabled = false;
    suspend();
}

void InactivityTimer::extend()
{
    if (isRunning() && m_sinceStart.hasExpired(m_timer->interval() / 100))
        startAnew();
}

void InactivityTimer::restart()
{
    if (isRunning())
        extend();
    else if (m_isEnabled)
        startAnew();
}

bool InactivityTimer::isRunning() const
{
    return m_timer && m_timer->isActive();
}

void InactivityTimer::startAnew()
{
    m_sinceStart.start();
    m_timer->start();
}

} // namespace orv
