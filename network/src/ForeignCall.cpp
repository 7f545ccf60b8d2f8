#include "ForeignCall_p.h"

#include <QNetworkReply>

namespace orv {

ForeignCalls::~ForeignCalls()
{
    supersede();
    for (auto* call = m_innermost; call; call = call->m_outer)
        call->m_calls = nullptr;
}

void ForeignCalls::supersede()
{
    for (auto* call = m_innermost; call; call = call->m_outer)
        call->m_isCurrent = false;
}

// The outermost of the calls has to return first: an event loop may be running in it, in which a deferred
// deletion would come too early.
bool ForeignCalls::deleteAfterSignal(QNetworkReply* reply)
{
    ForeignCall* outermost = nullptr;
    for (auto* call = m_innermost; call; call = call->m_outer) {
        if (call->m_from == ForeignCall::From::ReplySignal)
            outermost = call;
    }
    if (!outermost)
        return false;
    outermost->m_replies.append(reply);
    return true;
}

ForeignCall::ForeignCall(ForeignCalls& calls, From from)
    : m_calls(&calls)
    , m_outer(calls.m_innermost)
    , m_from(from)
{
    calls.m_innermost = this;
}

ForeignCall::~ForeignCall()
{
    if (m_calls)
        m_calls->m_innermost = m_outer;
    for (auto* reply : std::as_const(m_replies))
        reply->deleteLater(); // Qt is still in the signal
}

} // namespace orv
