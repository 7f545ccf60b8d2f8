#include "LoopbackProxy.h"

#include "LoopbackRequestParser.h"
#include "NativeSocket.h"

#include <QHostAddress>
#include <QNetworkProxy>
#include <QTcpServer>
#include <QTcpSocket>
#include <QtEndian>
#include <QUrl>

#include <algorithm>
#include <functional>
#include <utility>

namespace orv {

namespace {

QByteArray socksReply(char code)
{
    return QByteArray("\5", 1) + code + QByteArray("\0\1\0\0\0\0\0\0", 8);
}

// What follows the host in a URL with the scheme http.
QByteArray toOriginForm(const QByteArray& url)
{
    const auto isEnd = [](char c) { return c == '/' || c == '?'; };
    const auto begin = std::find_if(url.cbegin() + qstrlen("http://"), url.cend(), isEnd);
    const QByteArray rest(begin, url.cend() - begin);
    return rest.startsWith('/') ? rest : '/' + rest;
}

QString toHost(char kind, const QByteArray& address)
{
    if (kind == 3) // a name, after its length
        return QString::fromUtf8(address.sliced(1));
    if (kind == 1)
        return QHostAddress(qFromBigEndian<quint32>(address.constData())).toString();
    return u'[' + QHostAddress(reinterpret_cast<const quint8*>(address.constData())).toString() + u']';
}

/// One client and the server that it is connected to; deletes itself when both have closed.
class Connection : public QObject
{
public:
    using Record = std::function<void(const QString& request)>;

    Connection(QTcpSocket* client, LoopbackProxy::Protocol protocol, Record record, QObject* parent);

private:
    enum class State { Greeting, HttpRequest, SocksRequest, Tunnel, Ending };

    void onClientData();
    void readHttpRequest();
    void useHttpRequest(const LoopbackRequest& request, QByteArray bytes);
    void readGreeting();
    void readSocksRequest();

    void openServer(quint16 port, const QByteArray& success, const QByteArray& failure);
    void writeToServer(const QByteArray& bytes);
    void writeToClient(const QByteArray& bytes);
    void refuse(const QByteArray& reply);
    void onWritten();
    void end();

    QTcpSocket* const m_client;
    QTcpSocket* m_server = nullptr;
    quint16 m_serverPort = 0;
    const Record m_record;
    State m_state;
    QByteArray m_input; // of the client, not used yet
    LoopbackRequestParser m_parser;
    QByteArray m_failure; // what the client gets if the server does not accept the connection
};

// The sockets are children, not members: whatever they emit while they are destroyed comes too late for this
// object to receive it.
Connection::Connection(QTcpSocket* client, LoopbackProxy::Protocol protocol, Record record, QObject* parent)
    : QObject(parent)
    , m_client(client)
    , m_record(std::move(record))
    , m_state(protocol == LoopbackProxy::Protocol::Http ? State::HttpRequest : State::Greeting)
{
    m_client->setParent(this);
    m_client->setSocketOption(QAbstractSocket::LowDelayOption, 1);
    connect(m_client, &QTcpSocket::readyRead, this, &Connection::onClientData);
    connect(m_client, &QTcpSocket::bytesWritten, this, &Connection::onWritten);
    connect(m_client, &QTcpSocket::disconnected, this, &Connection::end);
}

void Connection::onClientData()
{
    const QByteArray bytes = m_client->readAll();
    if (m_state == State::Tunnel)
        return writeToServer(bytes);
    if (m_state == State::Ending)
        return;
    m_input += bytes;
    if (m_state == State::Greeting)
        readGreeting();
    if (m_state == State::SocksRequest)
        readSocksRequest();
    if (m_state == State::HttpRequest) {
        m_parser.append(bytes);
        readHttpRequest();
    }
}

void Connection::readHttpRequest()
{
    using Progress = LoopbackRequestParser::Progress;
    while (m_state == State::HttpRequest) {
        switch (m_parser.advance()) {
        case Progress::NeedsMore:
            return;
        case Progress::ExpectsContinue: // in place of the server, which gets complete requests only
            m_client->write("HTTP/1.1 100 Continue\r\n\r\n");
            break;
        case Progress::Complete: {
            const QByteArray bytes = m_input.first(m_input.size() - m_parser.unusedSize());
            m_input.remove(0, bytes.size());
            useHttpRequest(m_parser.take(), bytes);
            break;
        }
        case Progress::Malformed:
            return end();
        }
    }
}

void Connection::useHttpRequest(const LoopbackRequest& request, QByteArray bytes)
{
    const bool isTunnel = request.method == "CONNECT";
    const QUrl url = QUrl::fromEncoded(isTunnel ? "http://" + request.target : request.target);
    const int port = url.port(isTunnel ? 0 : 80);
    if (!url.isValid() || url.scheme() != QLatin1String("http") || url.host().isEmpty() || port == 0)
        return end();
    m_record(QString::fromLatin1(request.method + ' ' + request.target));

    const QByteArray failure = "HTTP/1.1 502 Bad Gateway\r\nContent-Length: 0\r\nConnection: close\r\n\r\n";
    if (isTunnel) {
        m_state = State::Tunnel;
        openServer(quint16(port), "HTTP/1.1 200 Connection established\r\n\r\n", failure);
        return writeToServer(m_input);
    }
    if (!m_server || m_serverPort != port)
        openServer(quint16(port), {}, failure);
    bytes.replace(bytes.indexOf(' ') + 1, request.target.size(), toOriginForm(request.target));
    writeToServer(bytes);
}

// Version, number of methods, methods. Method 0 is the one without a login.
void Connection::readGreeting()
{
    if (!m_input.startsWith('\5'))
        return end();
    const qsizetype size = m_input.size() < 2 ? 2 : 2 + quint8(m_input.at(1));
    if (m_input.size() < size)
        return;
    if (!m_input.first(size).sliced(2).contains('\0'))
        return refuse(QByteArray("\5\xff", 2));
    m_client->write(QByteArray("\5\0", 2));
    m_input.remove(0, size);
    m_state = State::SocksRequest;
}

// Version, command, zero, kind of address, address, port.
void Connection::readSocksRequest()
{
    constexpr qsizetype begin = 4;
    if (m_input.size() <= begin)
        return;
    const char kind = m_input.at(3);
    const qsizetype size = kind == 1 ? 4 : kind == 3 ? 1 + quint8(m_input.at(begin)) : kind == 4 ? 16 : 0;
    if (!m_input.startsWith(QByteArrayView("\5\1\0", 3)) || size < 2)
        return refuse(socksReply(m_input.at(1) == 1 ? 8 : 7));
    const qsizetype end = begin + size + qsizetype(sizeof(quint16));
    if (m_input.size() < end)
        return;
    const QString host = toHost(kind, m_input.sliced(begin, size));
    const auto port = qFromBigEndian<quint16>(m_input.constData() + begin + size);
    m_record(QStringLiteral("SOCKS %1:%2").arg(host, QString::number(port)));
    m_state = State::Tunnel;
    openServer(port, socksReply(0), socksReply(5));
    writeToServer(m_input.sliced(end));
}

void Connection::openServer(quint16 port, const QByteArray& success, const QByteArray& failure)
{
    if (m_server) {
        m_server->disconnect(this);
        m_server->deleteLater();
    }
    m_server = new QTcpSocket(this);
    m_serverPort = port;
    m_failure = failure;
    connect(m_server, &QTcpSocket::connected, this, [this, success] {
        m_failure.clear();
        m_server->setSocketOption(QAbstractSocket::LowDelayOption, 1);
        writeToClient(success);
        onWritten();
    });
    connect(m_server, &QTcpSocket::readyRead, this, [this] { writeToClient(m_server->readAll()); });
    connect(m_server, &QTcpSocket::bytesWritten, this, &Connection::onWritten);
    connect(m_server, &QTcpSocket::stateChanged, this, [this](QAbstractSocket::SocketState state) {
        if (state == QAbstractSocket::UnconnectedState)
            refuse(m_failure);
    });
    m_server->connectToHost(QHostAddress(QHostAddress::LocalHost), port);
}

void Connection::writeToServer(const QByteArray& bytes)
{
    if (m_state != State::Ending)
        m_server->write(bytes); // sent later, if the server is not connected yet
}

void Connection::writeToClient(const QByteArray& bytes)
{
    if (m_state != State::Ending)
        m_client->write(bytes);
}

void Connection::refuse(const QByteArray& reply)
{
    writeToClient(reply);
    end();
}

void Connection::onWritten()
{
    if (m_state == State::Ending)
        end();
}

// Closing a socket while more arrives would reset the connection, and the peer could lose what was sent to
// it. So only the sending direction is closed, after what is written, and what still arrives is dropped.
void Connection::end()
{
    m_state = State::Ending;
    bool isClosed = true;
    for (const QTcpSocket* socket : {m_client, m_server}) {
        if (!socket || socket->state() == QAbstractSocket::UnconnectedState)
            continue;
        isClosed = false;
        if (socket->bytesToWrite() == 0)
            NativeSocket::finishSending(socket->socketDescriptor());
    }
    if (isClosed)
        deleteLater();
}

} // namespace

class LoopbackProxy::Private
{
public:
    Protocol protocol = Protocol::Http;
    QTcpServer* listener = nullptr; // null when not listening
    QStringList requests;
};

LoopbackProxy::LoopbackProxy(Protocol protocol, QObject* parent)
    : QObject(parent)
    , d(std::make_unique<Private>())
{
    d->protocol = protocol;
}

LoopbackProxy::~LoopbackProxy() = default;

Error LoopbackProxy::listen()
{
    if (d->listener)
        return {ErrorCode::Network, tr("The loopback proxy is listening already")};
    auto listener = std::make_unique<QTcpServer>();
    listener->setListenBacklogSize(1024);
    if (!listener->listen(QHostAddress::LocalHost))
        return {ErrorCode::Network, listener->errorString()};
    d->listener = listener.release();
    d->listener->setParent(this);
    connect(d->listener, &QTcpServer::newConnection, this, [this] {
        const auto record = [this](const QString& request) { d->requests.append(request); };
        while (auto* socket = d->listener->nextPendingConnection())
            new Connection(socket, d->protocol, record, this);
    });
    return Error(ErrorCode::None);
}

quint16 LoopbackProxy::port() const
{
    return d->listener ? d->listener->serverPort() : 0;
}

QNetworkProxy LoopbackProxy::proxy() const
{
    const auto type = d->protocol == Protocol::Http ? QNetworkProxy::HttpProxy : QNetworkProxy::Socks5Proxy;
    return {type, QStringLiteral("127.0.0.1"), port()};
}

QStringList LoopbackProxy::requests() const
{
    return d->requests;
}

} // namespace orv
