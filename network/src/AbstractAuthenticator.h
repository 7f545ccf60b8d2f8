#pragma once

#include "orv_network_export.h"
#include "Retriable.h"

#include <Error.h>

#include <QObject>

#include <memory>

namespace orv {

/// Obtains and holds the access token that network tasks send along.
///
/// The base keeps the state, the last error, the count of retries and the signals; a derived class knows how
/// to log in. One authenticator may serve any number of tasks: those that need a token call
/// onAuthenticationRequired(), which starts one login for all of them, and wait for authenticated() or
/// error().
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
/// It belongs to the application, lives on the thread of its tasks and may be destroyed at any time; tasks
/// that wait for it then end with ErrorCode::AuthenticationFailed.
class ORV_NETWORK_EXPORT AbstractAuthenticator : public QObject, public Retriable
{
    Q_OBJECT

public:
    /// Where a login stands. The base sets Authenticating, the derived class the rest.
    enum class State : int {
        Idle = 0,           ///< No login has been made.
        Authenticated = 1,  ///< The last login gave a token.
        Authenticating = 2, ///< A login is under way.
        Failed = 3,         ///< The last login failed.
    };

    /// Why a login failed, for the tasks that wait.
    enum class Error : int {
        Failed = 1,             ///< For a reason without a value of its own.
        InvalidCredentials = 2, ///< The server refused name or password.
        Canceled = 3,           ///< The user or the program gave up.
        TemporaryFailure = 6,   ///< It may pass: tasks ask for another login while canRetry() allows one.
    };

    /// Idle, and without an error.
    explicit AbstractAuthenticator(QObject* parent = nullptr);
    ~AbstractAuthenticator() override;

    /// Where the current or last login stands.
    State state() const;
    /// The error of the last login, as the derived class set it.
    orv::Error authenticationError() const;
    /// Counts a retry and asks for a login, unless one is under way.
    void retryAuthentication();

    /// The access token, empty when there is none. Sent as Latin-1.
    virtual QString token() = 0;

public Q_SLOTS:
    /// Starts a login, unless one is under way.
    void onAuthenticationRequired();
    /// Gives up a login that is under way. The base does nothing.
    virtual void cancel();

protected:
    /// Starts a login and returns true, or returns false when none can be started.
    ///
    /// state() is Authenticating during the call, so an event loop that runs in it, a modal dialog's for
    /// example, starts no second login. After false the state is put back as it was, unless this function has
    /// set another one. A login may also end inside the call. Deleting the authenticator in it is safe.
    virtual bool authenticate() = 0;

    /// Sets the state, and tells nobody.
    void setState(const State& state);
    /// Sets authenticationError(), and tells nobody. Tasks that wait end with it when error() follows.
    void setError(const orv::Error& error);

Q_SIGNALS:
    /// A login has started: emitted once for each, after authenticate() has returned, with the state
    /// Authenticating. Not emitted for a login that ended inside authenticate(). Deleting the sender is safe.
    void authenticating();
    /// A token is there. Emitted by derived classes, once for each login that succeeds and after setState();
    /// resets the count of retries. The tasks that wait go on inside the emit. Deleting the sender is safe.
    void authenticated();
    /// A login failed. Emitted by derived classes, once for each login that fails and after setError() and
    /// setState(). The tasks that wait end, or ask for another login, inside the emit. Deleting the sender is
    /// safe.
    void error(orv::AbstractAuthenticator::Error err);

private:
    class Private;
    std::unique_ptr<Private> d;
};

} // namespace orv
