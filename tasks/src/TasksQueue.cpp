#include "TasksQueue.h"

#include "BaseTask_p.h"
#include "Task.h"

#include <QDeadlineTimer>
#include <QList>
#include <QPointer>

#include <algorithm>
#include <functional>
#include <limits>
#include <map>

namespace orv {

class TasksQueue::Private
{
public:
    using State = BaseTask::Private::State;

    explicit Private(TasksQueue* queue)
        : q(queue)
    {
    }

    static BaseTask::Private* of(Task* task) { return task->BaseTask::d.get(); }

    bool holds(Task* task) const { return task && of(task)->queue == q; }
    bool isActive(Task* task) const { return holds(task) && !of(task)->isPending; }
    void adopt(Task* task);
    void release(Task* task);
    void setHoldsSlot(BaseTask::Private* task, bool holdsSlot);
    QList<QPointer<Task>> tasks(ClearPolicy policy) const;
    bool isInActiveList(const Task* task) const;
    void schedule();
    void start(Task* task);
    void dispatch();

    TasksQueue* const q;
    std::map<int, TaskLink, std::greater<>> pending; // a ring of links for each priority
    TaskLink active;                                 // started and not yet finished
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
        t->link.unlink();
        --(t->isPending ? pendingCount : activeCount);
    }
    t->isPending = false;
    t->link.task = nullptr;
    t->queue = nullptr;
    schedule();
}

void TasksQueue::Private::setHoldsSlot(BaseTask::Private* task, bool holdsSlot)
{
    if (task->holdsSlot == holdsSlot)
        return;
    task->holdsSlot = holdsSlot;
    usedSlots += holdsSlot ? 1 : -1;
    if (!holdsSlot)
        schedule();
}

QList<QPointer<Task>> TasksQueue::Private::tasks(ClearPolicy policy) const
{
    QList<QPointer<Task>> result;
    result.reserve(pendingCount + activeCount);
    const auto collect = [&result](const TaskLink& head) {
        for (const TaskLink* link = head.next; link != &head; link = link->next)
            result.append(link->task);
    };
    for (const auto& [priority, head] : pending)
        collect(head);
    if (policy == ClearPolicy::PendingAndRunning)
        collect(active);
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

// A task that was run by other code while it was pending stays as it is.
void TasksQueue::Private::start(Task* task)
{
    setHoldsSlot(of(task), !task->isPaused());
    if (!task->isRunning())
        q->exec(task);
}

// Starts as many tasks as there are free slots. If some of them finish at once, more are started for up to a
// millisecond: a turn of the event loop costs more than such a task, but must not be put off for long.
void TasksQueue::Private::dispatch()
{
    isDispatchScheduled = false;
    const QPointer<TasksQueue> self(q);
    const QDeadlineTimer moment(1);
    int due = maxRunningTasks - usedSlots;
    for (; usedSlots < maxRunningTasks && (due > 0 || !moment.hasExpired()); --due) {
        Task* task = q->dequeueTask();
        if (!self)
            return;
        if (!task)
            break;
        if (isInActiveList(task))
            start(task);
        if (!self)
            return;
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
    while (d->active.isLinked())
        d->release(d->active.next->task);
    for (auto& [priority, head] : d->pending) {
        while (head.isLinked())
            d->release(head.next->task);
    }
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
    auto& head = d->pending[std::clamp(t->priority, 0, d->maxPriority)];
    t->link.linkBefore(mode == EnqueueMode::Back ? head : *head.next);
    t->isPending = true;
    ++d->pendingCount;
    d->isEmptiedDue = true;
    d->schedule();
}

Task* TasksQueue::dequeueTask()
{
    while (!d->pending.empty() && !d->pending.begin()->second.isLinked())
        d->pending.erase(d->pending.begin());
    if (d->pending.empty())
        return nullptr;
    Task* task = d->pending.begin()->second.next->task;
    auto* t = Private::of(task);
    t->link.unlink();
    t->link.linkBefore(d->active);
    t->isPending = false;
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

// A pending task holds no slot, whatever its state.
void TasksQueue::onTaskStateChanged(BaseTask* task)
{
    auto* t = task->d.get();
    if (!t->isPending)
        d->setHoldsSlot(t, t->state == Private::State::Running);
}

} // namespace orv
