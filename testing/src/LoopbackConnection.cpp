#include "LoopbackConnection.h"

#include "NativeSocket.h"

#include <QSslSocket>

namespace orv {

namespace {

constexpr qsizetype pieceSize = 65'536;
constexpr qint64 sendAhead = 262'144;

bool wantsClose(const LoopbackRequest& request)
{
    return request.field("Connection").toLower().contains("close") ||
           request.startLine().endsWith("HTTP/1.0");
}

} // namespace

/// Marks that a function of the connection is on the stack. Users' code that it calls may drop the
/// connection, even from a nested event loop, so the deletion waits until the outermost of these functions
/// has returned, and then until the socket that called it has.
class LoopbackConnection::Visit
{
public:
    explicit Visit(LoopbackConnection* connection)
        : m_connection(connection)
    {
        ++m_connection->m_visits;
    }

    ~Visit()
    {
        if (--m_connection->m_visits == 0 && m_connection->m_state == State::Dropped)
            m_connection->deleteLater();
    }

    Q_DISABLE_COPY_MOVE(Visit)

private:
    LoopbackConnection* const m_connection;
};

LoopbackConnection::LoopbackConnection(std::unique_ptr<QTcpSocket> socket, int number, Answer answer)
    : m_socket(std::move(socket))
    , m_number(number)
    , m_answer(std::move(answer))
{
    m_timer.setSingleShot(true);
    m_timer.setTimerType(Qt::PreciseTimer);
    m_socket->setSocketOption(QAbstractSocket::LowDelayOption, 1);
    connect(&m_timer, &QTimer::timeout, this, &LoopbackConnection::onTimeout);
    connect(m_socket.get(), &QTcpSocket::readyRead, this, &LoopbackConnection::onReadyRead);
    connect(m_socket.get(), &QTcpSocket::bytesWritten, this, &LoopbackConnection::onSpace);
    connect(m_socket.get(), &QTcpSocket::disconnected, this, &LoopbackConnection::onDisconnected);
    if (auto* sslSocket = qobject_cast<QSslSocket*>(m_socket.get()))
        connect(sslSocket, &QSslSocket::encryptedBytesWritten, this, &LoopbackConnection::onSpace);
}

LoopbackConnection::~LoopbackConnection() = default;

void LoopbackConnection::drop()
{
    m_state = State::Dropped;
    m_timer.stop();
    m_socket->disconnect(this);
    m_socket->abort();
    if (m_visits == 0)
        delete this;
}

void LoopbackConnection::onReadyRead()
{
    const Visit visit(this);
    const QByteArray bytes = m_socket->readAll();
    if (m_state == State::Silent || m_state == State::Closing)
        return;
    m_parser.append(bytes);
    processRequests();
}

void LoopbackConnection::onSpace()
{
    // flush() emits this from within send(), whose loop continues anyway.
    if (m_visits == 0)
        onTimeout();
}

void LoopbackConnection::onTimeout()
{
    const Visit visit(this);
    send();
    processRequests();
}

void LoopbackConnection::onDisconnected()
{
    const Visit visit(this);
    end();
}

void LoopbackConnection::processRequests()
{
    using Progress = LoopbackRequestParser::Progress;
    while (m_state == State::Reading) {
        switch (m_parser.advance()) {
        case Progress::NeedsMore:
            return;
        case Progress::ExpectsContinue:
            m_socket->write("HTTP/1.1 100 Continue\r\n\r\n");
            break;
        case Progress::Complete:
            answer(m_parser.take());
            break;
        case Progress::Malformed:
            reply(LoopbackReply(400), false, true);
            break;
        }
    }
}

void LoopbackConnection::answer(LoopbackRequest request)
{
    m_state = State::Answering;
    request.connection = m_number;
    const LoopbackReply scripted = m_answer(request);
    if (m_state == State::Answering)
        reply(scripted, request.method == "HEAD", wantsClose(request));
}

void LoopbackConnection::reply(const LoopbackReply& reply, bool headOnly, bool last)
{
    m_reply = LoopbackReplyStream(reply, headOnly, last);
    m_state = m_reply.isSilent() ? State::Silent : State::Replying;
    if (m_state == State::Replying && m_reply.delay().count() > 0)
        m_timer.start(m_reply.delay());
    else
        send();
}

void LoopbackConnection::send()
{
    while (m_state == State::Replying && !m_timer.isActive()) {
        if (m_reply.atEnd())
            return endReply();
        if (unsentSize() >= sendAhead)
            return;
        m_socket->write(m_reply.take(pieceSize));
        m_socket->flush();
        const auto pause = m_reply.pause();
        if (m_state == State::Replying && pause && !m_reply.atEnd())
            m_timer.start(*pause);
    }
}

void LoopbackConnection::endReply()
{
    if (m_reply.ending() == LoopbackReplyStream::Ending::KeepOpen) {
        m_state = State::Reading;
    } else if (unsentSize() == 0) {
        if (m_reply.ending() == LoopbackReplyStream::Ending::Close) {
            endSending();
        } else {
            NativeSocket::resetOnClose(m_socket->socketDescriptor());
            end();
        }
    }
}

// Closing while more of a request arrives would reset the connection, and the client could lose the reply. So
// only the sending direction is closed here, and the other one when the client has closed its own.
void LoopbackConnection::endSending()
{
    m_state = State::Closing;
    if (qobject_cast<QSslSocket*>(m_socket.get()))
        m_socket->disconnectFromHost();
    else
        NativeSocket::finishSending(m_socket->socketDescriptor());
}

void LoopbackConnection::end()
{
    Q_EMIT closed();
    drop();
}

qint64 LoopbackConnection::unsentSize() const
{
    const auto* sslSocket = qobject_cast<QSslSocket*>(m_socket.get());
    return m_socket->bytesToWrite() + (sslSocket ? sslSocket->encryptedBytesToWrite() : 0);
}

} // namespace orv
