#pragma once

#include <FileDownloadTask.h>

#include <QString>

namespace downloads {

/// A FileDownloadTask that says what it is waiting for, and that logs in only if the server requires it.
///
/// The first request is sent without a token, unless the authenticator has one already. After a 401 the task
/// waits for its authenticator and sends the request again with the new token.
class DownloadTask : public orv::FileDownloadTask
{
    Q_OBJECT

public:
    /// What a paused task is waiting for.
    enum class Wait {
        None,
        Retry, ///< The delay before another attempt.
        Login, ///< A token from its authenticator.
    };

    /// @p authenticator must be the one for the origin of @p url. The task does not own it.
    DownloadTask(const QString& url, const QString& filePath, orv::AbstractAuthenticator* authenticator);

    Wait wait() const;

    void pause() override;
    void resume() override;

Q_SIGNALS:
    /// wait() has changed.
    void waitChanged();

private:
    void onStarted();
    void onUnauthorized();
    bool hasToken() const;

    bool m_needsLogin = false;
};

} // namespace downloads
