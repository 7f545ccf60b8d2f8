#pragma once

#include "orv_network_export.h"

#include <TasksQueue.h>

#include <QByteArray>

#include <memory>

namespace orv {

class AbstractAuthenticator;
class SslIgnorantNetworkAccessManager;

/// A queue for network tasks that share an access manager, an authenticator and a User-Agent.
///
/// A task is given them when the program adds it, not when it is retried. The queue's authenticator replaces
/// the task's own, unless NetworkTask::usesQueueAuthenticator() is false; the access manager and the
/// User-Agent are given to tasks that have none of their own. setMaxRunningTasks() sets how many run at once.
/// @code
/// NetworkQueue queue;
/// queue.setMaxRunningTasks(network::MAX_PARALLEL_REQUESTS);
/// queue.setAuthenticator(&login);
/// for (const auto& url : urls)
///     queue.append(new NetworkTask(url, NetworkTask::Priority::Normal, this));
/// @endcode
///
/// Each queue creates an access manager of its own, as a child of the application object; it outlives the
/// queue. The application owns the authenticator. All of these objects live on one thread.
class ORV_NETWORK_EXPORT NetworkQueue : public TasksQueue
{
    Q_OBJECT

public:
    /// An empty queue with an access manager of its own, which verifies certificates. Priorities are 0 to 2.
    explicit NetworkQueue(QObject* parent = nullptr);
    ~NetworkQueue() override;

    /// The authenticator for tasks that are added, or null when none was set or it has been destroyed.
    AbstractAuthenticator* authenticator() const;
    /// For tasks that are added from now on; with null, the initial value, they keep their own. Tasks in the
    /// queue keep what they were given. The queue does not own it, and has none after it is destroyed.
    void setAuthenticator(AbstractAuthenticator* authenticator);

    /// The queue's access manager, or null if it has been destroyed.
    SslIgnorantNetworkAccessManager* networkAccessManager();
    /// Whether the queue's access manager accepts any certificate; false by default. Affects every request
    /// that is sent through it from now on, also those of tasks in the queue. To be called only while the
    /// application object exists.
    void setIgnoreSslErrors(bool ignore);

    /// The User-Agent for tasks that are added without one; "OrvLabs" by default.
    QByteArray userAgent() const;
    /// For tasks that are added from now on; tasks in the queue keep what they were given.
    void setUserAgent(const QByteArray& userAgent);

protected:
    /// Gives the task what the queue's tasks share, unless it is a retry's, and enqueues it.
    void addTask(Task* task, EnqueueMode mode) override;

private:
    class Private;
    std::unique_ptr<Private> d;
};

} // namespace orv
