#include "BufferedConnections_p.h"

#include <QNetworkProxy>
#include <QUrl>

#include <chrono>

namespace orv {

using namespace std::chrono_literals;

namespace {

bool isDirect(const QList<QNetworkProxy>& proxies)
{
    return !proxies.isEmpty() && proxies.first().type() == QNetworkProxy::NoProxy;
}

} // namespace

QList<QNetworkProxy> BufferedConnections::queryProxy(const QNetworkProxyQuery& query)
{
    auto proxies = proxyForQuery(query);
    const auto url = query.url();
    if (url.scheme() != QLatin1String("http") || !isDirect(proxies) ||
        !isDirectForSockets(url.host(), url.port(80)))
        return proxies;
    static const QList<QNetworkProxy> buffered{QNetworkProxy(QNetworkProxy::DefaultProxy)};
    return buffered;
}

// Asking the system may take longer than the request, and only a new connection needs the answer.
bool BufferedConnections::isDirectForSockets(const QString& host, int port)
{
    constexpr auto lifetime = 5s;
    constexpr qsizetype maxAnswers = 100;
    const auto key = std::pair(host, port);
    const auto known = m_answers.constFind(key);
    if (known != m_answers.cend() && !known->expiry.hasExpired())
        return known->isDirect;
    if (m_answers.size() >= maxAnswers)
        m_answers.clear();
    const bool isDirectNow = isDirect(proxyForQuery(QNetworkProxyQuery(host, port)));
    m_answers.insert(key, {isDirectNow, QDeadlineTimer(lifetime)});
    return isDirectNow;
}

} // namespace orv
