#pragma once

#include <QDeadlineTimer>
#include <QHash>
#include <QNetworkProxyFactory>

namespace orv {

/// The proxies of the application and of the system, with buffered connections to http servers that are
/// reached without one.
///
/// Qt 6 (up to 6.11 at least) opens those without a buffer, and reads the head of a reply byte by byte,
/// unless the proxy is QNetworkProxy::DefaultProxy. A socket then asks for the proxy itself, and connects
/// directly if there is none. So what it will be told is asked here first.
class BufferedConnections : public QNetworkProxyFactory
{
public:
    QList<QNetworkProxy> queryProxy(const QNetworkProxyQuery& query) override;

private:
    struct Answer
    {
        bool isDirect = false;
        QDeadlineTimer expiry;
    };

    bool isDirectForSockets(const QString& host, int port);

    QHash<std::pair<QString, int>, Answer> m_answers; // about sockets
};

} // namespace orv
