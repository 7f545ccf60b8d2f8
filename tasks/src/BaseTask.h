#pragma once

#include "orv_tasks_export.h"

#include <ErrorCancelable.h>

#include <memory>

namespace orv {

class TasksQueue;

/// A unit of work that has a name, a state and an outcome.
///
/// A task is idle, running, paused or finished. It starts with setRunning(), may return to idle to be run
/// again later, and ends with finish(), exactly once. A paused task waits for something and holds no slot of
/// its queue; isRunning() is true for it too. Signals are emitted after the state has changed, and a slot of
/// any of them may delete the task.
///
/// A task does not own its queue and is not owned by it. Used from the thread that it lives on.
class ORV_TASKS_EXPORT BaseTask : public ErrorCancelable
{
    Q_OBJECT

public:
    /// An idle task without a name.
    explicit BaseTask(QObject* parent = nullptr);
    ~BaseTask() override;

    /// The name that log lines contain; empty by default.
    QString name() const;
    /// Sets the name; allowed in every state.
    virtual void setName(const QString& name);

    /// True from setRunning() until the task returns to idle or finishes, also while it is paused.
    bool isRunning() const;
    /// True from pause() until resume(), or until the task returns to idle or finishes.
    bool isPaused() const;
    /// True from the call of finalize() on, for the rest of the task's life.
    bool isFinished() const;

    /// Deletes the task (deferred) after finished() when @p autoDelete is true. Off by default.
    void setAutoDelete(bool autoDelete);

    /// Makes an idle task running and emits started(); a paused one is resumed as by the base's resume(),
    /// without the signal. Does nothing once finish() has been called.
    void setRunning();
    /// Makes a running or paused task idle, so that it can be run again. Emits nothing; does nothing once
    /// finish() has been called.
    void setIdle();

    /// Ends the task, whatever its state, with @p error or with success.
    ///
    /// Stores the error, calls doFinish(), whose result is the final error, makes the task finished, calls
    /// finalize(), emits finished() and informs the queue. Only the first call has an effect, even if another
    /// one is made before it returns. An exception from doFinish() becomes an error of code
    /// ErrorCode::General; one from finalize() is logged; one from a slot of finished() reaches the caller
    /// after the queue was informed.
    void finish(Error error);

    /// The queue that the task is pending or active in, or null.
    TasksQueue* queue() const;

    /// Ends a task with ErrorCode::Canceled, also an idle one: sets the flag, emits canceled() and calls
    /// finish(). Does nothing once finish() has been called. An exception from a slot of canceled() reaches
    /// the caller after the task has finished.
    void cancel() override;

    /// Makes a running task paused: it waits, and gives its slot of the queue back. A paused task that waits
    /// for a slot does so no longer, until resume() is called again. Does nothing in other states; emits
    /// nothing.
    virtual void pause();
    /// Makes a paused task running again. Does nothing in other states; emits nothing.
    ///
    /// A task that its queue has started needs a slot for that. If none is free, or tasks that were resumed
    /// before wait for one, it stays paused, and the queue calls resume() again, from the event loop, when it
    /// is this task's turn. An override that calls the base therefore has to ask isPaused() before it
    /// continues its work, and is called again. A task that leaves the queue meanwhile, or whose queue is
    /// destroyed, is resumed from the event loop.
    virtual void resume();

protected:
    /// True from the call of finish() on: nothing that is done with the task changes how it ends.
    bool isFinishing() const;

    /// Tells the queue that the next exec() only begins to wait, by calling pause() before it returns: the
    /// queue then calls it without waiting for a slot. For a task that is about to be added to a queue; reset
    /// when it is started or leaves the queue.
    void setStartsWaiting(bool startsWaiting);

    /// Releases the resources of a finished task. Called once, before finished() is emitted. The base does
    /// nothing.
    virtual void finalize();

    /// Returns the error that the task ends with. error() is the argument of finish() during the call, and
    /// the base returns just that. Called once, while the task still has the state that it had before
    /// finish().
    virtual Error doFinish();

Q_SIGNALS:
    /// An idle task has become running; emitted once for each attempt of a task that is run again. Deleting
    /// the sender is safe.
    void started();
    /// The task has ended, and state and error are final. Emitted exactly once. Deleting the sender is safe.
    void finished();

private:
    friend class Task;
    friend class TasksQueue;

    class Private;
    std::unique_ptr<Private> d;
};

} // namespace orv
