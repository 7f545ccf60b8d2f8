#include "BaseTask.h"

#include "BaseTask_p.h"
#include "CurrentException_p.h"
#include "TasksLog_p.h"
#include "TasksQueue.h"

#include <QDebug>
#include <QPointer>

#include <exception>
#include <utility>

namespace orv {

void BaseTask::Private::setState(State newState)
{
    if (state == newState)
        return;
    state = newState;
    if (state != State::Paused)
        wantsSlot = false;
    if (queue)
        queue->onTaskStateChanged(q);
}

// A task whose doFinish() throws would otherwise never end: finish() acts only once.
Error BaseTask::Private::judgeEnd()
{
    try {
        return q->doFinish();
    } catch (...) {
        return errorOfCurrentException();
    }
}

// The outcome is final by now, so all that is left to do with an exception is to report it.
void BaseTask::Private::releaseResources()
{
    try {
        q->finalize();
    } catch (...) {
        qCWarning(tasksLog) << "Exception while a task was finalized:" << errorOfCurrentException();
    }
}

void BaseTask::Private::announceEnd()
{
    const QPointer<BaseTask> self(q);
    std::exception_ptr thrownBySlot;
    try {
        Q_EMIT q->finished();
    } catch (...) {
        thrownBySlot = std::current_exception();
    }
    if (self && isAutoDelete)
        q->deleteLater();
    if (self && queue)
        queue->onTaskFinished(link.task);
    if (thrownBySlot)
        std::rethrow_exception(thrownBySlot);
}

// Whether a paused task may become running now. If not, its queue resumes it later.
bool BaseTask::Private::mayGoOn()
{
    return !queue || queue->mayGoOn(q);
}

// For a task that no longer waits for a slot, since it has left its queue.
void BaseTask::Private::goOnWithoutQueue()
{
    const auto resume = [this] {
        if (wantsSlot)
            q->resume();
    };
    QMetaObject::invokeMethod(q, resume, Qt::QueuedConnection);
}

BaseTask::BaseTask(QObject* parent)
    : ErrorCancelable(parent)
    , d(std::make_unique<Private>(this))
{
}

BaseTask::~BaseTask() = default;

QString BaseTask::name() const
{
    return d->name;
}

void BaseTask::setName(const QString& name)
{
    d->name = name;
}

bool BaseTask::isRunning() const
{
    return d->state == Private::State::Running || d->state == Private::State::Paused;
}

bool BaseTask::isPaused() const
{
    return d->state == Private::State::Paused;
}

bool BaseTask::isFinished() const
{
    return d->state == Private::State::Finished;
}

bool BaseTask::isFinishing() const
{
    return d->isFinishing;
}

void BaseTask::setAutoDelete(bool autoDelete)
{
    d->isAutoDelete = autoDelete;
}

void BaseTask::setRunning()
{
    if (!d->mayChange())
        return;
    if (isPaused() && !d->mayGoOn())
        return;
    const bool wasIdle = d->state == Private::State::Idle;
    d->setState(Private::State::Running);
    if (wasIdle)
        Q_EMIT started();
}

void BaseTask::setIdle()
{
    if (d->mayChange())
        d->setState(Private::State::Idle);
}

void BaseTask::finish(Error error)
{
    if (!d->mayChange())
        return;
    d->isFinishing = true;
    const QPointer<BaseTask> self(this);

    setError(std::move(error));
    Error verdict = d->judgeEnd();
    if (!self)
        return;
    setError(std::move(verdict));
    d->setState(Private::State::Finished);
    d->releaseResources();
    if (self)
        d->announceEnd();
}

TasksQueue* BaseTask::queue() const
{
    return d->queue;
}

void BaseTask::cancel()
{
    if (!d->mayChange() || d->isCanceling)
        return;
    d->isCanceling = true;
    setCanceled(true);
    const QPointer<BaseTask> self(this);
    std::exception_ptr thrownBySlot;
    try {
        Q_EMIT canceled();
    } catch (...) {
        thrownBySlot = std::current_exception();
    }
    if (self)
        finish(Error(ErrorCode::Canceled, tr("Canceled")));
    if (thrownBySlot)
        std::rethrow_exception(thrownBySlot);
}

void BaseTask::pause()
{
    if (!d->mayChange())
        return;
    if (d->state == Private::State::Running)
        d->setState(Private::State::Paused);
    else if (d->queue)
        d->queue->stopWaitingForSlot(this);
    d->wantsSlot = false;
}

void BaseTask::resume()
{
    if (d->mayChange() && isPaused() && d->mayGoOn())
        d->setState(Private::State::Running);
}

void BaseTask::setStartsWaiting(bool startsWaiting)
{
    d->startsWaiting = startsWaiting;
}

void BaseTask::finalize() {}

Error BaseTask::doFinish()
{
    return error();
}

} // namespace orv
