#include "PatientQueue.h"

#include <AbstractAuthenticator.h>
#include <Task.h>

#include <algorithm>
#include <utility>

namespace fetch {

using orv::AbstractAuthenticator;

// Connected before any task, so that free slots go first to the tasks held back during the login.
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
    auto held = std::exchange(m_held, {});
    std::reverse(held.begin(), held.end()); // each is inserted in front of the previous one
    for (const auto& task : std::as_const(held)) {
        if (!task || task->queue() != this)
            continue;
        removeTask(task);
        addTask(task, EnqueueMode::Front);
    }
}

} // namespace fetch
