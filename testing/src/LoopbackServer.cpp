#include "LoopbackServer.h"

#include "LoopbackCertificate.h"
#include "LoopbackConnection.h"

#include <QHash>
#include <QPointer>
#include <QSet>
#include <QSslCertificate>
#include <QSslConfiguration>
#include <QSslKey>
#include <QSslSocket>
#include <QTcpServer>

#include <algorithm>
#include <iterator>
#include <optional>
#include <utility>

namespace orv {

namespace {

// Passes on the bare descriptors, so that a connection counts as soon as it is accepted, before any
// handshake.
class Listener : public QTcpServer
{
public:
    explicit Listener(std::function<void(qintptr)> accept)
        : m_accept(std::move(accept))
    {
        setListenBacklogSize(1024);
    }

    // A slot of connectionOpened() may close the server while QTcpServer is still on the stack.
    void discard()
    {
        close();
        if (m_accepting == 0)
            delete this;
        else
            m_discarded = true;
    }

protected:
    void incomingConnection(qintptr descriptor) override
    {
        ++m_accepting;
        if (!m_discarded)
            m_accept(descriptor);
        if (--m_accepting == 0 && m_discarded)
            deleteLater();
    }

private:
    const std::function<void(qintptr)> m_accept;
    int m_accepting = 0;
    bool m_discarded = false;
};

struct Script
{
    QList<LoopbackReply> replies;
    qsizetype next = 0;
};

QSslConfiguration tlsConfiguration()
{
    QSslConfiguration configuration = QSslConfiguration::defaultConfiguration();
    configuration.setLocalCertificate(LoopbackServer::certificate());
    configuration.setPrivateKey(QSslKey(loopbackPrivateKey(), QSsl::Rsa));
    configuration.setPeerVerifyMode(QSslSocket::VerifyNone);
    return configuration;
}

} // namespace

class LoopbackServer::Private
{
public:
    explicit Private(LoopbackServer* server)
        : q(server)
    {
    }

    void accept(qintptr descriptor);
    std::unique_ptr<QTcpSocket> openSocket(qintptr descriptor) const;
    LoopbackReply answer(const LoopbackRequest& request);

    LoopbackServer* const q;
    Transport transport = Transport::Plain;
    std::optional<QSslConfiguration> tls; // created by listen(), since that loads the TLS library
    Listener* listener = nullptr;         // null when not listening
    quint16 port = 0;
    QSet<LoopbackConnection*> connections;
    int connectionCount = 0;
    QHash<QString, Script> scripts;
    // Shared, so that a handler stays alive while it runs, even if it replaces itself or deletes the server.
    std::shared_ptr<const std::function<LoopbackReply(const LoopbackRequest&)>> handler;
    QList<LoopbackRequest> requests;
    bool recording = true;
};

void LoopbackServer::Private::accept(qintptr descriptor)
{
    std::unique_ptr<QTcpSocket> socket = openSocket(descriptor);
    if (!socket)
        return;
    const int number = ++connectionCount;
    auto* connection = new LoopbackConnection(
        std::move(socket), number, [this](const LoopbackRequest& request) { return answer(request); });
    connections.insert(connection);
    connect(connection, &LoopbackConnection::closed, q,
            [this, connection] { connections.remove(connection); });
    Q_EMIT q->connectionOpened(number);
}

std::unique_ptr<QTcpSocket> LoopbackServer::Private::openSocket(qintptr descriptor) const
{
    if (transport == Transport::Plain) {
        auto socket = std::make_unique<QTcpSocket>();
        return socket->setSocketDescriptor(descriptor) ? std::move(socket) : nullptr;
    }
    auto socket = std::make_unique<QSslSocket>();
    socket->setSslConfiguration(*tls);
    if (!socket->setSocketDescriptor(descriptor))
        return nullptr;
    socket->startServerEncryption();
    return socket;
}

LoopbackReply LoopbackServer::Private::answer(const LoopbackRequest& request)
{
    if (recording)
        requests.append(request);
    const QPointer<LoopbackServer> guard(q);
    Q_EMIT q->requestReceived(request);
    if (!guard)
        return LoopbackReply::silence();
    if (const auto script = scripts.find(request.path); script != scripts.end()) {
        const qsizetype index = qMin(script->next, script->replies.size() - 1);
        script->next = index + 1;
        return script->replies.at(index);
    }
    const auto current = handler;
    return current ? (*current)(request) : LoopbackReply(404);
}

LoopbackServer::LoopbackServer(Transport transport, QObject* parent)
    : QObject(parent)
    , d(std::make_unique<Private>(this))
{
    d->transport = transport;
}

LoopbackServer::~LoopbackServer()
{
    close();
}

Error LoopbackServer::listen()
{
    if (d->listener)
        return {ErrorCode::Network, tr("The loopback server is listening already")};
    if (d->transport == Transport::Tls) {
        if (!QSslSocket::supportsSsl())
            return {ErrorCode::Network, tr("Qt has no working TLS here")};
        d->tls = tlsConfiguration();
    }
    auto listener = std::make_unique<Listener>([this](qintptr descriptor) { d->accept(descriptor); });
    if (!listener->listen(QHostAddress::LocalHost))
        return {ErrorCode::Network, listener->errorString()};
    d->port = listener->serverPort();
    d->listener = listener.release();
    return Error(ErrorCode::None);
}

void LoopbackServer::close()
{
    if (d->listener)
        std::exchange(d->listener, nullptr)->discard();
    d->port = 0;
    dropConnections();
}

void LoopbackServer::dropConnections()
{
    const QSet<LoopbackConnection*> connections = std::exchange(d->connections, {});
    for (LoopbackConnection* connection : connections)
        connection->drop();
}

quint16 LoopbackServer::port() const
{
    return d->port;
}

QString LoopbackServer::url(const QString& path) const
{
    const QString scheme = d->transport == Transport::Tls ? QStringLiteral("https") : QStringLiteral("http");
    return QStringLiteral("%1://127.0.0.1:%2").arg(scheme, QString::number(d->port)) + path;
}

QSslCertificate LoopbackServer::certificate()
{
    return QSslCertificate(loopbackCertificate());
}

void LoopbackServer::addReply(const QString& path, const LoopbackReply& reply)
{
    d->scripts[path].replies.append(reply);
}

void LoopbackServer::setHandler(std::function<LoopbackReply(const LoopbackRequest&)> handler)
{
    d->handler =
        handler
            ? std::make_shared<const std::function<LoopbackReply(const LoopbackRequest&)>>(std::move(handler))
            : nullptr;
}

QList<LoopbackRequest> LoopbackServer::requests() const
{
    return d->requests;
}

QList<LoopbackRequest> LoopbackServer::requests(const QString& path) const
{
    QList<LoopbackRequest> result;
    std::copy_if(d->requests.cbegin(), d->requests.cend(), std::back_inserter(result),
                 [&path](const LoopbackRequest& request) { return request.path == path; });
    return result;
}

void LoopbackServer::clearRequests()
{
    d->requests.clear();
}

void LoopbackServer::setRecording(bool recording)
{
    d->recording = recording;
}

int LoopbackServer::connectionCount() const
{
    return d->connectionCount;
}

int LoopbackServer::openRequestCount() const
{
    return static_cast<int>(
        std::count_if(d->connections.begin(), d->connections.end(),
                      [](const LoopbackConnection* connection) { return connection->isReplying(); }));
}

} // namespace orv
