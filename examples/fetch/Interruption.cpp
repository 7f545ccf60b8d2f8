#include "Interruption.h"

#include <chrono>
#include <csignal>

namespace fetch {

namespace {

volatile std::sig_atomic_t isInterrupted = 0;

} // namespace

// A signal handler may interrupt any code, so it does little more than set a flag.
extern "C" {
static void onInterrupted(int number)
{
    isInterrupted = 1;
    std::signal(number, SIG_DFL);
}
}

Interruption::Interruption(QObject* parent)
    : QObject(parent)
{
    std::signal(SIGINT, onInterrupted);
    std::signal(SIGTERM, onInterrupted);
    connect(&m_timer, &QTimer::timeout, this, &Interruption::poll);
    m_timer.start(std::chrono::milliseconds(50));
}

void Interruption::poll()
{
    if (!isInterrupted)
        return;
    m_timer.stop();
    Q_EMIT requested();
}

} // namespace fetch
