#pragma once

#include <QList>

class QNetworkReply;

namespace orv {

class ForeignCall;

/// The calls that an object makes to code which is not its own and which have not returned yet.
class ForeignCalls
{
public:
    ForeignCalls() = default;
    ForeignCalls(const ForeignCalls&) = delete;
    ForeignCalls& operator=(const ForeignCalls&) = delete;
    /// Marks all of them: the object has been deleted.
    ~ForeignCalls();

    /// Marks all of them: the phase that they were made in is over.
    void supersede();

    /// Takes over a reply one of whose signals is being delivered by one of these calls, and deletes it when
    /// Qt does not use it any more. False, and nothing happens, when there is no such call.
    bool deleteAfterSignal(QNetworkReply* reply);

private:
    friend class ForeignCall;

    ForeignCall* m_innermost = nullptr;
};

/// Marks a call to code that is not ours (a signal, a handler, a virtual function), for as long as it is on
/// the stack. Such code may delete the task, end it, or start something else in it, and may run an event
/// loop in which that happens. Whoever makes the call asks this object before going on.
class ForeignCall
{
public:
    enum class From {
        Task,        ///< Made by the task itself.
        ReplySignal, ///< Made while the reply is emitting a signal.
    };

    explicit ForeignCall(ForeignCalls& calls, From from = From::Task);
    ~ForeignCall();
    ForeignCall(const ForeignCall&) = delete;
    ForeignCall& operator=(const ForeignCall&) = delete;

    /// Whether the task exists and is still in the phase that it made the call in.
    explicit operator bool() const { return m_isCurrent; }
    /// Whether the task exists.
    bool isTaskAlive() const { return m_calls; }

private:
    friend class ForeignCalls;

    ForeignCalls* m_calls;
    ForeignCall* const m_outer;
    const From m_from;
    bool m_isCurrent = true;
    QList<QNetworkReply*> m_replies; // to be deleted when the call has returned
};

} // namespace orv
