#pragma once

#include <AbstractAuthenticator.h>
#include <NetworkTask.h>
#include <SslIgnorantNetworkAccessManager.h>

#include <QByteArray>
#include <QString>
#include <QTimer>

#include <chrono>
#include <memory>
#include <optional>

namespace fetch {

/// Logs in by posting credentials as JSON, and takes the token from the JSON that comes back.
///
/// Any number of tasks may share one. However many of them are refused at a time, each token is replaced
/// once: before a task asks for a login it says with refuse() which token was refused, and only where that is
/// still the current one is there a login. Otherwise the task goes on with the newer one.
/// @code
/// task->setResponseHandler(HttpResponseStatusCode::Unauthorized, [this] {
///     login->refuse(tokenOfTheRequest);
///     handleUnauthorizedError();
/// });
/// @endcode
///
/// What may pass, such as a server that is not there, is tried again as often and after such delays as its
/// Retriable says; then it is a TemporaryFailure. After any other failure there is no further try:
/// credentials that are refused again and again may lock the account.
class JsonLogin : public orv::AbstractAuthenticator
{
    Q_OBJECT

public:
    struct Settings
    {
        QString url;            ///< Where to log in; empty if the token is all there is.
        QByteArray credentials; ///< JSON to post there.
        QString token;          ///< To begin with; may be empty.
        std::optional<std::chrono::milliseconds> timeout;
    };

    /// Sends through @p manager, which must outlive it.
    JsonLogin(Settings settings, orv::SslIgnorantNetworkAccessManager* manager, QObject* parent = nullptr);
    ~JsonLogin() override;

    QString token() override { return m_token; }
    /// Forgets @p token, unless there is another one by now.
    void refuse(const QString& token);
    /// Ends a login that is under way as Error::Canceled.
    void cancel() override;

protected:
    /// Answers from the event loop: with the token that is there, or after a login.
    bool authenticate() override;

private:
    void begin();
    void send();
    void onAnswered();
    void succeed(const QString& token);
    void retry(const orv::Error& error);
    void failForGood(Error code, const QString& message);
    void fail(Error code, const QString& message);

    const Settings m_settings;
    orv::SslIgnorantNetworkAccessManager* const m_manager;
    QString m_token;
    std::optional<Error> m_lastFailure; // that another try would only repeat
    QTimer m_timer;
    std::unique_ptr<orv::NetworkTask> m_task;
};

} // namespace fetch
