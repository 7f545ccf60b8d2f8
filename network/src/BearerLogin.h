#pragma once

#include "AbstractAuthenticator.h"
#include "NetworkRequest.h"
#include "orv_network_export.h"

#include <Result.h>

#include <QByteArray>
#include <QList>
#include <QString>

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <utility>

class QJsonObject;

namespace orv {

class NetworkQueue;
class SslIgnorantNetworkAccessManager;

/// A ready-made authenticator: it requests a bearer token (RFC 6750) from a server, keeps it, refreshes it
/// before it expires, and replaces it when it is refused.
///
/// The program states the request that obtains a token. By default the reply is JSON as in RFC 6749, 5.1.
/// @code
/// auto* login = new BearerLogin(
///     BearerLogin::jsonRequest(url, {{u"user"_s, u"ann"_s}, {u"password"_s, u"secret"_s}}), this);
/// login->setRefreshRequest([url](const QString& refreshToken) {
///     return BearerLogin::formRequest(
///         url, {{u"grant_type"_s, u"refresh_token"_s}, {u"refresh_token"_s, refreshToken}});
/// });
/// queue.setAuthenticator(login);
/// @endcode
///
/// A login starts when a task asks for one. The token that is held then has been refused, so it is dropped
/// and never sent again. The login uses the refresh token if there is one; if that fails, or there is none,
/// it sends the login request. A login that is repeated after Error::TemporaryFailure first waits for
/// retryDelay(). Credentials that the server has refused are not sent a second time: further logins fail
/// with the same error until the login request makes another request, or until setLoginRequest(),
/// setTokens() or logOut() is called.
///
/// A token whose lifetime is known is refreshed refreshMargin() before its end, in the same ways. The state
/// stays Authenticated meanwhile and tasks use the old token, until it expires or is refused; tasks that ask
/// for a login then are served by the refresh. If the refresh fails, nothing is emitted, the old token stays
/// until then, and the next login sends the login request. An expired token is not handed out.
///
/// authenticated() is emitted for each new token, after a refresh too. error() ends a login that tasks wait
/// for; authenticationError() then has the code ErrorCode::AuthenticationFailed, with the number of the
/// failed request (see HttpResponseStatusCodesUtils.h) in its details; or ErrorCode::Canceled; or it is what
/// a function of the program has returned. Content of requests and replies, and tokens, are never logged;
/// URLs are, so put no secrets into them.
///
/// The functions that the program sets are called from the event loop. In them, and in slots, every function
/// may be called and the login deleted; an exception ends the login with ErrorCode::General. The login owns
/// its requests, and refers to queue and manager without owning them. All live on one thread.
class ORV_NETWORK_EXPORT BearerLogin : public AbstractAuthenticator
{
    Q_OBJECT

public:
    /// What a server issues.
    struct Tokens
    {
        QString token;        ///< The access token.
        QString refreshToken; ///< For another access token without credentials; empty if there is none.
        /// How long the access token is valid, from now on; none if that is not known. More than ten years
        /// count as ten.
        std::optional<std::chrono::milliseconds> expiresIn;
    };

    /// A request for a token that has failed.
    struct Failure
    {
        int status = 0;     ///< The status of the reply; 0 if the transport failed or nothing was sent.
        QByteArray content; ///< The content of the reply.
        orv::Error error;   ///< What the request has ended with.
    };

    /// Makes the request that obtains a token, or says why there is none.
    using LoginRequest = std::function<Result<NetworkRequest>()>;
    /// Makes the request that obtains a token for a refresh token.
    using RefreshRequest = std::function<Result<NetworkRequest>(const QString& refreshToken)>;
    /// Reads what the server issued from the content of its reply.
    using TokenReader = std::function<Result<Tokens>(const QByteArray& content)>;
    /// Says what kind of failure it was. Only after Error::TemporaryFailure is the login repeated, and only
    /// after Error::InvalidCredentials is the same request not sent again.
    using FailureClassifier = std::function<Error(const Failure& failure)>;

    /// @name Construction
    /// @{

    /// A login without a request: it can only use tokens that are given to it.
    explicit BearerLogin(QObject* parent = nullptr);
    /// A login that obtains a token with @p loginRequest.
    explicit BearerLogin(const NetworkRequest& loginRequest, QObject* parent = nullptr);
    /// Aborts a request that is under way. Tasks that wait for the login end with
    /// ErrorCode::AuthenticationFailed.
    ~BearerLogin() override;

    /// A POST of @p content as JSON that accepts JSON.
    static NetworkRequest jsonRequest(const QString& url, const QJsonObject& content);
    /// A POST of @p fields as a form (application/x-www-form-urlencoded) that accepts JSON.
    static NetworkRequest formRequest(const QString& url, const QList<std::pair<QString, QString>>& fields);

    /// @}
    /// @name Settings
    /// They count from the next request on.
    /// @{

    /// Sets the request that obtains a token.
    void setLoginRequest(const NetworkRequest& request);
    /// Sets a function that makes the request for each login; an empty one for none. Without a request and a
    /// refresh token, logins fail with Error::Failed. If the function returns an error, so does the login,
    /// with that error.
    void setLoginRequest(LoginRequest request);
    /// Sets how a refresh token is used; by default, and with an empty function, it is not.
    void setRefreshRequest(RefreshRequest request);

    /// Sets how a reply with status 200 or 201 is read; tokensFromJson() by default, and for an empty
    /// function. If it returns an error, the login fails with it and Error::Failed. A lifetime of 0 or less
    /// counts as not known.
    void setTokenReader(TokenReader reader);
    /// Reads the members "access_token" or else "token", "refresh_token" and "expires_in" (seconds, a number
    /// or a string of one) of a JSON object. ErrorCode::AuthenticationFailed if there is no token.
    static Result<Tokens> tokensFromJson(const QByteArray& content);

    /// Sets how failed requests are judged; classifyFailure() by default, and for an empty function.
    void setFailureClassifier(FailureClassifier classifier);
    /// Error::InvalidCredentials for the statuses 400, 401 and 403; Error::TemporaryFailure for 408, 429, 500
    /// and above, and for failures of the transport; otherwise Error::Failed.
    static Error classifyFailure(const Failure& failure);

    /// How long before the end of a token's lifetime it is refreshed; 30 s by default.
    std::chrono::milliseconds refreshMargin() const;
    /// A token that lives less than twice the margin is refreshed after half of its lifetime; one that lives
    /// less than a second is not refreshed. With a margin of 0 or less, no token is. Counts from the next
    /// token on.
    void setRefreshMargin(std::chrono::milliseconds margin);

    /// How long a request for a token may take, from when it is started (by its queue, if there is one) to
    /// the end of the reply; 60 s by default.
    std::chrono::milliseconds timeout() const;
    /// A request that takes longer fails with the number 2408. With 0 or less, it only times out like any
    /// NetworkTask: after inactivity.
    void setTimeout(std::chrono::milliseconds timeout);

    /// The queue that runs the requests, or null for none.
    NetworkQueue* queue() const;
    /// Sets the queue, which may be that of the waiting tasks: the requests run before them, with
    /// NetworkTask::Priority::High, and without its authenticator. If the queue is destroyed before it has
    /// started a request, the login ends as by cancel(). Without a queue, requests start at once.
    void setQueue(NetworkQueue* queue);
    /// The access manager that requests are sent through; null for that of the queue, and without a queue for
    /// NetworkTask::defaultNetworkAccessManager().
    SslIgnorantNetworkAccessManager* networkAccessManager() const;
    /// Sets the access manager.
    void setNetworkAccessManager(SslIgnorantNetworkAccessManager* manager);

    /// @}
    /// @name Tokens
    /// @{

    /// The access token; empty if there is none or it has expired.
    QString token() override;
    /// What to store for a later run of the program: what is held now, with the lifetime that is left.
    Tokens tokens();
    /// Replaces what is held, for example by what an earlier run has stored. A token whose lifetime is 0 or
    /// less has expired; only the refresh token is kept then. With a valid token, emits authenticated(), and
    /// a login that is in progress ends with it; without one, it starts again. ErrorCode::InvalidArgument,
    /// and nothing happens, if the token cannot be sent as the value of a header field.
    orv::Error setTokens(const Tokens& tokens);
    /// Forgets the tokens, and ends a login in progress as cancel() does. The state is Idle after that. The
    /// server is not told.
    void logOut();

    /// Ends a login in progress: nothing more is sent, the state becomes Idle, and the waiting tasks end with
    /// ErrorCode::Canceled, after error() with Error::Canceled. A refresh that no task waits for just ends.
    void cancel() override;

    /// @}

protected:
    /// Drops the token and starts a login, or waits for the refresh that is under way. Returns true.
    bool authenticate() override;

private:
    class Private;
    std::unique_ptr<Private> d;
};

} // namespace orv
