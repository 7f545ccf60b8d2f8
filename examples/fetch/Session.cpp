#include "Session.h"

#include <SslIgnorantNetworkAccessManager.h>

#include <QJsonObject>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace fetch {

Session::Session(const Options& options, QObject* parent)
    : QObject(parent)
    , m_options(options)
    , m_progress(m_options, m_fetchers)
{
    m_queue.setMaxRunningTasks(options.parallel);
    m_queue.setIgnoreSslErrors(options.isInsecure);
    if (options.login.isWanted())
        prepareLogin();
    for (const auto& url : options.urls) {
        const auto& fetcher = m_fetchers.emplace_back(std::make_unique<Fetcher>(url, m_options));
        connect(fetcher.get(), &Fetcher::finished, this,
                [this, ended = fetcher.get()] { onFetched(*ended); });
    }
}

// The queue leaves its manager to the application object, but closing TLS connections needs that object to
// exist.
Session::~Session()
{
    delete m_queue.networkAccessManager();
}

void Session::prepareLogin()
{
    const auto& login = m_options.login;
    if (!login.url.isEmpty()) {
        auto request = orv::BearerLogin::jsonRequest(login.url, {});
        request.postData = login.credentials;
        m_login.setLoginRequest(request);
    }
    if (m_options.timeout)
        m_login.setTimeout(*m_options.timeout);
    if (!login.token.isEmpty())
        m_login.setTokens({login.token, {}, {}});
    m_login.setNetworkAccessManager(m_queue.networkAccessManager()); // no slot of the queue is needed
    m_options.retryPolicy.applyTo(m_login);
    m_queue.setAuthenticator(&m_login);
}

void Session::start()
{
    m_progress.start();
    for (const auto& fetcher : m_fetchers)
        m_queue.append(fetcher->task());
}

void Session::cancel()
{
    for (const auto& fetcher : m_fetchers)
        fetcher->cancel();
    m_login.cancel();
}

ExitCode Session::exitCode() const
{
    const auto failed = std::find_if(m_fetchers.begin(), m_fetchers.end(), [](const auto& fetcher) {
        return fetcher->outcome().code != ExitCode::Success;
    });
    return failed == m_fetchers.end() ? ExitCode::Success : (*failed)->outcome().code;
}

void Session::onFetched(const Fetcher& fetcher)
{
    m_progress.onEnded(fetcher);
    if (++m_endedCount == m_fetchers.size())
        Q_EMIT finished();
}

} // namespace fetch
