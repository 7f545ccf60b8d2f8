#pragma once

#include "orv_tasks_export.h"

#include <Error.h>

#include <QByteArray>
#include <QObject>

#include <memory>

namespace orv {

class BaseTask;
class Task;

/// Runs tasks in the order of their priority, a bounded number at a time.
///
/// Tasks of larger priority run first, and those of one priority in the order in which they were added. A
/// task is started from the event loop, never inside append(). It holds one slot from its start on, and none
/// while it is paused, so a waiting task does not keep others from running. It needs a slot again to go on:
/// it takes a free one at once, inside resume(); otherwise it stays paused, and is resumed from the event
/// loop as soon as there is one. Such tasks are served in the order in which their waits ended, and before
/// tasks that were never started, whatever the priorities. So never more tasks run than setMaxRunningTasks()
/// allows, except those that a program starts itself, by exec() or setRunning() on an idle task.
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

    /// A gatekeeper's answer about a task.
    struct Admission
    {
        /// What may happen to the task now.
        enum class Verdict {
            GoOn, ///< It may start or go on.
            Hold, ///< It is held at the gate until that opens; others may go on meanwhile.
            Wait, ///< Neither it nor any other may, until startTasks() is called.
        };

        Verdict verdict = Verdict::GoOn; ///< The decision.
        QByteArray gate;                 ///< The gate to hold it at; any name.
    };

    /// What a subclass decides with which tasks may go on, beyond the number of slots.
    ///
    /// Its functions may call openGate(), openGates() and startTasks(), but must not change the queue or its
    /// tasks otherwise.
    class Gatekeeper
    {
    public:
        /// Whether @p task, whose turn it is, may be started, or resumed if it is paused. Called again for
        /// each task that is refused, when it is its turn again; a task that is held at a closed gate has no
        /// turn.
        virtual Admission admit(Task* task) = 0;
        /// @p task has taken a slot, or has given it back. In the second case it may be being destroyed, and
        /// only the pointer may be used.
        virtual void onSlotChanged(Task* task, bool holdsSlot) = 0;

    protected:
        ~Gatekeeper() = default;
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

    /// How many tasks may run at once; 1 by default, and for any value below. Paused tasks do not count. A
    /// larger value starts and resumes tasks from the event loop; a smaller one stops none, but no other task
    /// starts or resumes until fewer run.
    void setMaxRunningTasks(int maxRunningTasks);

    /// Removes @p task, pending or started; a running one continues without the queue, and one that waits for
    /// a slot goes on from the event loop. Emits nothing but emptied().
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
    /// Asks @p gatekeeper from now on; nobody for null, the initial value. To be set by the constructor of a
    /// subclass, which may be the gatekeeper itself. Opens all gates.
    void setGatekeeper(Gatekeeper* gatekeeper);
    /// Makes the tasks that are held at @p gate candidates again, in the places that they had: resumed tasks
    /// before others, then by priority, then in the order in which they were added. They are started from the
    /// event loop. The gate closes when the next of them is refused. Does nothing for a gate at which no task
    /// is held. Constant time, however many tasks are held.
    void openGate(const QByteArray& gate);
    /// Opens all gates.
    void openGates();
    /// Makes a single task a candidate again, if it is held at a gate.
    void reconsider(Task* task);
    /// Starts tasks from the event loop, after Verdict::Wait.
    void startTasks();

    /// Emits taskStarted() and runs @p task.
    virtual void exec(Task* task);
    /// Adds @p task to the pending ones of its priority.
    virtual void enqueueTask(Task* task, EnqueueMode mode);
    /// Removes the next task from the pending ones and returns it; null when there is none that may be
    /// started now. An override may delete the task or the queue. Pointers to anything but a task that the
    /// base has returned are ignored.
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
    bool mayGoOn(BaseTask* task);
    void stopWaitingForSlot(BaseTask* task);

    class Private;
    std::unique_ptr<Private> d;
};

} // namespace orv
