#include "DownloadTask.h"

#include <AbstractAuthenticator.h>

namespace downloads {

using orv::HttpResponseStatusCode;

DownloadTask::DownloadTask(const QString& url, const QString& filePath,
                           orv::AbstractAuthenticator* authenticator)
    : FileDownloadTask(url, filePath)
{
    setAuthenticator(authenticator);
    setResponseHandler(HttpResponseStatusCode::Unauthorized, [this] { onUnauthorized(); });
    connect(this, &DownloadTask::started, this, &DownloadTask::onStarted);
}

DownloadTask::Wait DownloadTask::wait() const
{
    if (!isPaused())
        return Wait::None;
    return m_needsLogin ? Wait::Login : Wait::Retry;
}

void DownloadTask::pause()
{
    orv::FileDownloadTask::pause();
    Q_EMIT waitChanged();
}

void DownloadTask::resume()
{
    m_needsLogin = false;
    orv::FileDownloadTask::resume();
    Q_EMIT waitChanged();
}

// Without a token the request is sent without authentication: most files are public, and a server that
// requires a login answers 401.
void DownloadTask::onStarted()
{
    m_needsLogin = false;
    setRequiresAuthentication(hasToken());
}

void DownloadTask::onUnauthorized()
{
    setRequiresAuthentication(authenticator());
    m_needsLogin = true;
    handleUnauthorizedError();
}

bool DownloadTask::hasToken() const
{
    return authenticator() && !authenticator()->token().isEmpty();
}

} // namespace downloads
