#pragma once

#include "orv_network_export.h"

#include <TasksQueue.h>

#include <QByteArray>

#include <chrono>
#include <memory>

class QNetworkReply;

namespace orv {

class AbstractAuthenticator;
class NetworkTask;
class SslIgnorantNetworkAccessManager;

/// A queue for network tasks that share an access manager, an authenticator and a User-Agent.
///
/// A task is given them when the program adds it, not when it is retried. The queue's authenticator replaces
/// the task's own, unless NetworkTask::usesQueueAuthenticator() is false; the access manager and the
/// User-Agent are given to tasks that have none of their own.
///
/// setMaxRunningTasks() sets how many run at once, whatever they waited for before. A task that waits for a
/// login or for the delay before an attempt is not one of them. The delay of a retry runs from the failure,
/// while other tasks run; a retry without a delay takes its turn with priority 0.
///
/// While a task's authenticator is in State::Authenticating, a task that requires authentication is held: it
/// is neither started nor, after the delay before an attempt, resumed, while all others are. When the login
/// has ended, tasks that wait for it themselves continue first. A task that was held and whose turn comes
/// after the login has failed ends as if it had waited for it, without asking for another one; unless the
/// failure was temporary and the authenticator may retry.
///
/// The limits below are off until set. They and the slots are taken into account whenever a task starts, and
/// when it continues after a wait. A task that one of them holds back lets tasks behind it go first, except
/// where setMaxStartsPerSecond() does, and keeps its place. Where several apply, all must allow it.
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

    /// How many tasks run at once for one host, that is for one scheme, host and port of request().url; 0 if
    /// unbounded, which is the default.
    int maxTasksPerHost() const;
    /// Sets maxTasksPerHost(). 0 and negative numbers turn the limit off. A smaller limit stops no task.
    void setMaxTasksPerHost(int maxTasks);

    /// How many tasks start or continue in a second; 0 if unbounded, which is the default.
    double maxStartsPerSecond() const;
    /// Sets maxStartsPerSecond(), of whatever kind the tasks are. They are spaced evenly, by 1/@p rate s:
    /// after an idle time one starts at once, and the next waits. What an event loop is late is caught up if
    /// it is at most 10 ms. 0, negative numbers and NaN turn the limit off.
    void setMaxStartsPerSecond(double rate);

    /// How long a host may keep the queue from sending to it; 0 if it may not, which is the default.
    std::chrono::milliseconds maxCoolDown() const;
    /// Sets maxCoolDown(). After a 429 or 503 with the field Retry-After, no task for that host starts or
    /// continues for as long as the field says, but at most for @p longest from the reply on. Requests that
    /// have been sent go on. 0 and negative times turn this off; hosts that are being spared stay so.
    void setMaxCoolDown(std::chrono::milliseconds longest);

protected:
    /// Gives the task what the queue's tasks share, unless it is a retry's, and enqueues it.
    void addTask(Task* task, EnqueueMode mode) override;

private:
    friend class NetworkTask;

    static void reconsiderTask(NetworkTask* task);
    void onServerBusy(const QNetworkReply& reply);

    class Private;
    std::unique_ptr<Private> d;
};

} // namespace orv
