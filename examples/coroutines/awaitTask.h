#pragma once

#include <Task.h>

#include <QCoro/QCoroTask>

#include <QObject>
#include <QPointer>

#include <memory>

/// What awaitTask() returns; made to be awaited at once.
class TaskEnd
{
public:
    explicit TaskEnd(orv::Task* task)
        : m_task(task)
    {
    }

    /// Starts the task if nobody else has or will.
    bool await_ready()
    {
        if (m_task && !m_task->isRunning() && !m_task->isFinished() && !m_task->queue())
            m_task->exec();
        return !m_task || m_task->isFinished();
    }

    void await_suspend(std::coroutine_handle<> coroutine)
    {
        // Without the context there are no connections, so nothing resumes a coroutine that goes on already,
        // or one that has been destroyed.
        const auto goOn = [this, coroutine] {
            m_context.reset();
            coroutine.resume();
        };
        m_context = std::make_unique<QObject>();
        QObject::connect(m_task, &orv::Task::finished, m_context.get(), goOn);
        QObject::connect(m_task, &QObject::destroyed, m_context.get(), goOn);
    }

    orv::Error await_resume() const
    {
        if (m_task && m_task->isFinished())
            return m_task->error();
        return {orv::ErrorCode::Canceled, "The task was destroyed before it had a result"};
    }

private:
    QPointer<orv::Task> m_task;
    std::unique_ptr<QObject> m_context;
};

/// Waits in a coroutine until @p task has ended, and gives the error that it ended with.
/// @code
/// auto* task = new orv::NetworkTask(url, orv::NetworkTask::Normal, this);
/// task->setAutoDelete(true);
/// const orv::Error error = co_await awaitTask(task);
/// if (error.hasError())
///     co_return error;
/// co_return task->data();
/// @endcode
///
/// A task that is idle and in no queue is started; any other is waited for as it is. A finished one does not
/// suspend the coroutine.
///
/// The coroutine goes on exactly once. It does so inside of finished(), so a task that deletes itself is
/// still there until the next suspension; or, if somebody deletes the task first, inside of its destructor,
/// with ErrorCode::Canceled. After an error, look whether the task and its owner still exist. Destroying a
/// coroutine that waits is safe, and leaves the task alone.
///
/// A task that neither ends nor dies keeps its coroutine waiting: give tasks an owner, and in the owner's
/// destructor they and the coroutines come to their end. Task and coroutine are of one thread.
inline TaskEnd awaitTask(orv::Task* task)
{
    return TaskEnd(task);
}
