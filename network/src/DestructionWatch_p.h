#pragma once

#include <functional>

namespace orv {

/// Calls a function when the object that it watches is destroyed: a link in a list of that object, which
/// costs less than a connection to QObject::destroyed(), and comes while the object still works.
class DestructionWatch
{
public:
    /// @p onDestruction may delete this link and others.
    explicit DestructionWatch(std::function<void()> onDestruction)
        : m_onDestruction(std::move(onDestruction))
    {
    }
    ~DestructionWatch() { stop(); }
    DestructionWatch(const DestructionWatch&) = delete;
    DestructionWatch& operator=(const DestructionWatch&) = delete;

    void stop()
    {
        m_previous->m_next = m_next;
        m_next->m_previous = m_previous;
        m_previous = m_next = this;
    }

private:
    friend class DestructionWatches;

    const std::function<void()> m_onDestruction;
    DestructionWatch* m_previous = this;
    DestructionWatch* m_next = this;
};

/// The links of the object that is watched, which calls them from its destructor.
class DestructionWatches
{
public:
    void add(DestructionWatch& watch)
    {
        watch.stop();
        watch.m_previous = m_head.m_previous;
        watch.m_next = &m_head;
        watch.m_previous->m_next = watch.m_next->m_previous = &watch;
    }

    void callAll()
    {
        while (m_head.m_next != &m_head) {
            auto& watch = *m_head.m_next;
            watch.stop();
            const auto onDestruction = watch.m_onDestruction;
            onDestruction();
        }
    }

private:
    DestructionWatch m_head{nullptr};
};

} // namespace orv
