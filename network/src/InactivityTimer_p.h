#pragma once

#include <QElapsedTimer>

#include <functional>

class QObject;
class QTimer;

namespace orv {

/// The time-out of an exchange: a single-shot timer whose interval is the longest time without progress.
///
/// Starting a timer costs more than handling a small piece of content, so progress restarts the timer only if
/// at least a hundredth of the interval has passed since it was started. It may run out early by as much.
class InactivityTimer
{
public:
    /// A stopped timer. Its QTimer is made when it is started first, as a child of @p parent. @p onTimeout is
    /// called after the timer's timeout(), and may delete this object.
    InactivityTimer(QObject* parent, std::function<void()> onTimeout);
    ~InactivityTimer();
    InactivityTimer(const InactivityTimer&) = delete;
    InactivityTimer& operator=(const InactivityTimer&) = delete;

    /// Starts with an interval of @p limit milliseconds; does not start if it is negative.
    void start(int limit);
    /// Stops until start() or restart().
    void suspend();
    /// Stops until start().
    void stop();

    /// Progress was made: a running timer starts anew.
    void extend();
    /// Progress was made: starts anew, even if the timer was suspended.
    void restart();

private:
    bool isRunning() const;
    void startAnew();

    QObject* const m_parent;
    const std::function<void()> m_onTimeout;
    QTimer* m_timer = nullptr;
    QElapsedTimer m_sinceStart;
    bool m_isEnabled = false;
};

} // namespace orv
