// Repeating a failed attempt: whether, after what time and until which deadline.

#include "NetworkLog_p.h"
#include "NetworkTask_p.h"
#include "Redaction_p.h"
#include "RetryAfter_p.h"
#include "TimerInterval_p.h"

#include <TasksQueue.h>

#include <QCoreApplication>
#include <QDateTime>
#include <QDebug>
#include <QRandomGenerator>
#include <QScopeGuard>
#include <QUuid>

#include <algorithm>
#include <cmath>
#include <utility>

namespace orv {

using namespace std::chrono;

NetworkTask::Private::RetryOptions& NetworkTask::Private::editRetryOptions()
{
    if (!retryOptions)
        retryOptions = std::make_unique<RetryOptions>();
    return *retryOptions;
}

double NetworkTask::retryJitter() const
{
    return d->retryOptions ? d->retryOptions->jitter : 0;
}

void NetworkTask::setRetryJitter(double share, QRandomGenerator* generator)
{
    auto& options = d->editRetryOptions();
    options.jitter = std::isnan(share) ? 0 : std::clamp(share, 0.0, 1.0);
    options.generator = generator;
}

seconds NetworkTask::maxRetryAfter() const
{
    return d->retryOptions ? d->retryOptions->maxRetryAfter : seconds(0);
}

void NetworkTask::setMaxRetryAfter(seconds longest)
{
    d->editRetryOptions().maxRetryAfter = std::max(longest, seconds(0));
}

bool NetworkTask::unsafeRetriesEnabled() const
{
    return !d->retryOptions || d->retryOptions->areUnsafeRetriesEnabled;
}

void NetworkTask::setUnsafeRetriesEnabled(bool enabled)
{
    d->editRetryOptions().areUnsafeRetriesEnabled = enabled;
}

bool NetworkTask::idempotencyKeyEnabled() const
{
    return d->retryOptions && d->retryOptions->isIdempotencyKeyEnabled;
}

void NetworkTask::setIdempotencyKeyEnabled(bool enabled)
{
    d->editRetryOptions().isIdempotencyKeyEnabled = enabled;
}

milliseconds NetworkTask::deadline() const
{
    return d->retryOptions ? d->retryOptions->deadline : milliseconds(0);
}

void NetworkTask::setDeadline(milliseconds deadline)
{
    d->editRetryOptions().deadline = std::max(deadline, milliseconds(0));
    d->watchDeadline();
}

NetworkTask::TimeoutKind NetworkTask::timeoutKind() const
{
    return d->timeoutKind;
}

bool NetworkTask::hasTimedOut() const
{
    return d->timeoutKind != TimeoutKind::None;
}

// One that the program has started; retries and handlers continue it.
void NetworkTask::Private::beginExecution()
{
    executionStart = steady_clock::now();
    if (!retryOptions)
        return;
    retryOptions->idempotencyKey.clear();
    retryOptions->lastFailure.clear();
    retryOptions->nextWait.reset();
    watchDeadline();
}

// The key is a string of RFC 8941, that is quoted.
void NetworkTask::Private::addIdempotencyKey(QNetworkRequest& networkRequest) const
{
    const auto name = QByteArrayLiteral("Idempotency-Key");
    if (!q->idempotencyKeyEnabled() || networkRequest.hasRawHeader(name))
        return;
    auto& key = retryOptions->idempotencyKey;
    if (key.isEmpty())
        key = '"' + QUuid::createUuid().toByteArray(QUuid::WithoutBraces) + '"';
    networkRequest.setRawHeader(name, key);
}

// Empty if there is no deadline, or nothing that it could end.
std::optional<milliseconds> NetworkTask::Private::timeToDeadline() const
{
    const bool hasBegun = executionStart != decltype(executionStart)() && phase != Phase::Ended;
    if (!hasBegun || q->deadline() == milliseconds(0))
        return {};
    return q->deadline() - duration_cast<milliseconds>(steady_clock::now() - executionStart);
}

// A timer takes 24 days at most; a later deadline takes several.
void NetworkTask::Private::watchDeadline()
{
    const auto left = timeToDeadline();
    if (!left || q->isFinished()) {
        stopWatchingDeadline();
        return;
    }
    auto& watch = retryOptions->deadlineTimer;
    if (!watch) {
        watch = std::make_unique<QTimer>(q);
        watch->setSingleShot(true);
        watch->setTimerType(Qt::PreciseTimer);
        QObject::connect(watch.get(), &QTimer::timeout, watch.get(), [this] { onDeadline(); });
    }
    watch->start(timerInterval(*left));
}

void NetworkTask::Private::stopWatchingDeadline()
{
    if (retryOptions && retryOptions->deadlineTimer)
        retryOptions->deadlineTimer->stop();
}

// The next exec() of a task that its user has put back begins another execution.
void NetworkTask::Private::onDeadline()
{
    const bool isPutBack = !q->isRunning() && phase != Phase::Idle;
    const auto left = timeToDeadline();
    if (!left || q->isFinished() || isPutBack)
        return;
    if (*left > milliseconds(0)) {
        watchDeadline();
        return;
    }
    Error error(ErrorCode::Network, NetworkErrorConstants::DEADLINE_ERROR_CODE,
                NetworkTask::tr("The request took too long"));
    if (!retryOptions->lastFailure.isEmpty())
        error.addWarning(retryOptions->lastFailure);
    qCWarning(networkLog) << "Deadline passed in task" << q->name();
    q->clearNetworkState();
    timeoutKind = TimeoutKind::Deadline;
    q->finish(error);
}

bool NetworkTask::retry()
{
    return d->isRetryAllowed && d->retry();
}

// Returns true if the caller must do nothing more: another attempt is on its way, or the task was ended,
// deleted or given something else to do while it was announced.
bool NetworkTask::Private::retry()
{
    if (q->isFinishing())
        qCWarning(networkLog) << "Unable to retry, the task is finished";
    // Access managers are deleted with the application object, and there is no event loop after it.
    const bool isAllowed = q->canRetry() && !q->isFinishing() && !QCoreApplication::closingDown();
    if (!isAllowed || !mayRepeat() || !planRetry()) {
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

bool NetworkTask::Private::mayRepeat() const
{
    const bool wasSent = exchange && (phase == Phase::Exchanging || phase == Phase::Deciding);
    return q->unsafeRetriesEnabled() || !wasSent || exchange->isRepeatable();
}

// Draws the jitter and takes Retry-After from the reply, for the wait that follows. Returns false if that
// would not end before the deadline.
bool NetworkTask::Private::planRetry()
{
    if (!retryOptions)
        return true;
    RetryWait wait{q->nextDelay()};
    auto* generator = retryOptions->generator ? retryOptions->generator : QRandomGenerator::global();
    wait.jitter = retryOptions->jitter;
    if (wait.jitter > 0)
        wait.random = generator->generateDouble();
    wait.retryAfter = timeAskedFor();
    wait.maxRetryAfter = retryOptions->maxRetryAfter;
    const auto left = timeToDeadline();
    if (left && wait.time() >= *left)
        return false;
    retryOptions->nextWait = wait;
    return true;
}

// The status is that of the reply: the task's own is 408 after a time-out, for one.
milliseconds NetworkTask::Private::timeAskedFor() const
{
    auto* reply = q->networkReply();
    if (!reply || q->maxRetryAfter() == seconds(0))
        return milliseconds(0);
    const auto status = responseStatusCodeNumber(reply);
    const bool mayAsk = status == 408 || status == 429 || status == 503;
    return mayAsk ? retryAfter(reply, QDateTime::currentDateTimeUtc()).value_or(milliseconds(0))
                  : milliseconds(0);
}

bool NetworkTask::Private::isAskedToWait() const
{
    return retryOptions && retryOptions->nextWait && retryOptions->nextWait->retryAfter > milliseconds(0);
}

// The delay is read now: slots of aboutToRetry() may have changed it.
milliseconds NetworkTask::Private::timeToWait() const
{
    RetryWait wait;
    if (retryOptions)
        wait = retryOptions->nextWait.value_or(wait);
    wait.delay = q->retryDelay();
    return wait.time();
}

milliseconds NetworkTask::Private::takeTimeToWait()
{
    const auto time = timeToWait();
    if (retryOptions)
        retryOptions->nextWait.reset();
    return time;
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
    isExecutedAgain = true;
    const ForeignCall call(calls);
    const QPointer<TasksQueue> queue = q->queue();
    if (queue)
        queue->removeTask(q);
    if (call && queue)
        appendAgain(queue);
    else if (call && !QMetaObject::invokeMethod(q, "exec", Qt::AutoConnection))
        return false;
    if (call.isTaskAlive() && phase != Phase::Ended)
        Q_EMIT q->retried();
    return true;
}

// The program may have changed what the queue gave to the task, which therefore gets nothing again. Its wait
// begins now, while other tasks run, and needs no slot.
void NetworkTask::Private::appendAgain(TasksQueue* queue)
{
    isStartedWithoutSlot = timeToWait() > milliseconds(0);
    q->setStartsWaiting(isStartedWithoutSlot);
    isAppendedAgain = true;
    const ForeignCall call(calls);
    const auto reset = qScopeGuard([&] {
        if (call.isTaskAlive())
            isAppendedAgain = false;
    });
    queue->append(q);
}

} // namespace orv
