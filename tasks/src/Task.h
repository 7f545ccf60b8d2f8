#pragma once

#include "BaseTask.h"
#include "orv_tasks_export.h"

#include <QCoro/QCoroTask>

namespace orv {

/// A task that is run by calling exec(), directly or by a TasksQueue.
///
/// A derived class implements its work in one of three functions: doExec() for work that is done when it
/// returns, co_doExec() for a coroutine, or exec() itself for work that ends with finish() some time later.
/// @code
/// QCoro::Task<Error> ChecksumTask::co_doExec()
/// {
///     const QPointer<ChecksumTask> self(this);
///     const QByteArray sum = co_await QtConcurrent::run(sha256, m_path);
///     if (self)
///         m_sum = sum;
///     co_return sum.isEmpty() ? Error(ErrorCode::FileAccess, tr("Cannot read the file")) : Error();
/// }
/// @endcode
///
/// Ownership, thread and signals are those of BaseTask.
class ORV_TASKS_EXPORT Task : public BaseTask
{
    Q_OBJECT

public:
    /// An idle task of priority 0.
    explicit Task(QObject* parent = nullptr);
    ~Task() override;

    /// A queue runs tasks of larger priority first. Read when the task is added to a queue, where a negative
    /// value counts as 0, the default.
    void setPriority(int priority);

protected:
    void finalize() override;

public:
    /// Makes an idle task running, runs co_doExec() and finishes with its result. A running task is left
    /// alone, and for a finished one a warning is logged. An exception from co_doExec() or doExec() becomes
    /// an error of code ErrorCode::General.
    ///
    /// A task may be deleted while its coroutine is suspended. The coroutine may still be resumed, and must
    /// check that its task exists before it uses it.
    virtual void exec();

protected:
    /// The work, for a task that is done when this returns. The base returns success.
    virtual Error doExec();
    /// The work as a coroutine, started inside exec(). The base runs doExec().
    virtual QCoro::Task<Error> co_doExec();

private:
    static QCoro::Task<> run(Task* task);
};

} // namespace orv
