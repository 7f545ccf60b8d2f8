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
/// Tasks of larger priority run first, and those of one priority in the order in which they were added. A
/// task is started from the event loop, never inside append(). It holds one slot while it runs and none while
/// it is paused, so a waiting task does not keep others from running. It resumes at once, even if that
/// exceeds the number of slots until another task ends.
///
/// A task stays in its queue until it finishes, is removed or is destroyed. The queue does not own its tasks:
/// when it is destroyed they stay as they are, with a null queue().
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
/// Adding, removing and starting a task take constant time. Queue and tasks live on one thread. In any slot
/// tasks may be added, removed, canceled and deleted, and the queue be cleared and deleted.
class ORV_TASKS_EXPORT TasksQueue : public QObject
{
    Q_OBJECT

public:
    /// Where a task is added to the pending ones of its priority.
    enum class EnqueueMode {
        Back,  ///< Behind all of them.
        Front, ///< Before all of them.
    };

    /// Which tasks clear() ends.
    enum class ClearPolicy {
        PendingOnly,       ///< Tasks that have not been started.
        PendingAndRunning, ///< All tasks of the queue.
    };

    /// An empty queue that runs one task at a time.
    explicit TasksQueue(QObject* parent = nullptr);
    ~TasksQueue() override;

    /// Adds @p task behind the pending ones of its priority, after removing it from another queue. Does
    /// nothing for null, for a finished task and for one that is in this queue already.
    void append(Task* task);

    /// Priorities are clamped to 0..@p maxPriority as tasks are added; a negative value counts as 0.
    /// Unbounded above until set.
    void setMaxPriority(int maxPriority);

    /// How many tasks may run at once; 1 by default, and for any value below. A larger value starts pending
    /// tasks from the event loop, a smaller one stops none.
    void setMaxRunningTasks(int maxRunningTasks);

    /// Removes @p task, pending or started; a running one continues without the queue. Emits nothing but
    /// emptied().
    virtual void removeTask(Task* task);
    /// Whether no task is in the queue, neither pending nor started.
    virtual bool isEmpty() const;
    /// How many tasks have not been started, or not again after they were added again.
    virtual int pendingTasksCount() const;
    /// Finishes the tasks that @p policy selects with @p error before it returns. Tasks that are added during
    /// the call stay.
    virtual void clear(ClearPolicy policy, const Error& error);

Q_SIGNALS:
    /// The exec() of @p task is called next. Emitted for each start, so again after a retry. A slot may
    /// delete the task or the queue, here and below.
    void taskStarted(orv::Task* task);
    /// @p task has finished and is no longer in the queue. Emitted once for each task that finishes while it
    /// is in the queue, after the task's own finished().
    void taskFinished(orv::Task* task);
    /// The queue has become empty; emitted from the event loop, unless another task has been added by then.
    void emptied();

protected:
    /// Emits taskStarted() and runs @p task.
    virtual void exec(Task* task);
    /// Adds @p task to the pending ones of its priority.
    virtual void enqueueTask(Task* task, EnqueueMode mode);
    /// Removes the next task from the pending ones and returns it; null when there is none. An override may
    /// delete the task or the queue. Pointers to anything but a task that the base has returned are ignored.
    virtual Task* dequeueTask();
    /// Called for every task that is added, to prepare and enqueue it.
    virtual void addTask(Task* task, EnqueueMode mode);
    /// Called when @p task has finished: removes it and emits taskFinished().
    virtual void onTaskFinished(Task* task);
    /// Called by the destructor of @p task: removes it. Overrides may use the pointer but not the object.
    virtual void onTaskDestroyed(Task* task);

private:
    friend class BaseTask;
    friend class Task;

    void onTaskStateChanged(BaseTask* task);

    class Private;
    std::unique_ptr<Private> d;
};

} // namespace orv
