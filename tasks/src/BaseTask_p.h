#pragma once

#include "BaseTask.h"

namespace orv {

class Task;
struct TaskRing;

/// A link of an intrusive ring: a task is added to and removed from the lists of its queue without an
/// allocation or a search.
struct TaskLink
{
    TaskLink() = default;
    TaskLink(const TaskLink&) = delete;
    TaskLink& operator=(const TaskLink&) = delete;
    ~TaskLink() { unlink(); }

    bool isLinked() const { return next != this; }

    void linkBefore(TaskLink& other)
    {
        previous = other.previous;
        next = &other;
        previous->next = this;
        next->previous = this;
    }

    void unlink()
    {
        previous->next = next;
        next->previous = previous;
        previous = next = this;
    }

    TaskLink* previous = this;
    TaskLink* next = this;
    Task* task = nullptr; // null in a ring's head

    // While the task waits for its turn; only TaskOrder writes them.
    TaskRing* ring = nullptr;
    qint64 sequence = 0;
};

class BaseTask::Private
{
public:
    enum class State { Idle, Running, Paused, Finished };

    explicit Private(BaseTask* task)
        : q(task)
    {
    }

    bool mayChange() const { return state != State::Finished && !isFinishing; }
    void setState(State newState);
    Error judgeEnd();
    void releaseResources();
    void announceEnd();
    bool mayGoOn();
    void goOnWithoutQueue();

    BaseTask* const q;
    QString name;
    State state = State::Idle;
    bool isFinishing = false; // finish() has been called
    bool isCanceling = false; // cancel() has been called
    bool isAutoDelete = false;

    // The queue's data about the task; only TasksQueue writes it.
    TasksQueue* queue = nullptr;
    TaskLink link;
    int priority = 0;
    bool isPending = false;
    bool holdsSlot = false;
    bool wantsSlot = false;       // paused, and its wait is over
    bool startsWaiting = false;   // its next exec() only begins to wait, and needs no slot for that
    bool isBeginningWait = false; // that exec() has been called, and the task has not paused yet
};

} // namespace orv
