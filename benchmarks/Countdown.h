#pragma once

#include <QEventLoop>

#include <stdexcept>
#include <string>

namespace benchmark {

/// Runs an event loop until an operation has been done a number of times or has failed.
class Countdown
{
public:
    explicit Countdown(int count)
        : m_toStart(count)
        , m_toFinish(count)
    {
    }

    /// Whether another operation is to be started; if so, it counts as started.
    bool take() { return m_toStart-- > 0; }

    void finish(bool isAsExpected)
    {
        m_hasFailed = m_hasFailed || !isAsExpected;
        if (--m_toFinish == 0 || m_hasFailed)
            m_loop.quit();
    }

    void wait()
    {
        m_loop.exec();
        if (m_hasFailed)
            throw std::runtime_error("a reply is not what it should be");
    }

private:
    QEventLoop m_loop;
    int m_toStart;
    int m_toFinish;
    bool m_hasFailed = false;
};

} // namespace benchmark
