#include "Task.h"

#include "BaseTask_p.h"
#include "CurrentException_p.h"
#include "TasksLog_p.h"
#include "TasksQueue.h"

#include <QDebug>
#include <QPointer>

namespace orv {

Task::Task(QObject* parent)
    : BaseTask(parent)
{
}

Task::~Task()
{
    if (d->queue)
        d->queue->onTaskDestroyed(this);
    if (d->queue) // an override that does not call its base
        d->queue->TasksQueue::onTaskDestroyed(this);
}

void Task::setPriority(int priority)
{
    d->priority = priority;
}

void Task::finalize()
{
    BaseTask::finalize();
}

void Task::exec()
{
    if (isFinished())
        qCWarning(tasksLog) << "Unable to continue, the task is finished";
    if (isFinished() || isRunning())
        return;
    const QPointer<Task> self(this);
    setRunning();
    if (self && isRunning())
        run(this);
}

Error Task::doExec()
{
    return Error(ErrorCode::None);
}

QCoro::Task<Error> Task::co_doExec()
{
    co_return doExec();
}

// Outlives a task that is destroyed while its coroutine is suspended, so it uses the task only through the
// guard.
QCoro::Task<> Task::run(Task* task)
{
    const QPointer<Task> self(task);
    Error outcome;
    try {
        outcome = co_await task->co_doExec();
    } catch (...) {
        outcome = errorOfCurrentException();
    }
    if (self)
        self->finish(outcome);
}

} // namespace orv
