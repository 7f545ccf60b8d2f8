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
    std::optional<Error> failure;  // how the last login failed
    std::vector<Watcher> watchers; // to be called when the login that is in progress has ended
    quint64 lastLogin = 0;         // the number of the login that was started last
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
    connect(this, &AbstractAuthenticator::error, this, [this](Error code) { d->failure = code; });
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
    const auto isInProgress = [&self, login = ++d->lastLogin] {
        return self && self->state() == State::Authenticating && self->d->lastLogin == login;
    };
    auto restoreState = qScopeGuard([&isInProgress, this, before = state()] {
        if (isInProgress())
            setState(before);
    });
    // Before the call, since authenticate() may run an event loop in which other tasks ask for a login too.
    setState(State::Authenticating);
    if (!authenticate() || !isInProgress())
        return;
    restoreState.dismiss();
    Q_EMIT authenticating();
}

void AbstractAuthenticator::cancel() {}

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

} // namespace orv
