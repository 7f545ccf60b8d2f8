#pragma once

#include "BaseTask_p.h"

#include <QByteArray>

#include <functional>
#include <limits>
#include <map>
#include <optional>

namespace orv {

struct TaskLane;

/// Tasks of one rank, by sequence.
struct TaskRing
{
    TaskLane* lane = nullptr;
    qint64 rank = 0;
    TaskLink head;
    TaskLink* recent = &head; // where the last task was inserted that did not belong at either end
};

/// A place in the order: a larger rank comes first, then a smaller sequence.
struct TaskPosition
{
    qint64 rank;
    qint64 sequence;

    friend bool operator<(const TaskPosition& one, const TaskPosition& other)
    {
        return one.rank != other.rank ? one.rank > other.rank : one.sequence < other.sequence;
    }
};

/// Tasks in order: the candidates, or those that are held at one gate.
struct TaskLane
{
    QByteArray gate;
    std::map<qint64, TaskRing, std::greater<>> rings;
    int count = 0;
    bool isOpen = false;
    std::optional<TaskPosition> listedAs; // in the list of open gates
};

/// The tasks of a queue that wait for their turn.
///
/// They are ordered by rank, which is their priority or, for those that were started before, resumed; and
/// within one rank by the order in which they were added. A task that is refused is held at a gate, and the
/// gate is closed. When it opens, its tasks are candidates again, in the place that they had: none is moved,
/// but the first one is compared with the first candidate of the others. So every operation takes constant
/// time, apart from a logarithm of the number of gates.
class TaskOrder
{
public:
    /// The rank of a task whose wait is over; above every priority.
    static constexpr qint64 resumed = std::numeric_limits<int>::max() + 1LL;

    /// Adds a task behind all of its rank.
    void append(TaskLink& link, qint64 rank);
    /// Adds a task before all of its rank.
    void prepend(TaskLink& link, qint64 rank);
    void remove(TaskLink& link);

    /// The task whose turn it is, or null.
    TaskLink* first();

    /// Holds a task at a gate, and closes that.
    void hold(TaskLink& link, const QByteArray& gate);
    /// Makes a single task a candidate that is held.
    void letThrough(TaskLink& link);
    void openGate(const QByteArray& gate);
    void openGates();

    template <typename Function>
    void forEach(Function function) const
    {
        visit(m_candidates, function);
        for (const auto& [key, lane] : m_gates)
            visit(lane, function);
    }

private:
    template <typename Function>
    static void visit(const TaskLane& lane, Function function)
    {
        for (const auto& [rank, ring] : lane.rings) {
            for (const auto* link = ring.head.next; link != &ring.head; link = link->next)
                function(*link);
        }
    }

    static TaskLink* firstOf(TaskLane& lane);
    static TaskPosition positionOf(const TaskLink& link);
    static TaskLink& successorIn(TaskRing& ring, qint64 sequence);
    void insert(TaskLane& lane, TaskLink& link, qint64 rank);
    void update(TaskLane& lane);

    TaskLane m_candidates;
    std::map<QByteArray, TaskLane> m_gates; // those at which tasks are held
    std::map<TaskPosition, TaskLane*> m_openGates;
    qint64 m_lastSequence = 0;
    qint64 m_firstSequence = 0;
};

} // namespace orv
