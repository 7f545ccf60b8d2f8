// Reading a reply, judging it, and the error policies.

#include "EnumKey_p.h"
#include "NetworkLog_p.h"
#include "NetworkQueue.h"
#include "NetworkTask_p.h"
#include "Redaction_p.h"

#include <Settings.h>

#include <QDebug>

#include <algorithm>
#include <array>
#include <limits>
#include <utility>

namespace orv {

namespace {

// RFC 9110, 15: three digits. What is none counts as no status.
HttpResponseStatusCode validStatus(HttpResponseStatusCode code)
{
    const auto number = static_cast<int>(code);
    return number >= 100 && number <= 999 ? code : HttpResponseStatusCode::Unknown;
}

// The bytes without the first @p count, in the same memory. QByteArray::remove() copies what is left if the
// caller holds a copy of data(), which would make consuming a stream in pieces quadratic.
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
    if (reply != networkReply() && std::exchange(d->isDataFromReply, false))
        clearData();
    if (!d->exchange)
        d->exchange = std::make_unique<NetworkExchange>(d->timer, d->calls, *d);
    d->exchange->setReply(reply, this, d->request.streaming);
}

void NetworkTask::Private::onContentArrived()
{
    if (q->isFinished()) // of a reply that the caller has set since
        return;
    if (exchange->isStreaming())
        readAvailableData();
    const ForeignCall call(calls, ForeignCall::From::ReplySignal);
    Q_EMIT q->readyRead();
}

void NetworkTask::Private::readAvailableData()
{
    timer.restart();
    auto chunk = exchange->takeAll();
    if (!data || data->isEmpty())
        data = std::move(chunk);
    else
        data->append(chunk);
}

QByteArray NetworkTask::read(qint64 maxSize)
{
    if (!networkReply()) {
        qCWarning(networkLog) << "Null reply";
        return {};
    }
    return d->exchange->take(maxSize);
}

QByteArray NetworkTask::data() const
{
    if (!d->data && networkReply() && networkReply()->isFinished()) {
        d->data = d->exchange->takeAll();
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

bool NetworkTask::isContentLogged() const
{
    return d->isContentLogged;
}

void NetworkTask::setContentLogged(bool isLogged)
{
    d->isContentLogged = isLogged;
}

qint64 NetworkTask::bytesReceived() const
{
    return d->bytesReceived;
}

void NetworkTask::resetNetworkConnection()
{
    if (d->networkConnection) {
        QObject::disconnect(*d->networkConnection);
        d->networkConnection.reset();
    }
    d->timer.suspend();
    if (d->phase == Private::Phase::Exchanging)
        d->enterPhase(Private::Phase::Deciding);
}

void NetworkTask::clearNetworkState()
{
    resetNetworkConnection();
    clearData();
    setNetworkResponseError(QNetworkReply::NoError);
    setNetworkResponseErrorMessage({});
    setHttpResponseStatusCode(HttpResponseStatusCode::Unknown);
    setHttpResponseStatusCodeNumber(0);
    d->timeoutKind = TimeoutKind::None;
}

bool NetworkTask::setNetworkTaskStatusFromReply()
{
    const auto* reply = networkReply();
    if (!reply) {
        setNetworkResponseErrorMessage(tr("Network error"));
        return false;
    }
    setNetworkResponseError(reply->error());
    const bool isReadable = reply->isOpen() && reply->isReadable();
    if (networkResponseError() != QNetworkReply::NoError || !isReadable) {
        auto message = networkResponseError() == QNetworkReply::TimeoutError
                           ? tr("Network timeout")
                           : withoutPasswords(reply->errorString());
        if (message.isEmpty())
            message = tr("Network error");
        setNetworkResponseErrorMessage(message);
    }
    if (!isReadable)
        return false;
    const int number = responseStatusCodeNumber(networkReply());
    setHttpResponseStatusCode(static_cast<HttpResponseStatusCode>(number));
    setHttpResponseStatusCodeNumber(number);
    return true;
}

// The completion counts only if it is still awaited when the event loop delivers it.
void NetworkTask::Private::onCompleted()
{
    if (phase != Phase::Exchanging)
        return;
    const auto* reply = exchange->reply();
    if (reply && reply->error() != QNetworkReply::NoError) {
        qCWarning(networkLog) << NetworkTask::tr("A task \"%1\" failed, error message = \"%2\".")
                                     .arg(q->name(), withoutPasswords(reply->errorString()));
    }
    q->resetNetworkConnection();
    if (q->isRunning() && !isSentAgain && exchange->isUnprocessed()) {
        // Safe for every method, since nothing was processed. Over HTTP/1.1, which has no GOAWAY.
        isSentAgain = true;
        startSending();
        return;
    }
    processNetworkReply();
}

void NetworkTask::Private::processNetworkReply()
{
    timer.stop();
    const bool isReadable = q->setNetworkTaskStatusFromReply();
    if (isReadable) {
        reportToQueue();
        judgeContent();
    } else {
        const ForeignCall call(calls);
        q->processFailedReply({});
        // A retry has begun another attempt, which this reply must not affect.
        if (!call.isTaskAlive() || !(phase == Phase::Deciding || phase == Phase::Ended))
            return;
    }
    if (!logReply())
        return;
    dumpReply();
    if (!q->isRunning()) {
        qCDebug(networkLog) << "Task" << q->name() << "is not running";
        return;
    }
    if (!isReadable || handleStatus()) // the policy is Ignore, or the handler decides
        return;
    qCDebug(networkLog) << "Unhandled reply";
    q->processUnhandledReply();
}

// Before the handlers, which may start another attempt.
void NetworkTask::Private::reportToQueue() const
{
    const auto status = responseStatusCodeNumber(exchange->reply());
    if (status != 429 && status != 503)
        return;
    if (auto* queue = qobject_cast<NetworkQueue*>(q->queue()))
        queue->onServerBusy(*exchange->reply());
}

// Finds out about content that is not whole although Qt reports no error.
void NetworkTask::Private::judgeContent()
{
    if (networkResponseError != QNetworkReply::NoError)
        return;
    if (!exchange->isWhole()) {
        q->setNetworkResponseError(QNetworkReply::RemoteHostClosedError);
        q->setNetworkResponseErrorMessage(NetworkTask::tr("Connection closed"));
    }
}

QString NetworkTask::Private::replyErrorText() const
{
    const auto* reply = q->networkReply();
    if (!reply)
        return {};
    const bool isFoundHere =
        reply->error() == QNetworkReply::NoError && networkResponseError != QNetworkReply::NoError;
    return isFoundHere ? networkResponseErrorMessage : withoutPasswords(reply->errorString());
}

// Returns false if the caller must do nothing more: errorMessage() is a subclass's and may end the task.
bool NetworkTask::Private::logReply()
{
    qCDebug(networkLog) << "Status code:" << httpResponseStatusCode;
    if (networkResponseError == QNetworkReply::NoError)
        return true;
    const ForeignCall call(calls);
    const auto message = q->errorMessage();
    if (!call)
        return false;
    qCWarning(networkLog).noquote() << "Network error:" << enumKey(networkResponseError)
                                    << (message.isEmpty() ? QString() : QStringLiteral(" : %1").arg(message));
    return true;
}

void NetworkTask::Private::dumpReply()
{
    static const bool isDumping = as::value(QStringLiteral("Network/DumpData"), false).toBool();
    static const int maxSize = isDumping ? as::value(QStringLiteral("Network/MaxDumpSize"), 0).toInt() : 0;
    if (!isDumping || !isContentLogged)
        return;
    auto content = q->data();
    if (maxSize > 0 && content.size() > maxSize)
        content.truncate(maxSize);
    qCDebug(networkLog).noquote() << "Server response:" << content;
}

// What is done about a status for which the caller has set no handler; null for most.
NetworkTask::Private::Handler NetworkTask::Private::defaultHandler(HttpResponseStatusCode code)
{
    using Code = HttpResponseStatusCode;
    static constexpr std::array<std::pair<Code, Handler>, 7> handlers{{
        {Code::OK, &Private::processSuccessfulReply},
        {Code::Created, &Private::processSuccessfulReply},
        {Code::BadRequest, &Private::processResponseError},
        {Code::Unauthorized, &Private::onAuthenticationRequired},
        {Code::NotFound, &Private::processResponseError},
        {Code::RequestTimeout, &Private::processRecoverableError},
        {Code::TooManyRequests, &Private::processRecoverableError},
    }};
    const auto found = std::find_if(handlers.begin(), handlers.end(),
                                    [code](const auto& handler) { return handler.first == code; });
    return found == handlers.end() ? nullptr : found->second;
}

// Returns whether the status has a handler, which then has been called and may have deleted the task.
bool NetworkTask::Private::handleStatus()
{
    const auto code = validStatus(httpResponseStatusCode);
    const auto set = responseHandlers.constFind(code);
    const bool isSet = set != responseHandlers.cend();
    const auto byDefault = isSet ? nullptr : defaultHandler(code);
    if (!isSet && !byDefault)
        return false;
    qCDebug(networkLog) << "Handling status code" << enumKey(code);
    if (isSet) {
        const auto handler = *set; // it may replace itself
        handler();
    } else {
        (this->*byDefault)();
    }
    return true;
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
    const auto* reply = q->networkReply();
    const auto text = reply ? withoutPasswords(reply->errorString()) : NetworkTask::tr("Network error");
    const auto error = networkError(httpResponseStatusCode, text);
    qCWarning(networkLog) << error;
    q->applyResponseErrorPolicy(error);
}

void NetworkTask::Private::processRecoverableError()
{
    qCDebug(networkLog) << "Recoverable error occurred:" << httpResponseStatusCode;
    q->processFailedReply({});
}

void NetworkTask::processUnhandledReply()
{
    if (d->recoverableNetworkErrors.contains(d->networkResponseError)) {
        d->processRecoverableError();
        return;
    }
    setRetriesEnabled(false);
    processFailedReply({});
}

void NetworkTask::processFailedReply(const QString& message)
{
    qCDebug(networkLog) << "Processing failed reply...";
    const auto error = d->failure(message);
    if (d->retryOptions)
        d->retryOptions->lastFailure = error.errorMessage();
    const ForeignCall call(d->calls);
    if (retry() || !call.isTaskAlive())
        return;
    applyReplyErrorPolicy(error);
}

Error NetworkTask::Private::failure(const QString& message) const
{
    const auto text = message.isEmpty() ? replyErrorText() : message;
    auto error = networkError(validStatus(httpResponseStatusCode), text);
    // A success status says nothing about why the reply failed.
    if (!error.hasError())
        error = networkError(networkResponseError, text);
    return error.hasError() ? error : networkUnknownError();
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

// Whatever became of the connection to the reply, the task does not wait any longer; unless the reply was
// complete in time, and only the event loop was late.
void NetworkTask::Private::onTimeout()
{
    const bool isCompletionNext = phase == Phase::Exchanging && exchange->isCompletionOnItsWay();
    const bool mayTimeOut = phase == Phase::Exchanging || phase == Phase::Deciding;
    if (isCompletionNext)
        timer.restart(); // the caller may still replace the reply
    if (!q->isRunning() || !mayTimeOut || isCompletionNext)
        return;
    const ForeignCall masking(calls);
    const auto text = networkLog().isWarningEnabled() ? debugText(request) : QByteArray();
    if (!masking)
        return;
    qCWarning(networkLog) << "Network timeout in task" << q->name() << text.constData();
    q->clearNetworkState();
    const ForeignCall aborting(calls);
    q->abort();
    if (!aborting)
        return;
    q->setHttpResponseStatusCode(HttpResponseStatusCode::RequestTimeout);
    timeoutKind = TimeoutKind::Inactivity;
    q->processFailedReply(NetworkTask::tr("Network timeout"));
}

void NetworkTask::Private::onCanceled()
{
    q->clearNetworkState();
    q->abort();
}

void NetworkTask::Private::onTransportLost()
{
    if (phase != Phase::Exchanging || !q->isRunning())
        return;
    q->resetNetworkConnection();
    // At once: a reply that has not started yet would use the deleted manager.
    q->setNetworkReply(nullptr);
    const auto text = NetworkTask::tr("Network error");
    q->setNetworkResponseError(QNetworkReply::UnknownNetworkError);
    q->setNetworkResponseErrorMessage(text);
    q->processFailedReply(text);
}

// Whether the last attempt has brought the whole content of a success. The status alone does not say so: it
// is 200 from exec() until a reply is judged.
bool NetworkTask::isReplyWhole() const
{
    const auto code = d->httpResponseStatusCode;
    return d->phase == Private::Phase::Deciding && d->networkResponseError == QNetworkReply::NoError &&
           (code == HttpResponseStatusCode::OK || code == HttpResponseStatusCode::Created) &&
           d->exchange->isWhole();
}

// Whether the program has taken a part of the content away, with read() or from a stream.
bool NetworkTask::isDataIncomplete() const
{
    const bool isFromReply = d->isDataFromReply || d->exchange->isStreaming();
    return isFromReply && data().size() < d->exchange->bytesReported();
}

Error NetworkTask::doFinish()
{
    const auto* reply = networkReply();
    if (hasError() && reply && !reply->isFinished()) {
        const ForeignCall call(d->calls);
        abort();
        if (!call.isTaskAlive())
            return Error(ErrorCode::Canceled); // not read by anyone
    }
    return Task::doFinish();
}

// Nothing may follow the end of a task, and nothing that it started may continue.
void NetworkTask::finalize()
{
    if (d->phase == Private::Phase::Delayed)
        qCWarning(networkLog) << "Task is already finished"; // so its request is not sent
    d->stopWatchingDeadline();
    resetNetworkConnection();
    if (d->phase != Private::Phase::Ended)
        d->enterPhase(Private::Phase::Ended);
    if (d->exchange)
        d->exchange->disconnectReply();
    Task::finalize();
}

void NetworkTask::abort()
{
    if (d->exchange)
        d->exchange->abort();
}

void NetworkTask::cancel()
{
    d->timer.suspend();
    d->stopWatchingDeadline();
    Task::cancel();
}

} // namespace orv
