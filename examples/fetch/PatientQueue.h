#pragma once

#include <NetworkQueue.h>

#include <QList>
#include <QPointer>

namespace fetch {

/// A queue that starts nothing while a login is under way.
///
/// A task that waits for a login holds no slot, so the queue by itself would start one after the other, only
/// to see them wait too, and then go on all at once. What this queue holds back keeps its slot until the
/// login has ended, and then its place in the queue.
class PatientQueue : public orv::NetworkQueue
{
    Q_OBJECT

public:
    using NetworkQueue::NetworkQueue;

    /// Sets the authenticator, whose logins are waited for. To be called once, before any task is added.
    void setLogin(orv::AbstractAuthenticator* login);

protected:
    void exec(orv::Task* task) override;

private:
    void onLoginEnded();

    QList<QPointer<orv::Task>> m_held;
};

} // namespace fetch
