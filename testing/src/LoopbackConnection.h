#pragma once

#include "LoopbackReplyStream.h"
#include "LoopbackRequestParser.h"

#include <QObject>
#include <QTimer>

#include <functional>
#include <memory>

class QTcpSocket;

namespace orv {

/// One accepted connection: reads requests, gets an answer for one after the other, and writes the replies.
///
/// Its creator owns it until closed() or drop(); from then on it deletes itself.
class LoopbackConnection : public QObject
{
    Q_OBJECT

public:
    using Answer = std::function<LoopbackReply(const LoopbackRequest&)>;

    /// Sets LoopbackRequest::connection to @p number. @p answer may call drop().
    LoopbackConnection(std::unique_ptr<QTcpSocket> socket, int number, Answer answer);
    ~LoopbackConnection() override;

    /// Closes at once and deletes the connection as soon as none of its functions is on the stack.
    void drop();

    /// Whether a request has arrived and the reply to it is still being sent.
    bool isReplying() const { return m_state == State::Answering || m_state == State::Replying; }

Q_SIGNALS:
    /// The connection has ended without drop() and is about to be deleted.
    void closed();

private:
    enum class State { Reading, Answering, Replying, Silent, Closing, Dropped };
    class Visit;

    void onReadyRead();
    void onSpace();
    void onTimeout();
    void onDisconnected();

    void processRequests();
    void answer(LoopbackRequest request);
    void reply(const LoopbackReply& reply, bool headOnly, bool last);
    void send();
    void endReply();
    void endSending();
    void end();
    qint64 unsentSize() const;

    const std::unique_ptr<QTcpSocket> m_socket;
    const int m_number;
    const Answer m_answer;
    LoopbackRequestParser m_parser;
    LoopbackReplyStream m_reply;
    QTimer m_timer; // the pause before the next piece
    State m_state = State::Reading;
    int m_visits = 0;
};

} // namespace orv
