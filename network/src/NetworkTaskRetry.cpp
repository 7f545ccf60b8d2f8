#include "NetworkLog_p.h"
#include "NetworkTask_p.h"

#include <TasksQueue.h>

#include <QCoreApplication>
#include <QDebug>

namespace orv {

void NetworkTask::resetNetworkConnection()
{
    d->awaitedCompletion = 0;
    QObject::disconnect(d->managerConnection);
    if (d->networkConnection) {
        QObject::disconnect(*d->networkConnection);
        d->networkConnection.reset();
    }
    d->timer->stop();
}

void NetworkTask::processRecoverableError()
{
    qCDebug(networkLog) << "Recoverable error occurred:" << d->httpResponseStatusCode;
    processFailedReply({});
}

bool NetworkTask::retry()
{
    return d->retrySwitch && d->retry();
}

// Answers true when there is nothing left to decide: another attempt is on its way, or somebody has ended or
// deleted the task while it was told about one.
bool NetworkTask::Private::retry()
{
    // Managers go with the application object, and there is no event loop after it.
    if (!q->canRetry() || q->isFinished() || QCoreApplication::closingDown()) {
        qCDebug(networkLog) << "Can't retry task" << q->name();
        return false;
    }
    q->clearNetworkState();
    q->incrementRetries();
    qCDebug(networkLog) << "Task" << q->name() << request << "attempt #" << q->retriesCount();
    enterPhase(Phase::None);
    const QPointer<Private> guard(this);
    Q_EMIT q->aboutToRetry();
    if (!guard || q->isFinished())
        return true;
    q->setPriority(0);
    q->setIdle();
    if (const QPointer<TasksQueue> queue = q->queue()) {
        queue->removeTask(q);
        if (guard && queue)
            queue->append(q);
    } else if (!QMetaObject::invokeMethod(q, "exec", Qt::AutoConnection)) {
        return false;
    }
    if (guard && !q->isFinished())
        Q_EMIT q->retried();
    return true;
}

} // namespace orv
