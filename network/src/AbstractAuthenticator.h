#pragma once

#include "orv_network_export.h"
#include "Retriable.h"

#include <Error.h>

#include <QObject>

#include <functional>
#include <memory>

namespace orv {

/// Obtains and holds the access token that network tasks send along.
///
/// The base class holds the state, the last error and the number of retries, and declares the signals; a
/// derived class implements the login. One authenticator may serve any number of tasks: those that need a
/// token call onAuthenticationRequired(), which starts one login for all of them, and wait for
/// authenticated() or error().
///
/// A derived class starts its login in authenticate() and usually ends it later, from the event loop: on
/// success it sets State::Authenticated and emits authenticated(), on failure it calls setError(), sets
/// State::Failed and emits error(). While the state stays State::Authenticating no further login is started.
/// @code
/// bool LoginForm::authenticate()
/// {
///     auto* login = new NetworkTask(loginRequest(), NetworkTask::Priority::High, this);
///     connect(login, &NetworkTask::finished, this, [this, login] {
///         m_token = tokenFrom(login->data());
///         setError(login->error());
///         setState(login->hasError() ? State::Failed : State::Authenticated);
///         login->deleteLater();
///         if (authenticationError().hasError())
///             Q_EMIT error(Error::TemporaryFailure);
///         else
///             Q_EMIT authenticated();
///     });
///     login->exec();
///     return true;
/// }
/// @endcode
///
/// The application owns it. It lives on the thread of its tasks and may be destroyed at any time; tasks that
/// wait for it then end with ErrorCode::AuthenticationFailed.
class ORV_NETWORK_EXPORT AbstractAuthenticator : public QObject, public Retriable
{
    Q_OBJECT

public:
    /// The state of the login. The base class sets Authenticating, the derived class the others.
    enum class State : int {
        Idle = 0,           ///< No login has been started.
        Authenticated = 1,  ///< The last login succeeded.
        Authenticating = 2, ///< A login is in progress.
        Failed = 3,         ///< The last login failed.
    };

    /// The reason why a login failed.
    enum class Error : int {
        Failed = 1,             ///< For any other reason.
        InvalidCredentials = 2, ///< The server refused name or password.
        Canceled = 3,           ///< The user or the program canceled it.
        TemporaryFailure = 6,   ///< Transient: the tasks retry the login once while canRetry() allows it.
    };

    /// An idle authenticator without an error.
    explicit AbstractAuthenticator(QObject* parent = nullptr);
    ~AbstractAuthenticator() override;

    /// The state of the current or last login.
    State state() const;
    /// The error that the derived class has stored for the last failed login; success until then.
    orv::Error authenticationError() const;
    /// Whether tasks may log a new token, at debug level; true by default.
    bool isTokenLogged() const;
    /// Counts a retry and starts a login. Does nothing while a login is in progress.
    void retryAuthentication();

    /// The current access token, empty if there is none. Tasks send it in the field Authorization, encoded as
    /// Latin-1.
    virtual QString token() = 0;

public Q_SLOTS:
    /// Starts a login. Does nothing while one is in progress.
    void onAuthenticationRequired();
    /// Cancels a login that is in progress. The base does nothing.
    virtual void cancel();

protected:
    /// Starts a login and returns true, or returns false when none can be started.
    ///
    /// state() is Authenticating during the call, so an event loop that runs in it, a modal dialog's for
    /// example, starts no second login. After false the state is put back as it was, unless this function has
    /// set another one. A login may also end inside the call. Deleting the authenticator in it is safe.
    virtual bool authenticate() = 0;

    /// Stores the state; emits nothing.
    void setState(const State& state);
    /// Stores what authenticationError() returns; emits nothing. Waiting tasks end with it when error() is
    /// emitted.
    void setError(const orv::Error& error);
    /// Whether tasks may log a new token; emits nothing.
    void setTokenLogged(bool isLogged);

Q_SIGNALS:
    /// A login has started: emitted once for each, after authenticate() has returned, with the state
    /// Authenticating. Not emitted for a login that ended inside authenticate(). Deleting the sender is safe.
    void authenticating();
    /// A token is available. Derived classes emit it once for each successful login, after setState(). It
    /// resets the retries, and the waiting tasks continue before the emit returns. Deleting the sender is
    /// safe.
    void authenticated();
    /// A login failed. Derived classes emit it once for each failed login, after setError() and setState().
    /// The waiting tasks end before the emit returns; or, after Error::TemporaryFailure, the first of them
    /// retries the login and all wait for that one, unless authenticate() refuses it. Deleting the sender is
    /// safe.
    void error(orv::AbstractAuthenticator::Error err);

private:
    friend class NetworkQueue;
    friend class NetworkTask;

    // The number of the login that was asked for last.
    quint64 lastLogin() const;
    // Whether a login has been asked for since error() was last emitted.
    bool isRetried() const;
    // Whether authenticate() refused that login.
    bool isRetryRefused() const;
    // Whether the last login failed and no task repeats it.
    bool hasFailedForGood() const;
    // Calls @p call once, when the state is no longer Authenticating or the object is destroyed, unless
    // @p context is destroyed before. It must not change anything but the context. One call for each context.
    void callAfterLogin(QObject* context, const std::function<void()>& call);

    class Private;
    std::unique_ptr<Private> d;
};

} // namespace orv
