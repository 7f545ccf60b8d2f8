#include "EnumKey_p.h"
#include "NetworkLog_p.h"
#include "NetworkTask_p.h"

#include <Settings.h>

#include <QDebug>

#include <algorithm>
#include <array>
#include <limits>
#include <utility>

namespace orv {

namespace {

bool isReadable(const QNetworkReply* reply)
{
    return reply->isOpen() && reply->isReadable();
}

// A reply that has failed and is about to say so needs no abort, and Qt would print a warning about one.
void abortUnlessFailed(QNetworkReply* reply)
{
    if (reply->error() == QNetworkReply::NoError)
        reply->abort();
}

// All content that has arrived, in one allocation of its size. QIODevice::readAll() does not ask how much
// there is and grows its result in steps, and a read of less than QIODevice's own buffer first allocates
// that. Qt knows the size unless it decodes the content, and then it drops the length that the server stated.
QByteArray takeContent(QNetworkReply* reply)
{
    const auto size = reply->bytesAvailable();
    if (size <= 0 || !reply->header(QNetworkRequest::ContentLengthHeader).isValid())
        return reply->readAll();
    std::array<char, 16384> buffer; // of that size
    if (size >= qint64{buffer.size()})
        return reply->read(size);
    return QByteArray(buffer.data(), std::max<qint64>(reply->read(buffer.data(), buffer.size()), 0));
}

// The bytes without the first @p count, in the same memory. QByteArray::remove() would copy what is left as
// soon as somebody holds a copy of data(), which makes consuming a stream in pieces cost the square of its
// length.
QByteArray withoutFirst(QByteArray bytes, qsizetype count)
{
    auto storage = std::move(bytes.data_ptr());
    storage.setBegin(storage.begin() + count);
    storage.size -= count;
    return QByteArray(std::move(storage));
}

} // namespace

void NetworkTask::setNetworkReply(QNetworkReply* reply)
{
    if (d->reply) {
        d->reply->disconnect(this);
        d->reply->disconnect(d);
    }
    if (reply)
        reply->setParent(this);
    if (reply != d->reply) {
        QNetworkReply* old = std::exchange(d->reply, QPointer<QNetworkReply>(reply));
        d->disposeReply(old);
        d->replyBytesReceived = 0;
    }
    if (!reply)
        return;
    if (!d->leaving)
        d->leaving = std::make_shared<Private::Leaving>();
    connect(reply, &QNetworkReply::downloadProgress, d, [this](qint64 bytesReceived) {
        d->timer->noteProgress();
        d->bytesReceived = d->replyBytesReceived = bytesReceived;
    });
    const auto operation = reply->operation();
    if (operation != QNetworkAccessManager::GetOperation &&
        operation != QNetworkAccessManager::HeadOperation) {
        connect(reply, &QNetworkReply::uploadProgress, d, [this] { d->timer->noteProgress(); });
    }
    // While a slot keeps this thread busy, Qt's own goes on receiving; without a limit it may gather the
    // whole content.
    constexpr qint64 streamingBufferSize = MB;
    if (d->request.streaming)
        reply->setReadBufferSize(streamingBufferSize);
    connect(reply, &QNetworkReply::readyRead, d,
            d->request.streaming ? &Private::readAvailableData : &Private::forwardReadyRead);
    connect(reply, &QObject::destroyed, d, &Private::onTransportLost);
}

// Deletes a reply that is not the task's any more, with the content that it may be sending, and forgets what
// data() took from it: the next reply has its own.
void NetworkTask::Private::disposeReply(QNetworkReply* old)
{
    QHttpMultiPart* content = replyContent;
    replyContent = nullptr;
    if (std::exchange(isDataFromReply, false))
        data.reset();
    if (old) {
        if (!q->isFinished()) // else finalize() has done it
            old->disconnect(this);
        if (leaving->callsOnStack > 0) {
            old->disconnect();
            old->setParent(nullptr);
            if (content)
                content->setParent(old);
            abortUnlessFailed(old);
            leaving->replies.append(old);
            return;
        }
    }
    delete old;
    delete content;
}

void NetworkTask::Private::forwardReadyRead()
{
    const ReplyOnStack mark(this);
    Q_EMIT q->readyRead();
}

void NetworkTask::Private::readAvailableData()
{
    if (!reply) {
        qCWarning(networkLog) << "Null reply";
        return;
    }
    timer->restart();
    auto chunk = takeContent(reply);
    if (!data || data->isEmpty())
        data = std::move(chunk);
    else
        data->append(chunk);
    forwardReadyRead();
}

QByteArray NetworkTask::read(qint64 maxSize)
{
    if (!d->reply) {
        qCWarning(networkLog) << "Null reply";
        return {};
    }
    const auto size = std::min(maxSize, d->reply->bytesAvailable());
    return size > 0 && isReadable(d->reply) ? d->reply->read(size) : QByteArray();
}

QByteArray NetworkTask::data() const
{
    if (d->reply && d->reply->isFinished() && !d->data) {
        d->data = isReadable(d->reply) ? takeContent(d->reply) : QByteArray();
        d->isDataFromReply = true;
    }
    return d->data.value_or(QByteArray());
}

void NetworkTask::setData(QByteArray data)
{
    d->data = std::move(data);
    d->isDataFromReply = false;
}

void NetworkTask::clearData()
{
    d->data.reset();
}

int NetworkTask::chopFirstBytes(int count)
{
    if (!d->data || d->data->isEmpty() || count < 0 || count > d->data->size())
        return -1;
    d->data = withoutFirst(*std::exchange(d->data, std::nullopt), count);
    return static_cast<int>(std::min<qsizetype>(d->data->size(), std::numeric_limits<int>::max()));
}

qint64 NetworkTask::bytesReceived() const
{
    return d->bytesReceived;
}

void NetworkTask::clearNetworkState()
{
    resetNetworkConnection();
    clearData();
    setNetworkResponseError(QNetworkReply::NoError);
    setNetworkResponseErrorMessage({});
    setHttpResponseStatusCode(HttpResponseStatusCode::Unknown);
    setHttpResponseStatusCodeNumber(0);
}

bool NetworkTask::setNetworkTaskStatusFromReply()
{
    if (!d->reply) {
        setNetworkResponseErrorMessage(tr("Network error"));
        return false;
    }
    setNetworkResponseError(d->reply->error());
    const bool readable = isReadable(d->reply);
    if (networkResponseError() != QNetworkReply::NoError || !readable) {
        auto message = networkResponseError() == QNetworkReply::TimeoutError ? tr("Network timeout")
                                                                             : d->reply->errorString();
        if (message.isEmpty())
            message = tr("Network error");
        setNetworkResponseErrorMessage(message);
    }
    if (!readable)
        return false;
    setHttpResponseStatusCode(responseStatusCode(d->reply));
    setHttpResponseStatusCodeNumber(responseStatusCodeNumber(d->reply));
    return true;
}

void NetworkTask::Private::onReplyFinished(quint64 completion)
{
    if (completion != awaitedCompletion)
        return;
    if (reply && reply->error() != QNetworkReply::NoError) {
        qCWarning(networkLog) << NetworkTask::tr("A task \"%1\" failed, error message = \"%2\".")
                                     .arg(q->name(), reply->errorString());
    }
    q->resetNetworkConnection();
    if (q->isRunning() && isUnprocessed()) {
        isSentAgain = true;
        sendRequest();
        return;
    }
    processNetworkReply();
}

// With GOAWAY, an HTTP/2 server says which requests on a connection it has not begun to process (RFC 9113,
// 6.8). Qt fails those with the first of these errors, and those that still waited for the connection with
// the second. Whatever their method, they may be sent again: once, and over HTTP/1.1, which has no such
// limits. After a redirect, or with content that may not be read twice, the errors say less.
bool NetworkTask::Private::isUnprocessed() const
{
    if (isSentAgain || !reply || replyContent || responseStatusCodeNumber(reply) != 0)
        return false;
    const auto error = reply->error();
    if (error != QNetworkReply::ContentReSendError && error != QNetworkReply::ProtocolUnknownError)
        return false;
    const auto sent = reply->request();
    return sent.url().scheme() == QLatin1String("https") && reply->url() == sent.url() &&
           sent.attribute(QNetworkRequest::Http2AllowedAttribute, true).toBool();
}

void NetworkTask::Private::processNetworkReply()
{
    timer->unwatch();
    if (!q->setNetworkTaskStatusFromReply()) {
        const QPointer<Private> guard(this);
        const auto serial = phaseSerial;
        q->processFailedReply({});
        // A retry has begun another attempt, which this reply has no say in.
        if (!guard || !isCurrent(serial))
            return;
    } else if (isContentShort()) {
        q->setNetworkResponseError(QNetworkReply::RemoteHostClosedError);
        q->setNetworkResponseErrorMessage(NetworkTask::tr("Connection closed"));
    }
    if (httpResponseStatusCode != HttpResponseStatusCode::Unauthorized)
        loginsInARow = 0;
    logReply();
    dumpReply();
    if (!q->isRunning()) {
        qCDebug(networkLog) << "Task" << q->name() << "is not running";
        return;
    }
    if (handleStatus())
        return;
    qCDebug(networkLog) << "Unhandled reply";
    q->processUnhandledReply();
}

// Qt reports some replies that were cut off as complete, when the end of the connection comes together with
// the last bytes. Where the length is stated and the content was not decoded (Qt then drops the field), they
// can be told.
bool NetworkTask::Private::isContentShort() const
{
    if (networkResponseError != QNetworkReply::NoError || request.method == NetworkRequest::Method::Head)
        return false;
    if (httpResponseStatusCodeNumber == 204 ||
        httpResponseStatusCodeNumber == 304) // no content, RFC 9110, 6.4.1
        return false;
    const auto length = reply->header(QNetworkRequest::ContentLengthHeader);
    if (!length.isValid() || length.toLongLong() <= replyBytesReceived)
        return false;
    return !reply->hasRawHeader("Transfer-Encoding"); // the length means nothing then, RFC 9112, 6.3
}

QString NetworkTask::Private::replyErrorText() const
{
    const bool isFoundHere =
        reply->error() == QNetworkReply::NoError && networkResponseError != QNetworkReply::NoError;
    return isFoundHere ? networkResponseErrorMessage : reply->errorString();
}

void NetworkTask::Private::logReply()
{
    qCDebug(networkLog) << "Status code:" << httpResponseStatusCode;
    if (networkResponseError == QNetworkReply::NoError || !networkLog().isWarningEnabled())
        return;
    const auto message = q->errorMessage();
    qCWarning(networkLog).noquote() << "Network error:" << enumKey(networkResponseError)
                                    << (message.isEmpty() ? QString() : QStringLiteral(" : %1").arg(message));
}

void NetworkTask::Private::dumpReply()
{
    static const bool isDumping = as::value(QStringLiteral("Network/DumpData"), false).toBool();
    static const int maxSize = isDumping ? as::value(QStringLiteral("Network/MaxDumpSize"), 0).toInt() : 0;
    if (!isDumping)
        return;
    auto content = q->data();
    if (maxSize > 0 && content.size() > maxSize)
        content.truncate(maxSize);
    qCDebug(networkLog).noquote() << "Server response:" << content;
}

// Returns whether the status has a handler, which then has been called. The handler may have deleted the
// task.
bool NetworkTask::Private::handleStatus()
{
    const auto handling = [this] {
        qCDebug(networkLog) << "Handling status code" << enumKey(httpResponseStatusCode);
    };
    if (const auto found = responseHandlers.constFind(httpResponseStatusCode);
        found != responseHandlers.cend()) {
        handling();
        const auto handler = *found; // the handler may replace itself
        handler();
        return true;
    }
    switch (httpResponseStatusCode) {
    case HttpResponseStatusCode::OK:
    case HttpResponseStatusCode::Created:
        handling();
        processSuccessfulReply();
        return true;
    case HttpResponseStatusCode::BadRequest:
    case HttpResponseStatusCode::NotFound:
        handling();
        processResponseError();
        return true;
    case HttpResponseStatusCode::Unauthorized:
        handling();
        onAuthenticationRequired();
        return true;
    case HttpResponseStatusCode::RequestTimeout:
    case HttpResponseStatusCode::TooManyRequests:
        handling();
        q->processRecoverableError();
        return true;
    default:
        return false;
    }
}

void NetworkTask::Private::processSuccessfulReply()
{
    if (networkResponseError == QNetworkReply::NoError) {
        q->finish(Error(ErrorCode::None));
        return;
    }
    qCDebug(networkLog) << "Network error on successful reply";
    q->processFailedReply({});
}

void NetworkTask::Private::processResponseError()
{
    const auto text = reply ? reply->errorString() : NetworkTask::tr("Network error");
    const auto error = networkError(httpResponseStatusCode, text);
    qCWarning(networkLog) << error;
    q->applyResponseErrorPolicy(error);
}

void NetworkTask::processUnhandledReply()
{
    if (d->recoverableNetworkErrors.contains(d->networkResponseError)) {
        processRecoverableError();
        return;
    }
    setRetriesEnabled(false);
    processFailedReply({});
}

void NetworkTask::processFailedReply(const QString& message)
{
    qCDebug(networkLog) << "Processing failed reply...";
    const QPointer<Private> guard(d);
    if (retry() || !guard)
        return;
    const auto text = message.isEmpty() && d->reply ? d->replyErrorText() : message;
    auto error = networkError(d->httpResponseStatusCode, text);
    // A success status says nothing about why the reply failed.
    if (!error.hasError())
        error = networkError(d->networkResponseError, text);
    if (!error.hasError())
        error = networkUnknownError();
    applyReplyErrorPolicy(error);
}

void NetworkTask::applyErrorPolicy(ErrorPolicy policy, Error error)
{
    qCDebug(networkLog) << "Applying error policy" << enumKey(policy);
    switch (policy) {
    case Ignore:
        break;
    case FinishWithError:
        finish(std::move(error));
        break;
    case FinishWithSuccess:
        finish(Error(ErrorCode::None));
        break;
    }
}

void NetworkTask::applyReplyErrorPolicy(const Error& error)
{
    applyErrorPolicy(replyErrorPolicy(), error);
}

void NetworkTask::applyResponseErrorPolicy(const Error& error)
{
    applyErrorPolicy(responseErrorPolicy(), error);
}

void NetworkTask::Private::onTimeout()
{
    const bool isCompletionOnItsWay = awaitedCompletion && reply && reply->isFinished();
    if (!q->isRunning() || isCompletionOnItsWay)
        return;
    qCWarning(networkLog) << "Network timeout in task" << q->name() << request;
    q->clearNetworkState();
    const QPointer<Private> guard(this);
    q->abort();
    if (!guard)
        return;
    q->setHttpResponseStatusCode(HttpResponseStatusCode::RequestTimeout);
    q->processFailedReply(NetworkTask::tr("Network timeout"));
}

void NetworkTask::Private::onCanceled()
{
    q->clearNetworkState();
    q->abort();
}

// The reply or its manager was destroyed under the task. Qt tells nobody about an exchange that ends like
// this.
void NetworkTask::Private::onTransportLost()
{
    if (!awaitedCompletion || !q->isRunning())
        return;
    timer->unwatch();
    q->resetNetworkConnection();
    // At once: a reply that has not begun yet would go on with a manager that is gone.
    q->setNetworkReply(nullptr);
    const auto text = NetworkTask::tr("Network error");
    q->setNetworkResponseError(QNetworkReply::UnknownNetworkError);
    q->setNetworkResponseErrorMessage(text);
    q->processFailedReply(text);
}

Error NetworkTask::doFinish()
{
    if (hasError() && d->reply && !d->reply->isFinished()) {
        const QPointer<Private> guard(d);
        abort();
        if (!guard)
            return Error(ErrorCode::Canceled); // nobody is left to read it
    }
    return Task::doFinish();
}

// Nothing may follow the end of a task: neither a signal of its reply, nor a completion that is on its way,
// nor a time-out.
void NetworkTask::finalize()
{
    resetNetworkConnection();
    if (d->reply)
        d->reply->disconnect();
    Task::finalize();
}

void NetworkTask::abort()
{
    if (!d->reply)
        return;
    const Private::ReplyOnStack mark(d);
    abortUnlessFailed(d->reply);
}

void NetworkTask::cancel()
{
    d->timer->stop();
    Task::cancel();
}

} // namespace orv
