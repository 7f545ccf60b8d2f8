#pragma once

#include <QElapsedTimer>
#include <QTimer>

#include <functional>

namespace orv {

/// Tells when nothing has happened for a while.
///
/// Progress is only noted; when the timer runs out, it goes on for what is left. To start a timer anew with
/// each piece of a reply costs more than many a piece does.
class InactivityTimer : public QTimer
{
public:
    /// @p onTimeout may delete the timer.
    InactivityTimer(std::function<void()> onTimeout, QObject* parent);

    /// Starts to watch: nothing may happen for @p limit milliseconds, or for ever if that is negative.
    void watch(int limit);
    /// Stops until the next watch(), whatever happens; stop() does so until the next restart().
    void unwatch();

    /// Something has happened.
    void noteProgress() { m_sinceProgress.start(); }
    /// Something has happened, which starts the timer again if it was stopped.
    void restart();

protected:
    void timerEvent(QTimerEvent* event) override;

private:
    const std::function<void()> m_onTimeout;
    QElapsedTimer m_sinceProgress;
    int m_limit = -1;
    bool m_isWatching = false;
};

} // namespace orv
