#include "NetworkExchange_p.h"

#include "HttpResponseStatusCodesUtils.h"
#include "InactivityTimer_p.h"
#include "SslIgnorantNetworkAccessManager.h"

#include <QCoreApplication>
#include <QMetaMethod>
#include <QThread>

#include <algorithm>
#include <array>
#include <utility>

namespace orv {

namespace {

// Disconnects everybody from the reply's public signals. Its other signals carry an abort to Qt's own
// thread.
void silence(QNetworkReply* reply)
{
    const auto& meta = QNetworkReply::staticMetaObject;
    for (int i = QIODevice::staticMetaObject.methodOffset(); i < meta.methodCount(); ++i) {
        if (meta.method(i).methodType() == QMetaMethod::Signal)
            QObject::disconnect(reply, meta.method(i), nullptr, {});
    }
}

// A reply that has failed and is about to say so needs no abort, and Qt would print a warning.
void abortUnlessFailed(QNetworkReply* reply)
{
    if (reply->error() == QNetworkReply::NoError)
        reply->abort();
}

bool isOfQtHttp(const QNetworkReply& reply)
{
    return reply.inherits("QNetworkReplyHttpImpl");
}

// With GOAWAY, an HTTP/2 server says which requests on a connection it has not begun to process (RFC 9113,
// 6.8). Qt fails those with the first of these errors, from 6.11 on with the third one and this text, and
// those that still waited for the connection with the second. With REFUSED_STREAM, a server says it of a
// single request (RFC 9113, 8.7).
bool isLeftByServer(const QNetworkReply& reply)
{
    switch (reply.error()) {
    case QNetworkReply::ContentReSendError:
    case QNetworkReply::ProtocolUnknownError:
        return true;
    case QNetworkReply::RemoteHostClosedError:
        return reply.errorString() == QLatin1String("Remote host signaled shutdown");
    case QNetworkReply::ProtocolFailure:
        return reply.errorString() == QLatin1String("Server refused a stream");
    default:
        return false;
    }
}

int loopLevel()
{
    return std::max(QThread::currentThread()->loopLevel(), 1); // before the first loop runs, too
}

// Deletes its parent when the event loops above @p level have returned.
class DeletionAfterLoops : public QObject
{
public:
    DeletionAfterLoops(QNetworkReply* reply, int level)
        : QObject(reply)
        , m_level(level)
    {
        startTimer(std::chrono::milliseconds(50));
    }

protected:
    void timerEvent(QTimerEvent* /*event*/) override
    {
        if (loopLevel() <= m_level)
            delete parent();
    }

private:
    const int m_level;
};

// All content that has arrived, in one allocation of its size. QIODevice::readAll() does not ask for the size
// and grows its result in steps, and a read that is shorter than QIODevice's buffer allocates that buffer
// first. The size is known unless Qt decodes the content; it then drops the length that the server stated.
QByteArray readAvailable(QNetworkReply* reply)
{
    const auto size = reply->bytesAvailable();
    if (size <= 0 || !reply->header(QNetworkRequest::ContentLengthHeader).isValid())
        return reply->readAll();
    std::array<char, 16384> buffer; // as large as QIODevice's
    if (size >= qint64{buffer.size()})
        return reply->read(size);
    return QByteArray(buffer.data(), std::max<qint64>(reply->read(buffer.data(), buffer.size()), 0));
}

} // namespace

NetworkExchange::NetworkExchange(InactivityTimer& timer, ForeignCalls& calls, Listener& listener)
    : m_managerWatch([this] { m_listener.onTransportLost(); })
    , m_timer(timer)
    , m_calls(calls)
    , m_listener(listener)
{
}

NetworkExchange::~NetworkExchange()
{
    QObject::disconnect(m_replyDestroyed);
    disposeReply(m_reply, m_content, m_loopLevel);
}

void NetworkExchange::setReply(QNetworkReply* reply, QObject* parent, bool isStreaming)
{
    if (m_reply)
        m_reply->disconnect(this);
    if (std::exchange(m_isCompletionOnItsWay, false))
        QCoreApplication::removePostedEvents(this);
    if (reply)
        reply->setParent(parent);
    m_isStreaming = isStreaming;
    QNetworkReply* previous = std::exchange(m_reply, QPointer<QNetworkReply>(reply));
    if (reply)
        connectReply();
    if (reply == previous)
        return;
    m_bytesReported = m_bytesTaken = 0;
    m_wasSent = false;
    const auto previousLevel = std::exchange(m_loopLevel, loopLevel());
    disposeReply(previous, std::exchange(m_content, nullptr), previousLevel); // may delete this
}

void NetworkExchange::connectReply()
{
    connect(m_reply, &QNetworkReply::downloadProgress, this, [this](qint64 bytes) {
        m_timer.extend();
        m_bytesReported = bytes;
        m_listener.onProgress(bytes);
    });
    const auto operation = m_reply->operation();
    if (operation != QNetworkAccessManager::GetOperation && operation != QNetworkAccessManager::HeadOperation)
        connect(m_reply, &QNetworkReply::uploadProgress, this, [this] { m_timer.extend(); });
    connect(m_reply, &QNetworkReply::requestSent, this, [this] { m_wasSent = true; });
    connect(m_reply, &QNetworkReply::readyRead, this, [this] { m_listener.onContentArrived(); });
    m_replyDestroyed = connect(m_reply, &QObject::destroyed, this, [this] { m_listener.onTransportLost(); });
    // While a slot keeps this thread busy, Qt's own thread continues to receive, up to the whole content.
    constexpr qint64 streamingBufferSize = 1048576;
    if (m_isStreaming)
        m_reply->setReadBufferSize(streamingBufferSize);
}

// Deletes a reply and the content that it may be reading. If event loops have been entered since the reply
// was made, one of them may run in a slot that Qt has called for this reply, with a question for the user
// about sslErrors() for one, and Qt uses the reply again when that returns.
void NetworkExchange::disposeReply(QNetworkReply* reply, QHttpMultiPart* content, int level)
{
    const bool isEmitting = reply && m_calls.deleteAfterSignal(reply);
    const bool mayBeInUse = reply && !isEmitting && loopLevel() > level;
    if (!isEmitting && !mayBeInUse) {
        delete reply;
        delete content;
        return;
    }
    silence(reply);
    abortUnlessFailed(reply);
    reply->setParent(mayBeInUse ? reply->manager() : nullptr);
    if (content)
        content->setParent(reply);
    if (mayBeInUse)
        new DeletionAfterLoops(reply, level);
}

void NetworkExchange::setSent(NetworkRequest::Method method, QHttpMultiPart* content)
{
    m_method = method;
    m_content = content;
}

QMetaObject::Connection NetworkExchange::awaitCompletion(SslIgnorantNetworkAccessManager* manager)
{
    manager->watchDestruction(m_managerWatch);
    if (m_reply->isFinished())
        announceCompletion();
    return connect(m_reply, &QNetworkReply::finished, this, &NetworkExchange::announceCompletion);
}

// Judging a reply may delete it, which Qt forbids inside finished().
void NetworkExchange::announceCompletion()
{
    if (!std::exchange(m_isCompletionOnItsWay, true))
        QCoreApplication::postEvent(this, new QEvent(QEvent::User));
}

void NetworkExchange::customEvent(QEvent* /*event*/)
{
    m_isCompletionOnItsWay = false;
    m_listener.onCompleted();
}

void NetworkExchange::giveUp()
{
    m_timer.stop();
    QCoreApplication::removePostedEvents(this);
    if (!m_reply || m_reply->isFinished()) // a finished one emits nothing more
        return;
    m_reply->disconnect(this);
    silence(m_reply);
    abortUnlessFailed(m_reply);
}

void NetworkExchange::disconnectReply()
{
    // By itself first: Qt warns if a call for all signals takes a connection to destroyed() along.
    QObject::disconnect(m_replyDestroyed);
    if (m_reply)
        m_reply->disconnect();
}

void NetworkExchange::abort()
{
    if (!m_reply)
        return;
    const ForeignCall call(m_calls, ForeignCall::From::ReplySignal);
    abortUnlessFailed(m_reply);
}

QByteArray NetworkExchange::takeAll()
{
    if (!isReadable())
        return {};
    auto content = readAvailable(m_reply);
    m_bytesTaken += content.size();
    return content;
}

QByteArray NetworkExchange::take(qint64 maxSize)
{
    if (!isReadable())
        return {};
    const auto size = std::min(maxSize, m_reply->bytesAvailable());
    if (size <= 0)
        return {};
    auto content = m_reply->read(size);
    m_bytesTaken += content.size();
    return content;
}

bool NetworkExchange::isWhole() const
{
    return isReadable() && m_reply->isFinished() && m_reply->error() == QNetworkReply::NoError &&
           !isContentShort() && !isHeadLost();
}

// Whether there can be content after the head, RFC 9110, 6.4.1.
bool NetworkExchange::mayHaveContent() const
{
    const bool isHead = m_method == NetworkRequest::Method::Head ||
                        m_reply->operation() == QNetworkAccessManager::HeadOperation;
    const auto status = responseStatusCodeNumber(m_reply);
    return !isHead && status != 204 && status != 304;
}

// Whether less content has arrived than the reply states. Qt reports some replies that were cut off as
// complete, when the end of the connection comes together with the last bytes. This can be detected where the
// length is stated and Qt did not decode the content (it then drops the field). What comes from a cache is
// whole, and is read without any progress.
bool NetworkExchange::isContentShort() const
{
    const auto length = m_reply->header(QNetworkRequest::ContentLengthHeader);
    const auto received = std::max(m_bytesReported, m_bytesTaken + m_reply->bytesAvailable());
    if (!length.isValid() || length.toLongLong() <= received || !mayHaveContent())
        return false;
    if (m_reply->attribute(QNetworkRequest::SourceIsFromCacheAttribute).toBool())
        return false;
    return !m_reply->hasRawHeader("Transfer-Encoding"); // the length means nothing then, RFC 9112, 6.3
}

// Qt's HTTP/1 engine drops all fields of a head in which it cannot parse one, or which has more than a
// hundred, and keeps the status. It then knows neither length nor coding of the content and takes whatever
// arrives for the whole. A server that sends no field at all looks the same.
bool NetworkExchange::isHeadLost() const
{
    return m_reply->rawHeaderPairs().isEmpty() && isOfQtHttp(*m_reply) &&
           !m_reply->attribute(QNetworkRequest::Http2WasUsedAttribute).toBool() && mayHaveContent();
}

bool NetworkExchange::isUnprocessed() const
{
    return m_reply && (isLeftOverHttp2() || isLeftUnsent()) && responseStatusCodeNumber(m_reply) == 0;
}

// After a redirect, or with content that may not be read twice, Qt's errors say less.
bool NetworkExchange::isLeftOverHttp2() const
{
    if (m_content || !isLeftByServer(*m_reply))
        return false;
    const auto sent = m_reply->request();
    return sent.url().scheme() == QLatin1String("https") && m_reply->url() == sent.url() &&
           sent.attribute(QNetworkRequest::Http2AllowedAttribute, true).toBool();
}

// When a connection breaks in the middle of a reply, Qt also fails the requests that wait for one of the
// connections to that host. Of the content of a POST, a part may have been sent.
bool NetworkExchange::isLeftUnsent() const
{
    return !m_wasSent && m_method != NetworkRequest::Method::Post &&
           m_reply->error() == QNetworkReply::RemoteHostClosedError && isOfQtHttp(*m_reply);
}

// RFC 9110, 9.2.2: a method that is not idempotent only if the request was not processed.
bool NetworkExchange::isRepeatable() const
{
    if (m_method != NetworkRequest::Method::Post)
        return true;
    if (!m_reply)
        return false;
    const auto status = responseStatusCodeNumber(m_reply);
    if (status != 0)
        return status == 401 || status == 429 || status == 503;
    switch (m_reply->error()) {
    case QNetworkReply::ConnectionRefusedError:
    case QNetworkReply::HostNotFoundError:
    case QNetworkReply::ProxyConnectionRefusedError:
    case QNetworkReply::ProxyNotFoundError:
        return true;
    default:
        return isUnprocessed();
    }
}

} // namespace orv
