#pragma once

#include <NetworkQueue.h>

#include <QList>
#include <QPointer>

namespace fetch {

/// A queue that starts no task while a login is in progress.
///
/// A task that waits for a login holds no slot, so a plain queue would start one task after another, all of
/// which wait as well and then resume at the same time. A task that this queue holds back keeps its slot
/// until the login has ended, and then its place in the queue.
class PatientQueue : public orv::NetworkQueue
{
    Q_OBJECT

public:
    using NetworkQueue::NetworkQueue;

    /// Sets the authenticator whose logins to wait for. Call it once, before any task is added.
    void setLogin(orv::AbstractAuthenticator* login);

protected:
    void exec(orv::Task* task) override;

private:
    void onLoginEnded();

    QList<QPointer<orv::Task>> m_held;
};

} // namespace fetch
