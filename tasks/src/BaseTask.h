#pragma once

#include "orv_tasks_export.h"

#include <ErrorCancelable.h>

#include <memory>

namespace orv {

class TasksQueue;

/// A piece of work with a name, a state and exactly one end.
///
/// A task is idle, running, paused or finished. Work begins with setRunning(), may go back to idle to begin
/// again later, and ends with finish(), once. A paused task is one that waits for something and holds none of
/// its queue's slots meanwhile; isRunning() stays true for it. Every change is made before the signal that
/// tells of it, and every signal may be answered by deleting the task.
///
/// A task does not own its queue and is not owned by it. It is used from the thread that it lives on.
class ORV_TASKS_EXPORT BaseTask : public ErrorCancelable
{
    Q_OBJECT

public:
    /// An idle task without a name.
    explicit BaseTask(QObject* parent = nullptr);
    ~BaseTask() override;

    /// A name for log lines; empty by default.
    QString name() const;
    /// Names the task, at any time.
    virtual void setName(const QString& name);

    /// True from setRunning() until the task goes back to idle or finishes, pauses included.
    bool isRunning() const;
    /// True while the task waits.
    bool isPaused() const;
    /// True once the task has ended, for the rest of its life.
    bool isFinished() const;

    /// Deletes the task (deferred) after finished() when @p autoDelete is true. Off by default.
    void setAutoDelete(bool autoDelete);

    /// Marks an idle task running and emits started(); a paused one goes on. Without effect on a finished
    /// task.
    void setRunning();
    /// Puts a running or paused task back, to be run again. Without effect on a finished task.
    void setIdle();

    /// Ends the task, in whatever state it is, with @p error, or with success when it is none.
    ///
    /// Stores the error, calls doFinish(), whose result is the final error, makes the task finished, calls
    /// finalize(), emits finished() and tells the queue. Only the first call acts; a call made while it runs
    /// does nothing.
    void finish(Error error);

    /// The queue that holds the task, or null.
    TasksQueue* queue() const;

    /// Ends a task that has not finished with ErrorCode::Canceled, an idle one included: sets the flag, emits
    /// canceled() and calls finish(). Without effect once finish() has begun.
    void cancel() override;

    /// Marks a running task as waiting: it gives back the slot of its queue. Without effect in other states.
    virtual void pause();
    /// Marks a waiting task as going on: it takes a slot of its queue. Without effect in other states.
    virtual void resume();

protected:
    /// Releases what the finished task holds. Called once, before finished() is emitted.
    virtual void finalize();

    /// Judges the end: error() holds what finish() was given; the result is what the task ends with. The base
    /// returns the stored error as it is.
    virtual Error doFinish();

Q_SIGNALS:
    /// The task went from idle to running; once for each attempt of a task that is run again.
    void started();
    /// The task has ended; emitted exactly once, when state and error are final.
    void finished();

private:
    friend class Task;
    friend class TasksQueue;

    class Private;
    std::unique_ptr<Private> d;
};

} // namespace orv
