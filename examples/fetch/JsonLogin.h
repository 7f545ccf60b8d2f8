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

/// Logs in by posting credentials as JSON, and reads the token from the JSON in the response.
///
/// Any number of tasks may share one. Each token is replaced only once, however many tasks it is refused to:
/// before a task asks for a login, it calls refuse() with the token it sent. Only if that is still the
/// current token, there is a login; otherwise the task continues with the newer one.
/// @code
/// task->setResponseHandler(HttpResponseStatusCode::Unauthorized, [this] {
///     login->refuse(tokenOfTheRequest);
///     handleUnauthorizedError();
/// });
/// @endcode
///
/// After a transient failure, such as a server that cannot be reached, the login is retried as its Retriable
/// says; if the last attempt fails as well, that is a TemporaryFailure. After any other failure there is no
/// further attempt: repeated attempts with wrong credentials may lock the account.
class JsonLogin : public orv::AbstractAuthenticator
{
    Q_OBJECT

public:
    struct Settings
    {
        QString url;            ///< Where to log in; empty to use only the token below.
        QByteArray credentials; ///< The JSON to post there.
        QString token;          ///< The initial token; may be empty.
        std::optional<std::chrono::milliseconds> timeout;
    };

    /// Sends through @p manager, which must outlive it.
    JsonLogin(Settings settings, orv::SslIgnorantNetworkAccessManager* manager, QObject* parent = nullptr);
    ~JsonLogin() override;

    QString token() override { return m_token; }
    /// Forgets @p token if it is still the current one.
    void refuse(const QString& token);
    /// Ends a login in progress with Error::Canceled.
    void cancel() override;

protected:
    /// Reports the result from the event loop: at once if there is a token, else after a login.
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
    std::optional<Error> m_lastFailure; // set if another attempt would fail in the same way
    QTimer m_timer;
    std::unique_ptr<orv::NetworkTask> m_task;
};

} // namespace fetch
