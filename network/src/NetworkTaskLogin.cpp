// Waiting for a token.

#include "NetworkLog_p.h"
#include "NetworkTask_p.h"

#include <QDebug>

namespace orv {

namespace {

// A token may be refused more than once for good reasons: other tasks may have used up its successors.
constexpr int maxLoginsInARow = 10;

Error authenticationFailed()
{
    return Error(ErrorCode::AuthenticationFailed, NetworkTask::tr("Authentication failed"));
}

} // namespace

void NetworkTask::handleUnauthorizedError()
{
    d->onAuthenticationRequired();
}

void NetworkTask::Private::onAuthenticationRequired()
{
    if (!q->isRunning()) {
        qCWarning(networkLog) << "Unable to log in, the task is not running";
        return;
    }
    if (!q->authenticator()) {
        q->processUnhandledReply();
        return;
    }
    if (loginsInARow >= maxLoginsInARow) {
        giveUpLoggingIn();
        return;
    }
    qCDebug(networkLog) << "Authentication required for task" << q->name();
    q->clearNetworkState();
    awaitLogin();
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

void NetworkTask::Private::awaitLogin()
{
    enterPhase(Phase::LoggingIn);
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
    if (phase != Phase::LoggingIn)
        return;
    enterPhase(Phase::LoggingIn);
    pending = std::make_unique<QObject>(q);
    QMetaObject::invokeMethod(
        pending.get(), [this] { startSending(); }, Qt::QueuedConnection);
}

void NetworkTask::Private::onAccessGranted()
{
    if (!q->isRunning())
        return;
    qCDebug(networkLog) << "Authentication granted";
    isTokenNew = true; // logged when it is sent: token() is the program's, and may count its calls
    ++loginsInARow;
    startSending();
}

void NetworkTask::Private::onAuthenticationError(AbstractAuthenticator::Error code)
{
    auto* authenticator = q->authenticator();
    if (!q->isRunning() || !authenticator)
        return;
    auto error = authenticator->authenticationError();
    if (authenticator->canRetry() && code == AbstractAuthenticator::Error::TemporaryFailure) {
        qCDebug(networkLog) << error;
        qCDebug(networkLog) << "Retrying...";
        authenticator->retryAuthentication();
        return;
    }
    if (!error.hasError()) // an authenticator that fails without saying why
        error = authenticationFailed();
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
    auto error = authenticator->authenticationError();
    if (!error.hasError())
        error = authenticationFailed();
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
