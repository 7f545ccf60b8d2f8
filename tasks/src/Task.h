#pragma once

#include "BaseTask.h"
#include "orv_tasks_export.h"

#include <QCoro/QCoroTask>

namespace orv {

/// A task that is run by calling exec(), directly or by a TasksQueue.
///
/// A derived class gives its work in one of three forms: doExec() for work that is done when it returns,
/// co_doExec() for a coroutine, or exec() itself for work that ends with finish() some time later.
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

    /// The larger, the earlier a queue runs the task; read when the task is added to a queue. 0 by default,
    /// which is also the lowest that a queue knows: it takes a negative priority as 0.
    void setPriority(int priority);

protected:
    void finalize() override;

public:
    /// Runs the task: marks it running, runs co_doExec() and finishes with its result. A running or
    /// finished task is not run again. An exception that leaves co_doExec() or doExec() becomes an error of
    /// code ErrorCode::General.
    ///
    /// A task may be deleted while its coroutine is suspended. The coroutine itself then stays suspended, or
    /// goes on when what it awaits comes, so it must look whether its task still exists before it touches it.
    virtual void exec();

protected:
    /// The work, for a task that is done when this returns. The base returns success.
    virtual Error doExec();
    /// The work as a coroutine, begun inside exec(). The base runs doExec().
    virtual QCoro::Task<Error> co_doExec();

private:
    static QCoro::Task<> run(Task* task);
};

} // namespace orv
