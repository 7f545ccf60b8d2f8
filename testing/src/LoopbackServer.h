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

/// An HTTP/1.1 server on 127.0.0.1 with scripted answers, the peer in tests of code that talks to a server.
///
/// @code
/// LoopbackServer server;
/// server.addReply(QStringLiteral("/users"), LoopbackReply(503));
/// server.addReply(QStringLiteral("/users"), LoopbackReply::json({{QStringLiteral("count"), 2}}));
/// if (server.listen().hasError())
///     return;
/// send(server.url(QStringLiteral("/users"))); // and again, since the first answer is 503
/// const QByteArray token = server.requests().constLast().field("Authorization");
/// @endcode
///
/// Connections are kept open between requests, and those that a client pipelines are answered in order: one
/// is taken up when the answer to the one before it has been handed to the system. Content may come with a
/// Content-Length or chunked; "Expect: 100-continue" is granted. A head that is malformed or over 1 MB gets a
/// 400 and the connection is closed, and neither is recorded. A request with "Connection: close", or of
/// HTTP/1.0, closes its connection too.
///
/// The server, which needs a running event loop, lives on one thread: use it and delete it there. It may be
/// moved to another before listen(). From listen() to close(), port() and url() may be called from any
/// thread. It may be deleted in a slot connected to its signals and in the handler. It owns its connections,
/// and drops them when it goes.
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

    /// Starts to accept connections on a port that the system picks. ErrorCode::Network when there is none,
    /// when the server listens already, or when Qt cannot do TLS here.
    Error listen();
    /// Stops listening and drops all connections at once. listen() may follow, on another port.
    void close();
    /// Drops all connections at once and goes on listening.
    void dropConnections();

    /// The port of the last listen(); 0 when not listening.
    quint16 port() const;
    /// The address of @p path, which begins with a slash and is percent-encoded where an URL has to be.
    QString url(const QString& path = QStringLiteral("/")) const;
    /// The self-signed certificate of Transport::Tls, for localhost and 127.0.0.1, to be added to a client's
    /// CA certificates. Its key is published with this library: never trust it outside of tests.
    static QSslCertificate certificate();

    /// Appends an answer to requests for @p path (decoded, without query). The n-th request for a path gets
    /// its n-th answer; the last one repeats, until another is added.
    void addReply(const QString& path, const LoopbackReply& reply);
    /// Answers requests for paths without a reply of their own; null takes it away. Without either, the
    /// answer is 404. The handler runs on the server's thread, after requestReceived(), and must not throw.
    void setHandler(std::function<LoopbackReply(const LoopbackRequest&)> handler);

    /// The recorded requests, in the order in which they were complete.
    QList<LoopbackRequest> requests() const;
    /// The recorded requests for @p path (decoded, without query).
    QList<LoopbackRequest> requests(const QString& path) const;
    /// Forgets the recorded requests. Which reply is next for a path stays as it is.
    void clearRequests();
    /// Whether requests are recorded, true by default. Each one stays in memory, content included, until
    /// cleared.
    void setRecording(bool recording);
    /// How many connections were accepted since the server was made, including TLS ones whose handshake
    /// failed.
    int connectionCount() const;

Q_SIGNALS:
    /// A connection was accepted, before anything was read from it; 1 for the first. Deleting the server in a
    /// slot is safe, here and below.
    void connectionOpened(int connection);
    /// A request is complete and, if wanted, recorded. Once for each; the answer is looked up after the slots
    /// have run.
    void requestReceived(const orv::LoopbackRequest& request);

private:
    class Private;
    std::unique_ptr<Private> d;
};

} // namespace orv
