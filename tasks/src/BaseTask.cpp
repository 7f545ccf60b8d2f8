#include "BaseTask.h"

#include "BaseTask_p.h"
#include "TasksQueue.h"

#include <QPointer>

#include <utility>

namespace orv {

void BaseTask::Private::setState(State newState)
{
    if (state == newState)
        return;
    state = newState;
    if (queue)
        queue->onTaskStateChanged(q);
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

void BaseTask::setAutoDelete(bool autoDelete)
{
    d->autoDelete = autoDelete;
}

void BaseTask::setRunning()
{
    if (!d->mayChange())
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
    d->finishing = true;
    const QPointer<BaseTask> self(this);

    setError(std::move(error));
    Error verdict = doFinish();
    if (!self)
        return;
    setError(std::move(verdict));
    d->setState(Private::State::Finished);
    finalize();
    if (!self)
        return;
    Q_EMIT finished();
    if (!self)
        return;
    if (d->autoDelete)
        deleteLater();
    if (d->queue)
        d->queue->onTaskFinished(d->link.task);
}

TasksQueue* BaseTask::queue() const
{
    return d->queue;
}

void BaseTask::cancel()
{
    if (!d->mayChange() || d->cancelling)
        return;
    d->cancelling = true;
    setCanceled(true);
    const QPointer<BaseTask> self(this);
    Q_EMIT canceled();
    if (self)
        finish(Error(ErrorCode::Canceled, tr("Canceled")));
}

void BaseTask::pause()
{
    if (d->mayChange() && d->state == Private::State::Running)
        d->setState(Private::State::Paused);
}

void BaseTask::resume()
{
    if (d->mayChange() && d->state == Private::State::Paused)
        d->setState(Private::State::Running);
}

void BaseTask::finalize() {}

Error BaseTask::doFinish()
{
    return error();
}

} // namespace orv
