#pragma once

#include <FileDownloadTask.h>

#include <QString>

namespace downloads {

/// A FileDownloadTask that tells what it waits for, and that shows its token only to servers that ask for
/// one.
///
/// The first request goes out without a token, unless the authenticator has one already. A 401 sends the task
/// to its authenticator, and it goes on with the token that comes.
class DownloadTask : public orv::FileDownloadTask
{
    Q_OBJECT

public:
    /// What a paused task waits for.
    enum class Wait {
        None,
        Retry, ///< The delay before another attempt.
        Login, ///< Its authenticator.
    };

    /// @p authenticator must be the one for the origin of @p url. It is not owned.
    DownloadTask(const QString& url, const QString& filePath, orv::AbstractAuthenticator* authenticator);

    Wait wait() const;

    void pause() override;
    void resume() override;

Q_SIGNALS:
    /// wait() has changed.
    void waitChanged();

protected:
    bool doAuthenticateRequest(QNetworkRequest* request) override;

private:
    void onStarted();
    void onUnauthorized();
    QString currentToken() const;

    QString m_sentToken;
    bool m_needsLogin = false;
};

} // namespace downloads
