#pragma once

#include "orv_tasks_export.h"

#include <Error.h>

#include <QObject>

#include <memory>

namespace orv {

class BaseTask;
class Task;

/// Runs tasks in the order of their priority, a bounded number at a time.
///
/// The larger priority runs first; within one priority the first in is the first out. A task starts from the
/// event loop, never inside append(). It holds one slot while it runs and none while it is paused, so a task
/// that waits keeps nobody from running; when it goes on, it does so at once, even where that is briefly one
/// too many.
///
/// A task stays with its queue until it finishes, is removed or is destroyed. The queue owns none of its
/// tasks: a destroyed queue leaves them as they are, with a null queue().
/// @code
/// TasksQueue queue;
/// queue.setMaxRunningTasks(4);
/// for (const auto& path : paths) {
///     auto* task = new ChecksumTask(path);
///     task->setAutoDelete(true);
///     queue.append(task);
/// }
/// connect(&queue, &TasksQueue::emptied, this, &Window::showSums);
/// @endcode
///
/// Adding, removing and taking a task cost the same whatever the length of the queue. Queue and tasks live on
/// one thread. Tasks and the queue itself may be added, removed, cancelled, cleared and deleted in any slot.
class ORV_TASKS_EXPORT TasksQueue : public QObject
{
    Q_OBJECT

public:
    /// Where among the pending tasks of its priority a task is put.
    enum class EnqueueMode {
        Back,  ///< Behind all of them.
        Front, ///< Before all of them.
    };

    /// Which tasks clear() ends.
    enum class ClearPolicy {
        PendingOnly,       ///< Those that have not been started.
        PendingAndRunning, ///< All of them.
    };

    /// An empty queue that runs one task at a time.
    explicit TasksQueue(QObject* parent = nullptr);
    ~TasksQueue() override;

    /// Adds @p task behind the pending ones of its priority. A task of another queue leaves that one first. A
    /// null or finished task, and one that this queue holds already, changes nothing.
    void append(Task* task);

    /// Priorities are clamped to 0..@p maxPriority as tasks are added; a negative value counts as 0.
    /// Unbounded above until set.
    void setMaxPriority(int maxPriority);

    /// How many tasks may run at once; 1 by default, and for any smaller value. A larger value starts pending
    /// tasks, a smaller one stops none that runs.
    void setMaxRunningTasks(int maxRunningTasks);

    /// Takes @p task out of the queue, pending or running; a running one goes on without the queue.
    virtual void removeTask(Task* task);
    /// Whether the queue holds no task, neither pending nor running.
    virtual bool isEmpty() const;
    /// How many tasks wait for their first or next start.
    virtual int pendingTasksCount() const;
    /// Finishes the tasks that @p policy names with @p error, inside the call. Tasks added meanwhile stay.
    virtual void clear(ClearPolicy policy, const Error& error);

Q_SIGNALS:
    /// @p task is about to run; its exec() is called next. Emitted for each start, so again after a retry.
    void taskStarted(orv::Task* task);
    /// @p task has finished and left the queue. Once for each task that finishes while the queue holds it,
    /// after the task's own finished(). As with every signal of the queue, a slot may delete the task or the
    /// queue.
    void taskFinished(orv::Task* task);
    /// The last task has left the queue; emitted from the event loop, if no other task has come meanwhile.
    void emptied();

protected:
    /// Emits taskStarted() and runs @p task.
    virtual void exec(Task* task);
    /// Puts @p task among the pending ones.
    virtual void enqueueTask(Task* task, EnqueueMode mode);
    /// Takes the next pending task; null when there is none.
    virtual Task* dequeueTask();
    /// Every task that enters the queue comes through here.
    virtual void addTask(Task* task, EnqueueMode mode);
    /// Called when @p task has finished; it leaves the queue.
    virtual void onTaskFinished(Task* task);
    /// Called when @p task is being destroyed; it may not be used any more, only named.
    virtual void onTaskDestroyed(Task* task);

private:
    friend class BaseTask;
    friend class Task;

    void onTaskStateChanged(BaseTask* task);

    class Private;
    std::unique_ptr<Private> d;
};

} // namespace orv
