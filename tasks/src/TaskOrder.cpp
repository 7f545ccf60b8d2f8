#include "TaskOrder_p.h"

namespace orv {

void TaskOrder::append(TaskLink& link, qint64 rank)
{
    link.sequence = ++m_lastSequence;
    insert(m_candidates, link, rank);
}

void TaskOrder::prepend(TaskLink& link, qint64 rank)
{
    link.sequence = --m_firstSequence;
    insert(m_candidates, link, rank);
}

void TaskOrder::remove(TaskLink& link)
{
    auto& ring = *link.ring;
    if (ring.recent == &link)
        ring.recent = link.previous;
    link.unlink();
    link.ring = nullptr;
    --ring.lane->count;
    update(*ring.lane);
}

TaskLink* TaskOrder::first()
{
    auto* candidate = firstOf(m_candidates);
    if (m_openGates.empty())
        return candidate;
    const auto& [position, lane] = *m_openGates.begin();
    return !candidate || position < positionOf(*candidate) ? firstOf(*lane) : candidate;
}

void TaskOrder::hold(TaskLink& link, const QByteArray& gate)
{
    auto& lane = m_gates[gate];
    lane.gate = gate;
    lane.isOpen = false;
    if (link.ring->lane == &lane) {
        update(lane);
        return;
    }
    const auto rank = link.ring->rank;
    remove(link);
    insert(lane, link, rank);
}

void TaskOrder::letThrough(TaskLink& link)
{
    if (link.ring->lane == &m_candidates)
        return;
    const auto rank = link.ring->rank;
    remove(link);
    insert(m_candidates, link, rank);
}

void TaskOrder::openGate(const QByteArray& gate)
{
    const auto found = m_gates.find(gate);
    if (found == m_gates.end())
        return;
    found->second.isOpen = true;
    update(found->second);
}

void TaskOrder::openGates()
{
    for (auto& [gate, lane] : m_gates) {
        lane.isOpen = true;
        update(lane);
    }
}

TaskLink* TaskOrder::firstOf(TaskLane& lane)
{
    while (!lane.rings.empty() && !lane.rings.begin()->second.head.isLinked())
        lane.rings.erase(lane.rings.begin());
    return lane.rings.empty() ? nullptr : lane.rings.begin()->second.head.next;
}

TaskPosition TaskOrder::positionOf(const TaskLink& link)
{
    return {link.ring->rank, link.sequence};
}

// Tasks come in order, to one of the ends or, when they go from one gate to another, one behind the other.
TaskLink& TaskOrder::successorIn(TaskRing& ring, qint64 sequence)
{
    auto* const head = &ring.head;
    if (!head->isLinked() || head->previous->sequence < sequence)
        return *head;
    if (head->next->sequence > sequence)
        return *head->next;
    auto* before = ring.recent;
    while (before != head && before->sequence > sequence)
        before = before->previous;
    while (before->next->sequence < sequence)
        before = before->next;
    return *before->next;
}

void TaskOrder::insert(TaskLane& lane, TaskLink& link, qint64 rank)
{
    auto& ring = lane.rings[rank];
    ring.lane = &lane;
    ring.rank = rank;
    auto& successor = successorIn(ring, link.sequence);
    link.linkBefore(successor);
    link.ring = &ring;
    if (&successor != &ring.head)
        ring.recent = &link;
    ++lane.count;
    update(lane);
}

// Keeps the list of open gates as the lane is now, and drops a gate that holds nothing.
void TaskOrder::update(TaskLane& lane)
{
    if (&lane == &m_candidates)
        return;
    if (lane.listedAs)
        m_openGates.erase(*lane.listedAs);
    lane.listedAs.reset();
    if (lane.count == 0) {
        m_gates.erase(QByteArray(lane.gate));
        return;
    }
    if (lane.isOpen)
        m_openGates.emplace(*(lane.listedAs = positionOf(*firstOf(lane))), &lane);
}

} // namespace orv
