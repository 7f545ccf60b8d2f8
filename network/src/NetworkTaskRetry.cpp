// Repeating a failed attempt.

#include "NetworkLog_p.h"
#include "NetworkTask_p.h"
#include "Redaction_p.h"

#include <TasksQueue.h>

#include <QCoreApplication>
#include <QDebug>

namespace orv {

bool NetworkTask::retry()
{
    return d->isRetryAllowed && d->retry();
}

// Returns true if the caller must do nothing more: another attempt is on its way, or the task was ended,
// deleted or given something else to do while it was announced.
bool NetworkTask::Private::retry()
{
    // Access managers are deleted with the application object, and there is no event loop after it.
    if (!q->canRetry() || q->isFinished() || QCoreApplication::closingDown()) {
        qCDebug(networkLog) << "Can't retry task" << q->name();
        return false;
    }
    q->clearNetworkState();
    q->incrementRetries();
    enterPhase(Phase::Retrying);
    const ForeignCall call(calls);
    if (!logAttempt())
        return true;
    endIfThrown([this] { Q_EMIT q->aboutToRetry(); });
    return !call || executeAgain();
}

// Returns false if the caller must do nothing more: the masking function is the program's and may end the
// task.
bool NetworkTask::Private::logAttempt()
{
    if (!networkLog().isDebugEnabled())
        return true;
    const ForeignCall call(calls);
    const auto text = debugText(request);
    if (!call)
        return false;
    qCDebug(networkLog) << "Task" << q->name() << text.constData() << "attempt #" << q->retriesCount();
    return true;
}

bool NetworkTask::Private::executeAgain()
{
    enterPhase(Phase::Idle);
    q->setPriority(0);
    q->setIdle();
    const ForeignCall call(calls);
    const QPointer<TasksQueue> queue = q->queue();
    if (queue)
        queue->removeTask(q);
    if (call && queue)
        queue->append(q);
    else if (call && !QMetaObject::invokeMethod(q, "exec", Qt::AutoConnection))
        return false;
    if (call.isTaskAlive() && phase != Phase::Ended)
        Q_EMIT q->retried();
    return true;
}

} // namespace orv
