#include "TasksQueue.h"

#include "BaseTask_p.h"
#include "Task.h"
#include "TaskOrder_p.h"

#include <QDeadlineTimer>
#include <QList>
#include <QPointer>

#include <algorithm>
#include <limits>
#include <utility>

namespace orv {

class TasksQueue::Private
{
public:
    using State = BaseTask::Private::State;
    using Verdict = Admission::Verdict;

    explicit Private(TasksQueue* queue)
        : q(queue)
    {
    }

    static BaseTask::Private* of(Task* task) { return task->BaseTask::d.get(); }

    bool holds(Task* task) const { return task && of(task)->queue == q; }
    bool isActive(Task* task) const { return holds(task) && !of(task)->isPending; }
    bool hasFreeSlot() const { return usedSlots < maxRunningTasks; }
    void adopt(Task* task);
    void release(Task* task);
    void unlink(TaskLink& link);
    void activate(TaskLink& link);
    void setHoldsSlot(BaseTask::Private* task, bool holdsSlot);
    QList<QPointer<Task>> tasks(ClearPolicy policy) const;
    bool isInActiveList(const Task* task) const;
    void schedule();
    Verdict ask(TaskLink& link);
    Task* takeNext(bool isResumed);
    void resume(Task* task);
    void start(Task* task);
    bool startNext();
    void dispatch();

    TasksQueue* const q;
    TaskOrder order;   // those whose turn comes with a free slot: not started yet, or waiting to be resumed
    TaskLink starting; // not started yet, and needing no slot for it
    TaskLink active;   // started, and running or waiting for something else than a slot
    Gatekeeper* gatekeeper = nullptr;
    int pendingCount = 0;
    int activeCount = 0;
    int usedSlots = 0;
    int maxRunningTasks = 1;
    int maxPriority = std::numeric_limits<int>::max();
    bool isDispatchScheduled = false;
    bool isEmptiedDue = false;
};

void TasksQueue::Private::adopt(Task* task)
{
    of(task)->queue = q;
    of(task)->link.task = task;
}

// Removes the task from the lists, gives its slot back and resets its link to the queue.
void TasksQueue::Private::release(Task* task)
{
    auto* t = of(task);
    setHoldsSlot(t, false);
    if (t->link.isLinked()) {
        unlink(t->link);
        --(t->isPending ? pendingCount : activeCount);
    }
    t->isPending = false;
    t->startsWaiting = false;
    t->isBeginningWait = false;
    t->link.task = nullptr;
    t->queue = nullptr;
    if (t->wantsSlot)
        t->goOnWithoutQueue();
    schedule();
}

void TasksQueue::Private::unlink(TaskLink& link)
{
    if (link.ring)
        order.remove(link);
    else
        link.unlink();
}

void TasksQueue::Private::activate(TaskLink& link)
{
    unlink(link);
    link.linkBefore(active);
}

void TasksQueue::Private::setHoldsSlot(BaseTask::Private* task, bool holdsSlot)
{
    if (task->holdsSlot == holdsSlot)
        return;
    task->holdsSlot = holdsSlot;
    usedSlots += holdsSlot ? 1 : -1;
    if (gatekeeper)
        gatekeeper->onSlotChanged(task->link.task, holdsSlot);
    if (!holdsSlot)
        schedule();
}

QList<QPointer<Task>> TasksQueue::Private::tasks(ClearPolicy policy) const
{
    QList<QPointer<Task>> result;
    result.reserve(pendingCount + activeCount);
    const bool isAll = policy == ClearPolicy::PendingAndRunning;
    const auto collect = [&result, isAll](const TaskLink& link) {
        if (isAll || of(link.task)->isPending)
            result.append(link.task);
    };
    order.forEach(collect);
    for (const auto* head : {&starting, &active}) {
        for (const TaskLink* link = head->next; link != head; link = link->next)
            collect(*link);
    }
    return result;
}

void TasksQueue::Private::schedule()
{
    if (isDispatchScheduled)
        return;
    isDispatchScheduled = true;
    QMetaObject::invokeMethod(
        q, [this] { dispatch(); }, Qt::QueuedConnection);
}

// What a subclass's dequeueTask() returns may be a task that it has deleted: the pointer is only compared
// here. The task that the base has just handed out is the last one.
bool TasksQueue::Private::isInActiveList(const Task* task) const
{
    for (const TaskLink* link = active.previous; link != &active; link = link->previous) {
        if (link->task == task)
            return true;
    }
    return false;
}

// Whether a candidate may go on: if so, it is active now.
TasksQueue::Admission::Verdict TasksQueue::Private::ask(TaskLink& link)
{
    const auto admission = gatekeeper ? gatekeeper->admit(link.task) : Admission();
    if (admission.verdict == Verdict::GoOn)
        activate(link);
    else if (admission.verdict == Verdict::Hold)
        order.hold(link, admission.gate);
    return admission.verdict;
}

// The next candidate that may go on, if it is one to resume or one to start, as asked for.
Task* TasksQueue::Private::takeNext(bool isResumed)
{
    while (auto* link = order.first()) {
        if ((link->ring->rank == TaskOrder::resumed) != isResumed)
            break;
        const auto verdict = ask(*link);
        if (verdict == Verdict::GoOn)
            return link->task;
        if (verdict == Verdict::Wait)
            break;
    }
    return nullptr;
}

// The slot is the task's during the call. An override may leave the task paused.
void TasksQueue::Private::resume(Task* task)
{
    const QPointer<TasksQueue> self(q);
    const QPointer<Task> guard(task);
    setHoldsSlot(of(task), true);
    of(task)->wantsSlot = false;
    task->resume();
    if (self && guard && isActive(guard) && guard->isPaused())
        setHoldsSlot(of(guard), false);
}

// A task that was run by other code while it was pending stays as it is.
void TasksQueue::Private::start(Task* task)
{
    const QPointer<TasksQueue> self(q);
    const QPointer<Task> guard(task);
    auto* t = of(task);
    t->isBeginningWait = std::exchange(t->startsWaiting, false);
    setHoldsSlot(t, !task->isPaused() && !t->isBeginningWait);
    if (!task->isRunning())
        q->exec(task);
    if (self && guard && isActive(guard) && std::exchange(t->isBeginningWait, false))
        setHoldsSlot(t, !guard->isPaused()); // it does not wait after all
}

// Returns false if nothing can be started now. Otherwise the queue may have been deleted.
bool TasksQueue::Private::startNext()
{
    const QPointer<TasksQueue> self(q);
    if (auto* resumed = hasFreeSlot() ? takeNext(true) : nullptr) {
        resume(resumed);
        return true;
    }
    Task* task = q->dequeueTask();
    if (self && task && isInActiveList(task))
        start(task);
    return self && task;
}

// Starts as many tasks as there are free slots. If some of them finish at once, more are started for up to a
// millisecond: a turn of the event loop costs more than such a task, but must not be put off for long.
void TasksQueue::Private::dispatch()
{
    isDispatchScheduled = false;
    const QPointer<TasksQueue> self(q);
    const QDeadlineTimer moment(1);
    int due = maxRunningTasks - usedSlots;
    for (; hasFreeSlot() || starting.isLinked(); --due) {
        if (due <= 0 && moment.hasExpired()) {
            schedule();
            break;
        }
        const bool isStarted = startNext();
        if (!self)
            return;
        if (!isStarted)
            break;
    }
    if (isEmptiedDue && q->isEmpty()) {
        isEmptiedDue = false;
        Q_EMIT q->emptied();
    }
}

TasksQueue::TasksQueue(QObject* parent)
    : QObject(parent)
    , d(std::make_unique<Private>(this))
{
}

TasksQueue::~TasksQueue()
{
    d->isDispatchScheduled = true; // nothing may be scheduled on an object that is being destroyed
    d->gatekeeper = nullptr;
    for (auto* head : {&d->active, &d->starting}) {
        while (head->isLinked())
            d->release(head->next->task);
    }
    d->order.openGates();
    while (auto* link = d->order.first())
        d->release(link->task);
}

void TasksQueue::append(Task* task)
{
    if (!task || task->isFinished() || d->holds(task))
        return;
    if (task->queue())
        task->queue()->removeTask(task);
    addTask(task, EnqueueMode::Back);
}

void TasksQueue::setMaxPriority(int maxPriority)
{
    d->maxPriority = std::max(maxPriority, 0);
}

void TasksQueue::setMaxRunningTasks(int maxRunningTasks)
{
    d->maxRunningTasks = std::max(maxRunningTasks, 1);
    d->schedule();
}

void TasksQueue::removeTask(Task* task)
{
    if (d->holds(task))
        d->release(task);
}

bool TasksQueue::isEmpty() const
{
    return d->pendingCount == 0 && d->activeCount == 0;
}

int TasksQueue::pendingTasksCount() const
{
    return d->pendingCount;
}

void TasksQueue::clear(ClearPolicy policy, const Error& error)
{
    const QPointer<TasksQueue> self(this);
    const auto tasks = d->tasks(policy);
    for (const auto& task : tasks) {
        if (task && task->queue() == this)
            task->finish(error);
        if (!self)
            return;
    }
}

void TasksQueue::exec(Task* task)
{
    const QPointer<TasksQueue> self(this);
    const QPointer<Task> guard(task);
    Q_EMIT taskStarted(task);
    if (self && guard && d->isActive(guard))
        guard->exec();
}

void TasksQueue::enqueueTask(Task* task, EnqueueMode mode)
{
    auto* t = Private::of(task);
    d->adopt(task);
    const int rank = std::clamp(t->priority, 0, d->maxPriority);
    if (t->startsWaiting)
        t->link.linkBefore(d->starting);
    else if (mode == EnqueueMode::Back)
        d->order.append(t->link, rank);
    else
        d->order.prepend(t->link, rank);
    t->isPending = true;
    ++d->pendingCount;
    d->isEmptiedDue = true;
    d->schedule();
}

Task* TasksQueue::dequeueTask()
{
    const bool needsNoSlot = d->starting.isLinked();
    if (needsNoSlot)
        d->activate(*d->starting.next);
    Task* task = needsNoSlot ? d->active.previous->task : d->takeNext(false);
    if (!task)
        return nullptr;
    Private::of(task)->isPending = false;
    --d->pendingCount;
    ++d->activeCount;
    return task;
}

void TasksQueue::addTask(Task* task, EnqueueMode mode)
{
    enqueueTask(task, mode);
}

void TasksQueue::onTaskFinished(Task* task)
{
    if (!d->holds(task))
        return;
    d->release(task);
    Q_EMIT taskFinished(task);
}

void TasksQueue::onTaskDestroyed(Task* task)
{
    if (d->holds(task))
        d->release(task);
}

void TasksQueue::setGatekeeper(Gatekeeper* gatekeeper)
{
    d->gatekeeper = gatekeeper;
    openGates();
}

void TasksQueue::openGate(const QByteArray& gate)
{
    d->order.openGate(gate);
    d->schedule();
}

void TasksQueue::openGates()
{
    d->order.openGates();
    d->schedule();
}

void TasksQueue::reconsider(Task* task)
{
    if (!d->holds(task) || !Private::of(task)->link.ring)
        return;
    d->order.letThrough(Private::of(task)->link);
    d->schedule();
}

void TasksQueue::startTasks()
{
    d->schedule();
}

// A pending task holds no slot, whatever its state.
void TasksQueue::onTaskStateChanged(BaseTask* task)
{
    auto* t = task->d.get();
    if (t->isPending)
        return;
    if (t->state != Private::State::Paused)
        stopWaitingForSlot(task);
    else
        t->isBeginningWait = false;
    if (!t->isBeginningWait)
        d->setHoldsSlot(t, t->state == Private::State::Running);
}

// Whether a paused task may take a slot now. If not, it is resumed when it is its turn.
bool TasksQueue::mayGoOn(BaseTask* task)
{
    auto* t = task->d.get();
    if (t->isPending || t->holdsSlot)
        return true;
    auto& link = t->link;
    if (!link.ring) {
        link.unlink();
        d->order.append(link, TaskOrder::resumed);
    }
    t->wantsSlot = true;
    if (d->hasFreeSlot() && d->order.first() == &link && d->ask(link) == Private::Verdict::GoOn)
        return true;
    d->schedule();
    return false;
}

void TasksQueue::stopWaitingForSlot(BaseTask* task)
{
    auto* t = task->d.get();
    if (!t->isPending && t->link.ring)
        d->activate(t->link);
}

} // namespace orv
