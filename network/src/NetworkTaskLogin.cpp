#include "NetworkLog_p.h"
#include "NetworkTask_p.h"

#include <QDebug>

namespace orv {

namespace {

// A token may be refused more than once for good reasons: other tasks may have used up its successors.
constexpr int mostLoginsInARow = 10;

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
    if (!q->authenticator()) {
        q->processUnhandledReply();
        return;
    }
    if (loginsInARow >= mostLoginsInARow) {
        giveUpLoggingIn();
        return;
    }
    qCDebug(networkLog) << "Authentication required for task" << q->name();
    q->clearNetworkState();
    awaitLogin();
}

// The logins succeed, and the server refuses every token: it would go on like this for ever.
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
    const auto serial = enterPhase(Phase::AwaitingLogin);
    const QPointer<Private> guard(this);
    q->pause();
    if (guard && isCurrent(serial))
        subscribeToAuthenticator();
}

// One subscription serves all the waits for one authenticator. It is not undone between them: the phase tells
// whether the task is waiting.
void NetworkTask::Private::subscribeToAuthenticator()
{
    auto* authenticator = q->authenticator();
    if (!authenticator)
        return;
    if (subscribedTo != authenticator) {
        connect(authenticator, &AbstractAuthenticator::authenticated, this, &Private::onAccessGranted);
        connect(authenticator, &AbstractAuthenticator::error, this, &Private::onAuthenticationError);
        connect(authenticator, &QObject::destroyed, this, &Private::onAuthenticatorDestroyed);
        subscribedTo = authenticator;
    }
    authenticator->onAuthenticationRequired();
}

void NetworkTask::Private::onAuthenticatorReplaced()
{
    if (!subscribedTo || subscribedTo == q->authenticator())
        return;
    subscribedTo->disconnect(this);
    subscribedTo = nullptr;
    if (phase != Phase::AwaitingLogin)
        return;
    const auto serial = enterPhase(Phase::AwaitingLogin);
    QMetaObject::invokeMethod(
        this,
        [this, serial] {
            if (isCurrent(serial) && q->isRunning())
                goOnAfterLogin();
        },
        Qt::QueuedConnection);
}

void NetworkTask::Private::goOnAfterLogin()
{
    enterPhase(Phase::None);
    const QPointer<Private> guard(this);
    q->resume();
    if (guard)
        sendRequest();
}

void NetworkTask::Private::onAccessGranted()
{
    if (phase != Phase::AwaitingLogin || !q->isRunning() || !q->authenticator())
        return;
    qCDebug(networkLog) << "Authentication granted";
    qCDebug(networkLog) << "New access token:" << q->authenticator()->token();
    ++loginsInARow;
    goOnAfterLogin();
}

void NetworkTask::Private::onAuthenticationError(AbstractAuthenticator::Error code)
{
    if (phase != Phase::AwaitingLogin || !q->isRunning() || !q->authenticator())
        return;
    auto* authenticator = q->authenticator();
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

void NetworkTask::Private::onAuthenticatorDestroyed()
{
    if (phase == Phase::AwaitingLogin && q->isRunning())
        q->applyResponseErrorPolicy(authenticationFailed());
}

} // namespace orv
