#pragma once

#include "orv_network_testing_export.h"

#include <Error.h>

#include <QObject>

#include <memory>

class QNetworkProxy;

namespace orv {

/// A proxy on 127.0.0.1, for tests of applications behind proxies.
///
/// @code
/// LoopbackProxy proxy(LoopbackProxy::Protocol::Socks5);
/// if (proxy.listen().hasError())
///     return;
/// manager.setProxy(proxy.proxy());
/// send(QStringLiteral("http://server.test:%1/hello").arg(server.port()));
/// requests = proxy.requests(); // "SOCKS server.test:" and the port
/// @endcode
///
/// Whatever host a client names, the proxy connects to 127.0.0.1 at the port that it names: tests can use
/// host names that do not exist, such as server.test. With TLS, the name must still be one of the server's
/// certificate; LoopbackServer has one for localhost. A proxy that is set on an access manager is used for
/// every host, but Qt never asks one of the application or the system for localhost and 127.0.0.1.
///
/// An HTTP proxy makes tunnels for CONNECT, and forwards each other request in origin form as soon as it is
/// complete, with its fields unchanged. It answers 502 if nothing listens at the port. Requests that are
/// pipelined must all name the same port. A SOCKS proxy knows CONNECT (RFC 1928) with names, IPv4 and IPv6
/// addresses. Neither asks for a login. Malformed input closes the connection; once one side has closed, the
/// other is closed after what was received has been passed on. Nothing is throttled: what a peer does not
/// read stays in memory.
///
/// The proxy needs a running event loop and lives on one thread: use it and delete it there. It may be moved
/// to another thread before listen(). It may be deleted at any time. It owns its connections; its destructor
/// drops them.
class ORV_NETWORK_TESTING_EXPORT LoopbackProxy : public QObject
{
    Q_OBJECT

public:
    /// What clients speak with the proxy.
    enum class Protocol {
        Http,   ///< HTTP/1.1
        Socks5, ///< SOCKS version 5
    };

    /// A proxy that does not listen yet.
    explicit LoopbackProxy(Protocol protocol = Protocol::Http, QObject* parent = nullptr);
    ~LoopbackProxy() override;

    /// Starts accepting connections on a free port that the system picks, until the proxy is destroyed.
    /// Returns ErrorCode::Network if there is none, or if the proxy is listening already.
    Error listen();

    /// The port, or 0 when not listening.
    quint16 port() const;
    /// The proxy as Qt's classes take it, for QNetworkAccessManager::setProxy() and proxy factories.
    QNetworkProxy proxy() const;

    /// What clients have asked for, in order: "CONNECT host:port" for a tunnel through an HTTP proxy, method
    /// and URL ("GET http://host:port/path") for any other HTTP request, "SOCKS host:port" for a connection
    /// through a SOCKS proxy. IPv6 addresses are in brackets. Malformed requests are not recorded; those
    /// whose server does not listen are.
    QStringList requests() const;

private:
    class Private;
    std::unique_ptr<Private> d;
};

} // namespace orv
