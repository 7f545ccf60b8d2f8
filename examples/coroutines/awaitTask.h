#pragma once

#include <Task.h>

#include <QCoro/QCoroTask>

#include <QObject>
#include <QPointer>

#include <memory>

/// The awaitable returned by awaitTask(); to be awaited immediately.
class TaskEnd
{
public:
    explicit TaskEnd(orv::Task* task)
        : m_task(task)
    {
    }

    /// Starts the task if it is idle and in no queue.
    bool await_ready()
    {
        if (m_task && !m_task->isRunning() && !m_task->isFinished() && !m_task->queue())
            m_task->exec();
        return !m_task || m_task->isFinished();
    }

    void await_suspend(std::coroutine_handle<> coroutine)
    {
        // Resetting the context removes both connections, so that a coroutine is not resumed a second time,
        // nor after it has been destroyed.
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

/// Suspends a coroutine until @p task has finished, and returns the task's error.
/// @code
/// auto* task = new orv::NetworkTask(url, orv::NetworkTask::Normal, this);
/// task->setAutoDelete(true);
/// const orv::Error error = co_await awaitTask(task);
/// if (error.hasError())
///     co_return error;
/// co_return task->data();
/// @endcode
///
/// A task that is idle and in no queue is started; any other is left as it is. A finished task does not
/// suspend the coroutine.
///
/// The coroutine is resumed exactly once: during finished(), so that a task with auto-delete exists until the
/// next suspension, or in the destructor of a task that is deleted earlier, with ErrorCode::Canceled. After
/// an error, check whether the task and its owner still exist. Destroying a suspended coroutine is safe and
/// does not affect the task.
///
/// A task that neither finishes nor is destroyed keeps its coroutine suspended. Give each task an owner,
/// whose destructor then resumes the coroutine. Task and coroutine must be on one thread.
inline TaskEnd awaitTask(orv::Task* task)
{
    return TaskEnd(task);
}
