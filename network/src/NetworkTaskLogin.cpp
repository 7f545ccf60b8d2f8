// Waiting for a token.

#include "NetworkLog_p.h"
#include "NetworkTask_p.h"

#include <QDebug>

#include <algorithm>
#include <utility>

namespace orv {

using namespace std::chrono_literals;

Error NetworkTask::Private::authenticationFailed()
{
    return Error(ErrorCode::AuthenticationFailed, NetworkTask::tr("Authentication failed"));
}

// Some authenticators fail without saying why.
Error NetworkTask::Private::errorOfLogin() const
{
    const auto error = q->authenticator()->authenticationError();
    return error.hasError() ? error : authenticationFailed();
}

void NetworkTask::handleUnauthorizedError()
{
    d->onAuthenticationRequired();
}

bool NetworkTask::Private::isLoginUnderWay() const
{
    const auto* authenticator = q->authenticator();
    return authenticator && authenticator->state() == AbstractAuthenticator::State::Authenticating;
}

void NetworkTask::Private::forgetRefusals()
{
    isTokenFresh = false;
    refusedTokens = 0;
    loginOfResend.reset();
}

void NetworkTask::Private::onAuthenticationRequired()
{
    if (!q->isRunning() || q->isFinishing()) {
        qCWarning(networkLog) << "Unable to log in, the task is not running";
        return;
    }
    if (!q->authenticator()) {
        q->processUnhandledReply();
        return;
    }
    if (std::exchange(isTokenFresh, false))
        ++refusedTokens;
    if (refusedTokens >= std::max(maxTokenRefusals, 1)) {
        giveUpLoggingIn();
        return;
    }
    qCDebug(networkLog) << "Authentication required for task" << q->name();
    q->clearNetworkState();
    renewToken();
}

// The logins succeed, and the server refuses every token: without a limit, this would not end.
void NetworkTask::Private::giveUpLoggingIn()
{
    auto error = authenticationFailed();
    if (httpResponseStatusCode == HttpResponseStatusCode::Unauthorized)
        error.setErrorDetails(httpErrorCode(httpResponseStatusCode));
    qCWarning(networkLog) << error;
    q->applyResponseErrorPolicy(error);
}

// The token that was refused, or was not sent before the handler asked for one, may have been replaced since:
// another login would be needless, and on some servers ends the session of the last one. One attempt without
// a login for each login: the token of an authenticator that makes another one for each call may still need a
// login.
void NetworkTask::Private::renewToken()
{
    enterPhase(Phase::LoggingIn); // token() is the program's, and the old reply must not act in it
    auto* authenticator = q->authenticator();
    const bool mayBeOld = requiresAuthentication && sentToken && !isLoginUnderWay() &&
                          loginOfResend != authenticator->lastLogin();
    const ForeignCall call(calls);
    QString token;
    if (mayBeOld)
        endIfThrown([&] { token = authenticator->token(); });
    if (!call)
        return;
    if (token.isEmpty() || token == sentToken || !q->authenticator() || isLoginUnderWay()) {
        awaitLogin();
        return;
    }
    loginOfResend = q->authenticator()->lastLogin();
    callAfter(0ms, &Private::sendNewerToken);
}

void NetworkTask::Private::sendNewerToken()
{
    if (isLoginUnderWay()) {
        awaitLogin();
        return;
    }
    isTokenFresh = true;
    startSending();
}

void NetworkTask::Private::awaitLogin()
{
    enterPhase(Phase::LoggingIn);
    if (retryOptions)
        retryOptions->nextWait.reset(); // waited for the login instead
    const ForeignCall call(calls);
    q->pause();
    if (call)
        subscribeToAuthenticator();
}

void NetworkTask::Private::subscribeToAuthenticator()
{
    auto* authenticator = q->authenticator();
    if (!authenticator) {
        onAuthenticatorDestroyed();
        return;
    }
    pending = std::make_unique<QObject>(q);
    auto* context = pending.get();
    QObject::connect(authenticator, &AbstractAuthenticator::authenticated, context,
                     [this] { onAccessGranted(); });
    QObject::connect(authenticator, &AbstractAuthenticator::error, context,
                     [this](AbstractAuthenticator::Error code) { onAuthenticationError(code); });
    QObject::connect(authenticator, &QObject::destroyed, context, [this] { onAuthenticatorDestroyed(); });
    authenticator->onAuthenticationRequired();
}

// A task that waits for another authenticator continues with the new one, or ends if there is none.
void NetworkTask::Private::onAuthenticatorReplaced()
{
    forgetRefusals();
    if (phase != Phase::LoggingIn)
        return;
    enterPhase(Phase::LoggingIn);
    callAfter(0ms, &Private::startSending);
}

void NetworkTask::Private::onAccessGranted()
{
    if (!q->isRunning())
        return;
    qCDebug(networkLog) << "Authentication granted";
    isTokenNew = true; // logged when it is sent: token() is the program's, and may count its calls
    isTokenFresh = true;
    startSending();
}

// One failure takes one retry: the first of the waiting tasks makes it, and all of them wait for that login.
// Returns whether the caller must do nothing more.
bool NetworkTask::Private::retryLogin()
{
    auto* authenticator = q->authenticator();
    if (!authenticator->isRetried()) {
        if (!authenticator->canRetry())
            return false;
        qCDebug(networkLog) << authenticator->authenticationError();
        qCDebug(networkLog) << "Retrying...";
        const ForeignCall call(calls);
        authenticator->retryAuthentication();
        if (!call || !q->authenticator())
            return true;
    }
    return !q->authenticator()->isRetryRefused();
}

void NetworkTask::Private::onAuthenticationError(AbstractAuthenticator::Error code)
{
    if (!q->isRunning() || !q->authenticator())
        return;
    if (code == AbstractAuthenticator::Error::TemporaryFailure && retryLogin())
        return;
    const auto error = errorOfLogin();
    qCWarning(networkLog) << error;
    qCDebug(networkLog) << "Finishing a task with error";
    q->applyResponseErrorPolicy(error);
}

// For a task that its queue held back during a login: it would have waited for that, so it shares the outcome
// and does not ask for another one.
bool NetworkTask::Private::endIfLoginFailed()
{
    auto* authenticator = q->authenticator();
    if (!requiresAuthentication || !authenticator || !authenticator->hasFailedForGood())
        return false;
    const auto error = errorOfLogin();
    qCWarning(networkLog) << error;
    enterPhase(Phase::Deciding);
    q->applyResponseErrorPolicy(error);
    return true;
}

void NetworkTask::Private::onAuthenticatorDestroyed()
{
    if (q->isRunning())
        q->applyResponseErrorPolicy(authenticationFailed());
}

} // namespace orv
