#pragma once

#include "DestructionWatch_p.h"
#include "ForeignCall_p.h"
#include "NetworkRequest.h"

#include <QHttpMultiPart>
#include <QNetworkReply>
#include <QPointer>

namespace orv {

class InactivityTimer;
class SslIgnorantNetworkAccessManager;

/// One request on its way and the reply to it: what belongs to a single attempt of a task.
///
/// It owns the reply and the multipart content, and is the context of every connection to them, so that
/// nothing of an attempt reaches the task once its exchange has been given up or deleted. The reply stays
/// readable until the exchange is deleted. A Listener is called for what happens, and may delete the exchange
/// in every call but onProgress().
class NetworkExchange : public QObject
{
public:
    class Listener
    {
    public:
        /// The reply has finished, and completion was awaited. Called once, from the event loop.
        virtual void onCompleted() = 0;
        /// The reply has new content. Called inside the reply's readyRead().
        virtual void onContentArrived() = 0;
        /// @p bytes of content have been received so far.
        virtual void onProgress(qint64 bytes) = 0;
        /// The reply or its manager was destroyed by other code. Qt does not report such an end.
        virtual void onTransportLost() = 0;

    protected:
        ~Listener() = default;
    };

    /// An exchange without a reply.
    NetworkExchange(InactivityTimer& timer, ForeignCalls& calls, Listener& listener);
    /// Deletes reply and content: at once, or once Qt does not use them any more.
    ~NetworkExchange() override;

    QNetworkReply* reply() const { return m_reply; }
    /// Takes ownership of @p reply, in place of the one before, and makes it a child of @p parent. With
    /// @p isStreaming, Qt buffers at most 1 MB of the content until it is read. Completion is awaited no
    /// longer, even if the reply is the same.
    void setReply(QNetworkReply* reply, QObject* parent, bool isStreaming);
    bool isStreaming() const { return m_isStreaming; }
    /// Leaves the reply to the caller.
    void releaseReply() { m_reply = nullptr; }

    /// What the request was sent with; takes ownership of @p content.
    void setSent(NetworkRequest::Method method, QHttpMultiPart* content);

    /// Reports onCompleted() when the reply has finished, also if it has already. Returns the connection on
    /// which this depends until then.
    QMetaObject::Connection awaitCompletion(SslIgnorantNetworkAccessManager* manager);
    /// Whether the reply has finished and onCompleted() is the next thing to come.
    bool isCompletionOnItsWay() const { return m_isCompletionOnItsWay; }

    /// Gives up the attempt: aborts the reply unless it has finished, and reports nothing more.
    void giveUp();
    /// Disconnects everybody from all signals of the reply.
    void disconnectReply();
    /// Aborts the reply unless it has failed.
    void abort();

    /// Takes all content that has arrived.
    QByteArray takeAll();
    /// Takes up to @p maxSize bytes of the content that has arrived.
    QByteArray take(qint64 maxSize);

    /// How many bytes of content the reply has reported.
    qint64 bytesReported() const { return m_bytesReported; }
    /// Whether the reply has finished without an error and is not known to lack anything.
    bool isWhole() const;
    /// Whether the reply failed although the request was not processed: an HTTP/2 server has said so, or the
    /// connection that broke was another request's, and this one was never sent.
    bool isUnprocessed() const;
    /// Whether sending the request again cannot do more than sending it once.
    bool isRepeatable() const;

protected:
    void customEvent(QEvent* event) override;

private:
    bool isReadable() const { return m_reply && m_reply->isOpen() && m_reply->isReadable(); }
    bool mayHaveContent() const;
    bool isContentShort() const;
    bool isLeftOverHttp2() const;
    bool isLeftUnsent() const;
    bool isHeadLost() const;
    void connectReply();
    void disposeReply(QNetworkReply* reply, QHttpMultiPart* content, int level);
    void announceCompletion();

    DestructionWatch m_managerWatch;
    QPointer<QNetworkReply> m_reply;
    QPointer<QHttpMultiPart> m_content;
    QMetaObject::Connection m_replyDestroyed;
    InactivityTimer& m_timer;
    ForeignCalls& m_calls;
    Listener& m_listener;
    NetworkRequest::Method m_method = NetworkRequest::Method::Get;
    qint64 m_bytesReported = 0; // by the reply's progress
    qint64 m_bytesTaken = 0;
    int m_loopLevel = 0;    // of event loops when the reply was taken
    bool m_wasSent = false; // the whole request
    bool m_isStreaming = false;
    bool m_isCompletionOnItsWay = false;
};

} // namespace orv
