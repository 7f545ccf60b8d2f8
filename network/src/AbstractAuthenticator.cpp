#include "AbstractAuthenticator.h"

#include "NetworkLog_p.h"

#include <QPointer>
#include <QScopeGuard>

#include <algorithm>
#include <optional>
#include <utility>
#include <vector>

namespace orv {

class AbstractAuthenticator::Private
{
public:
    struct Watcher
    {
        QPointer<QObject> context;
        std::function<void()> call;
    };

    void callWatchers();

    State state = State::Idle;
    orv::Error error;
    bool isTokenLogged = true;
    std::optional<Error> failure;  // how the last login failed
    std::vector<Watcher> watchers; // to be called when the login that is in progress has ended
    quint64 lastLogin = 0;         // the number of the login that was asked for last
    quint64 failedLogin = 0;       // the last one when error() was last emitted
    quint64 refusedLogin = 0;      // the last one that authenticate() did not start
};

void AbstractAuthenticator::Private::callWatchers()
{
    for (const auto& watcher : std::exchange(watchers, {})) {
        if (watcher.context)
            watcher.call();
    }
}

AbstractAuthenticator::AbstractAuthenticator(QObject* parent)
    : QObject(parent)
    , d(std::make_unique<Private>())
{
    connect(this, &AbstractAuthenticator::authenticated, this, [this] { resetRetries(); });
    // The first connection, so that every slot of the program and of tasks finds them up to date.
    connect(this, &AbstractAuthenticator::error, this, [this](Error code) {
        d->failure = code;
        d->failedLogin = d->lastLogin;
    });
}

AbstractAuthenticator::~AbstractAuthenticator()
{
    d->callWatchers();
}

AbstractAuthenticator::State AbstractAuthenticator::state() const
{
    return d->state;
}

orv::Error AbstractAuthenticator::authenticationError() const
{
    return d->error;
}

bool AbstractAuthenticator::isTokenLogged() const
{
    return d->isTokenLogged;
}

void AbstractAuthenticator::retryAuthentication()
{
    if (state() == State::Authenticating)
        return;
    incrementRetries();
    onAuthenticationRequired();
}

void AbstractAuthenticator::onAuthenticationRequired()
{
    if (state() == State::Authenticating)
        return;
    qCDebug(networkLog) << "Authentication required";
    const QPointer<AbstractAuthenticator> self(this);
    // A login that ended inside authenticate() may have been followed by another one there.
    const auto login = ++d->lastLogin;
    const auto isInProgress = [&self, login] {
        return self && self->state() == State::Authenticating && self->d->lastLogin == login;
    };
    auto restoreState = qScopeGuard([&isInProgress, this, before = state()] {
        if (isInProgress())
            setState(before);
    });
    // Before the call, since authenticate() may run an event loop in which other tasks ask for a login too.
    setState(State::Authenticating);
    const auto isStarted = authenticate();
    if (self && !isStarted)
        d->refusedLogin = login;
    if (!isStarted || !isInProgress())
        return;
    restoreState.dismiss();
    Q_EMIT authenticating();
}

void AbstractAuthenticator::cancel() {}

quint64 AbstractAuthenticator::lastLogin() const
{
    return d->lastLogin;
}

bool AbstractAuthenticator::isRetried() const
{
    return d->lastLogin != d->failedLogin;
}

bool AbstractAuthenticator::isRetryRefused() const
{
    return isRetried() && d->lastLogin == d->refusedLogin;
}

void AbstractAuthenticator::setState(const State& state)
{
    d->state = state;
    if (state == State::Authenticating)
        d->failure.reset();
    else
        d->callWatchers();
}

bool AbstractAuthenticator::hasFailedForGood() const
{
    const bool isRepeated = d->failure == Error::TemporaryFailure && canRetry();
    return state() == State::Failed && d->failure && !isRepeated;
}

void AbstractAuthenticator::callAfterLogin(QObject* context, const std::function<void()>& call)
{
    auto& watchers = d->watchers;
    const bool isNew =
        std::none_of(watchers.begin(), watchers.end(),
                     [context](const Private::Watcher& watcher) { return watcher.context == context; });
    if (isNew)
        watchers.push_back({context, call});
}

void AbstractAuthenticator::setError(const orv::Error& error)
{
    d->error = error;
}

void AbstractAuthenticator::setTokenLogged(bool isLogged)
{
    d->isTokenLogged = isLogged;
}

} // namespace orv
