#include "AbstractAuthenticator.h"

#include "NetworkLog_p.h"

#include <QPointer>

namespace orv {

class AbstractAuthenticator::Private
{
public:
    State state = State::Idle;
    orv::Error error;
};

AbstractAuthenticator::AbstractAuthenticator(QObject* parent)
    : QObject(parent)
    , d(std::make_unique<Private>())
{
    connect(this, &AbstractAuthenticator::authenticated, this, [this] { resetRetries(); });
}

AbstractAuthenticator::~AbstractAuthenticator() = default;

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
    if (!authenticate() || !self)
        return;
    setState(State::Authenticating);
    Q_EMIT authenticating();
}

void AbstractAuthenticator::cancel() {}

void AbstractAuthenticator::setState(const State& state)
{
    d->state = state;
}

void AbstractAuthenticator::setError(const orv::Error& error)
{
    d->error = error;
}

} // namespace orv
