#pragma once

#include "orv_network_export.h"

#include <TasksQueue.h>

#include <QByteArray>

#include <memory>

namespace orv {

class AbstractAuthenticator;
class SslIgnorantNetworkAccessManager;

/// A queue for network tasks, which share what they need: an access manager, a login and a User-Agent.
///
/// Each task is given them as it is added. The queue's authenticator replaces the task's own; the access
/// manager and the User-Agent go to tasks that have none of their own. How many run at once is set with
/// setMaxRunningTasks().
/// @code
/// NetworkQueue queue;
/// queue.setMaxRunningTasks(network::MAX_PARALLEL_REQUESTS);
/// queue.setAuthenticator(&login);
/// for (const auto& url : urls)
///     queue.append(new NetworkTask(url, NetworkTask::Priority::Normal, this));
/// @endcode
///
/// Each queue makes an access manager of its own, a child of the application object that outlives the queue.
/// The authenticator belongs to the application. Everything lives on one thread.
class ORV_NETWORK_EXPORT NetworkQueue : public TasksQueue
{
    Q_OBJECT

public:
    /// An empty queue with an access manager of its own, which verifies certificates. Priorities are 0 to 2.
    explicit NetworkQueue(QObject* parent = nullptr);
    ~NetworkQueue() override;

    /// The authenticator for tasks that are added, or null when none was set or it has been destroyed.
    AbstractAuthenticator* authenticator() const;
    /// Sets the authenticator for tasks that are added from now on; null, the initial value, leaves them
    /// their own. Tasks already added keep what they were given. Not owned; forgotten when it is destroyed.
    void setAuthenticator(AbstractAuthenticator* authenticator);

    /// The queue's access manager, or null if it has been destroyed.
    SslIgnorantNetworkAccessManager* networkAccessManager();
    /// Whether the queue's access manager takes any certificate. Also affects tasks already added. To be
    /// called only while the application object exists.
    void setIgnoreSslErrors(bool ignore);

    /// The User-Agent for tasks that are added; "OrvLabs" by default.
    QByteArray userAgent() const;
    /// Sets it for tasks that are added from now on; tasks already added keep what they were given.
    void setUserAgent(const QByteArray& userAgent);

protected:
    void addTask(Task* task, EnqueueMode mode) override;

private:
    class Private;
    std::unique_ptr<Private> d;
};

} // namespace orv
