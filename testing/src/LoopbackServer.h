#pragma once

#include "LoopbackReply.h"
#include "LoopbackRequest.h"
#include "orv_network_testing_export.h"

#include <Error.h>

#include <QObject>

#include <functional>
#include <memory>

class QSslCertificate;

namespace orv {

/// An HTTP/1.1 server on 127.0.0.1 with scripted replies, for tests of code that talks to a server.
///
/// @code
/// LoopbackServer server;
/// server.addReply(QStringLiteral("/users"), LoopbackReply(503));
/// server.addReply(QStringLiteral("/users"), LoopbackReply::json({{QStringLiteral("count"), 2}}));
/// if (server.listen().hasError())
///     return;
/// send(server.url(QStringLiteral("/users"))); // and again after the 503
/// const QByteArray token = server.requests().constLast().field("Authorization");
/// @endcode
///
/// Connections stay open between requests. Pipelined requests are answered in order: each is processed once
/// the reply to the previous one has been handed to the operating system. Content is accepted with a
/// Content-Length or chunked; "Expect: 100-continue" is answered with a 100. A head that is malformed or
/// larger than 1 MB is answered with a 400, after which the connection is closed; such requests are not
/// recorded. The connection is also closed after a request with "Connection: close" or of HTTP/1.0.
///
/// The server needs a running event loop and lives on one thread: use it and delete it there. It may be moved
/// to another thread before listen(). Between listen() and close(), port() and url() may be called from any
/// thread. It may be deleted in the handler and in slots connected to its signals. It owns its connections;
/// its destructor drops them.
class ORV_NETWORK_TESTING_EXPORT LoopbackServer : public QObject
{
    Q_OBJECT

public:
    /// How clients reach the server.
    enum class Transport {
        Plain, ///< http
        Tls,   ///< https, with certificate() and without HTTP/2
    };

    /// A server that does not listen yet.
    explicit LoopbackServer(Transport transport = Transport::Plain, QObject* parent = nullptr);
    ~LoopbackServer() override;

    /// Starts accepting connections on a free port that the system picks. Returns ErrorCode::Network if there
    /// is none, if the server is listening already, or if TLS is needed and Qt does not support it here.
    Error listen();
    /// Stops listening and drops all connections at once. listen() may be called again; it picks a new port.
    void close();
    /// Drops all connections at once and continues to listen.
    void dropConnections();

    /// The port, or 0 when not listening.
    quint16 port() const;
    /// The URL of @p path, which begins with a slash and is percent-encoded as in a URL.
    QString url(const QString& path = QStringLiteral("/")) const;
    /// The self-signed certificate used with Transport::Tls, for localhost and 127.0.0.1; add it to a
    /// client's CA certificates. Its key is published with this library: never trust it outside tests.
    static QSslCertificate certificate();

    /// Appends a reply to the script for @p path (percent-decoded, without query). The n-th request for a
    /// path gets its n-th reply; the last one is repeated until another is added.
    void addReply(const QString& path, const LoopbackReply& reply);
    /// Sets the function that answers requests for paths without a script; null removes it. Without a script
    /// and a handler, the reply is a 404. The handler runs on the server's thread, after requestReceived(),
    /// and must not throw.
    void setHandler(std::function<LoopbackReply(const LoopbackRequest&)> handler);

    /// The recorded requests, in the order in which they became complete.
    QList<LoopbackRequest> requests() const;
    /// The recorded requests for @p path (percent-decoded, without query).
    QList<LoopbackRequest> requests(const QString& path) const;
    /// Removes the recorded requests. The scripts are not affected.
    void clearRequests();
    /// Whether requests are recorded; true by default. Recorded requests stay in memory, with their content,
    /// until clearRequests().
    void setRecording(bool recording);
    /// How many connections have been accepted since construction, including those whose TLS handshake
    /// failed.
    int connectionCount() const;
    /// How many requests are being answered: they are complete, and the reply, unless it is a silence, has
    /// not been handed to the operating system as a whole. In the handler this includes its own request, and
    /// maybe some of clients that have just gone away.
    int openRequestCount() const;

Q_SIGNALS:
    /// A connection was accepted; nothing has been read from it yet. @p connection is 1 for the first one.
    /// Slots may delete the server.
    void connectionOpened(int connection);
    /// A request is complete and has been recorded (see setRecording()). Emitted once per request, before the
    /// reply is chosen. Slots may delete the server.
    void requestReceived(const orv::LoopbackRequest& request);

private:
    class Private;
    std::unique_ptr<Private> d;
};

} // namespace orv
