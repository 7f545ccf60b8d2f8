#include "PatientQueue.h"

#include <AbstractAuthenticator.h>
#include <Task.h>

#include <utility>

namespace fetch {

using orv::AbstractAuthenticator;

// Connected before any task is, so that free slots go first to those that have waited for the login.
void PatientQueue::setLogin(AbstractAuthenticator* login)
{
    setAuthenticator(login);
    connect(login, &AbstractAuthenticator::authenticated, this, &PatientQueue::onLoginEnded);
    connect(login, &AbstractAuthenticator::error, this, &PatientQueue::onLoginEnded);
}

void PatientQueue::exec(orv::Task* task)
{
    if (authenticator() && authenticator()->state() == AbstractAuthenticator::State::Authenticating)
        m_held.append(task);
    else
        NetworkQueue::exec(task);
}

void PatientQueue::onLoginEnded()
{
    const auto held = std::exchange(m_held, {});
    for (auto task = held.crbegin(); task != held.crend(); ++task) {
        if (!*task || (*task)->queue() != this)
            continue;
        removeTask(*task);
        addTask(*task, EnqueueMode::Front);
    }
}

} // namespace fetch
