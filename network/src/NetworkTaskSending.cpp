// Building a request, authorizing it and sending it.

#include "CurrentException_p.h"
#include "FieldSyntax_p.h"
#include "NetworkLog_p.h"
#include "NetworkRequest_p.h"
#include "NetworkTask_p.h"
#include "OneTimeContent_p.h"
#include "Redaction_p.h"

#include <Settings.h>

#include <QCoreApplication>
#include <QDebug>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLibraryInfo>
#include <QVersionNumber>

#include <functional>
#include <utility>

namespace orv {

using namespace std::chrono_literals;

namespace {

bool isField(const QByteArray& name, const QByteArray& value)
{
    return isToken(name) && isFieldValue(value);
}

// Says why a field must not be sent, without its value, which may be a secret.
Error refusalOf(const QByteArray& name)
{
    const auto text =
        isToken(name) ? NetworkTask::tr("The value of the header field \"%1\" contains a control character")
                      : NetworkTask::tr("\"%1\" is not a valid name of a header field");
    return Error(ErrorCode::InvalidArgument,
                 text.arg(QString::fromLatin1(name.toPercentEncoding(" !#$%&'*+^`|~:"))));
}

// Sets a header field as a raw one. A blank is an empty value (RFC 9110, 5.5) that Qt sends as it is; it
// leaves out a known field that is empty, or puts its own in the place.
void setField(QNetworkRequest& request, const QByteArray& name, const QByteArray& value, Error& refusal)
{
    if (!isField(name, value))
        refusal = refusalOf(name);
    else
        request.setRawHeader(name, value.isEmpty() ? QByteArrayLiteral(" ") : value);
}

// What the requests of a program have in common but for their URL and fields of their own. Qt parses each
// field that is set, so they are set once and copied.
struct RequestTemplate
{
    QByteArray acceptedContentTypes;
    QByteArray userAgent;
    QNetworkRequest request;
    Error refusal;
};

RequestTemplate makeTemplate(const QByteArray& acceptedContentTypes, const QByteArray& userAgent)
{
    RequestTemplate made{acceptedContentTypes, userAgent, {}, {}};
    made.request.setAttribute(QNetworkRequest::RedirectPolicyAttribute,
                              QNetworkRequest::ManualRedirectPolicy);
    if (!acceptedContentTypes.isEmpty())
        setField(made.request, QByteArrayLiteral("Accept"), acceptedContentTypes, made.refusal);
    setField(made.request, QByteArrayLiteral("User-Agent"), userAgent, made.refusal);
    return made;
}

// The one that this thread has used last.
const RequestTemplate& requestTemplate(const QByteArray& acceptedContentTypes, const QByteArray& userAgent)
{
    thread_local auto last = makeTemplate(acceptedContentTypes, userAgent);
    if (last.acceptedContentTypes != acceptedContentTypes || last.userAgent != userAgent)
        last = makeTemplate(acceptedContentTypes, userAgent);
    return last;
}

// For a POST, Qt takes an empty type of content for a missing one, and adds that of a form to it. Up to 6.7,
// a blank is not empty; later, the type for content of which nothing is known (RFC 9110, 8.3) stands for it.
void completeContentType(QNetworkRequest& request, const QByteArray& content)
{
    static const bool isBlankEmpty = QLibraryInfo::version() >= QVersionNumber(6, 8);
    const auto name = QByteArrayLiteral("Content-Type");
    const bool isTypeNeeded = !content.isEmpty() || request.url().hasQuery();
    if (isBlankEmpty && isTypeNeeded && request.hasRawHeader(name) && request.rawHeader(name).isEmpty())
        request.setRawHeader(name, QByteArrayLiteral("application/octet-stream"));
}

// For a request that a subclass has authorized in its own way. From Qt 6.8 on, a field that must not be sent
// is not set in the first place.
Error checkFields(const QNetworkRequest& request)
{
    const auto names = request.rawHeaderList();
    for (const auto& name : names) {
        if (!isField(name, request.rawHeader(name)))
            return refusalOf(name);
    }
    return Error(ErrorCode::None);
}

bool isPostOrPut(NetworkRequest::Method method)
{
    return method == NetworkRequest::Method::Post || method == NetworkRequest::Method::Put;
}

// Sends content that Qt cannot send again by itself.
QNetworkReply* postOnce(QNetworkAccessManager* sender, const QNetworkRequest& networkRequest,
                        const QByteArray& data)
{
    auto content = std::make_unique<OneTimeContent>(data);
    auto* reply = sender->post(networkRequest, content.get());
    if (reply)
        content.release()->setParent(reply);
    return reply;
}

} // namespace

/// Waits for a delay, or just for the event loop, and then takes a step that may delete it.
class NetworkTask::Private::Delay : public QObject
{
public:
    Delay(std::chrono::milliseconds time, Private* task, void (Private::*step)())
        : QObject(task->q)
        , m_task(task)
        , m_step(step)
    {
        constexpr std::chrono::seconds coarse(2); // as QTimer has it
        if (time > std::chrono::milliseconds(0))
            startTimer(time, time < coarse ? Qt::PreciseTimer : Qt::CoarseTimer);
        else
            QCoreApplication::postEvent(this, new QEvent(QEvent::User));
    }

protected:
    void customEvent(QEvent* /*event*/) override { (m_task->*m_step)(); }
    void timerEvent(QTimerEvent* /*event*/) override { (m_task->*m_step)(); }

private:
    Private* const m_task;
    void (Private::*const m_step)();
};

void NetworkTask::exec()
{
    if (isFinishing()) {
        qCWarning(networkLog) << "Unable to continue, the task is finished";
        return;
    }
    if (d->isAttemptUnderWay()) {
        qCWarning(networkLog) << "Unable to start, an attempt is under way";
        return;
    }
    const bool isPutBack = !isRunning() && d->phase != Private::Phase::Idle;
    if (isPutBack || d->executionStart == decltype(d->executionStart)())
        d->beginExecution();
    if (d->phase != Private::Phase::Idle) {
        resetNetworkConnection();
        d->enterPhase(Private::Phase::Idle);
        clearData();
    }
    if (!std::exchange(d->isExecutedAgain, false))
        d->forgetRefusals();
    const ForeignCall call(d->calls);
    setRunning();
    if (!call)
        return;
    setNetworkResponseError(QNetworkReply::NoError);
    setNetworkResponseErrorMessage({});
    setHttpResponseStatusCode(HttpResponseStatusCode::OK);
    d->timeoutKind = TimeoutKind::None;
    if (requiresAuthentication() && d->isLoginUnderWay() && !d->isAskedToWait())
        d->awaitLogin();
    else
        d->scheduleSending();
}

// The task holds no slot of its queue while it waits for the delay.
void NetworkTask::Private::scheduleSending()
{
    const auto delay = takeTimeToWait();
    enterPhase(Phase::Delayed);
    isSentAgain = false;
    callAfter(delay, &Private::startSending);
    if (delay > std::chrono::milliseconds(0) || std::exchange(isStartedWithoutSlot, false))
        q->pause();
}

// Continues the phase with @p step, unless something else happens before.
void NetworkTask::Private::callAfter(std::chrono::milliseconds delay, void (Private::*step)())
{
    pending = std::make_unique<Delay>(delay, this, step);
}

// Called when what the task waited for is over.
void NetworkTask::Private::startSending()
{
    if (q->isFinished()) { // finalize() of a subclass has thrown, or does not call its base
        qCWarning(networkLog) << "Task is already finished";
        enterPhase(Phase::Ended);
        return;
    }
    endIfThrown([this] {
        if (q->isPaused() && !goOn())
            return;
        enterPhase(Phase::Sending);
        sendRequest();
    });
}

// Returns false if the caller must do nothing more. The task may wait for a slot of its queue then, which
// calls resume() when it is its turn.
bool NetworkTask::Private::goOn()
{
    isWaitOver = true;
    pending.reset();
    const ForeignCall call(calls);
    q->resume();
    return call && !q->isPaused();
}

// An override of resume() may still be running in its queue, so the request is sent from the event loop. When
// startSending() calls this, it sends at once instead.
void NetworkTask::resume()
{
    if (d->isWaiting() && !d->isWaitOver)
        return;
    Task::resume();
    if (d->isWaitOver && isRunning() && !isPaused())
        d->callAfter(0ms, &Private::startSending);
}

// An exception from code that is not ours would leave the task in a phase in which nothing is pending.
void NetworkTask::Private::endIfThrown(const std::function<void()>& step)
{
    const ForeignCall call(calls);
    try {
        step();
    } catch (...) {
        if (call.isTaskAlive())
            q->finish(errorOfCurrentException());
        throw;
    }
}

void NetworkTask::Private::sendRequest()
{
    if (std::exchange(wasHeldForLogin, false) && endIfLoginFailed())
        return;
    Error refusal;
    auto networkRequest = buildRequest(refusal);
    if (requiresAuthentication && !q->authenticator())
        refusal = authenticationFailed();
    if (refusal.hasError()) {
        q->finish(refusal);
        return;
    }
    sentToken.reset();
    if (!requiresAuthentication)
        sentToken.emplace();
    const ForeignCall call(calls);
    const bool isAuthorized = !requiresAuthentication || authorize(networkRequest);
    if (!call)
        return;
    if (!isAuthorized) {
        enterPhase(Phase::Deciding); // no login was asked for: the subclass decides
        return;
    }
    for (auto attribute = requestAttributes.cbegin(); attribute != requestAttributes.cend(); ++attribute)
        networkRequest.setAttribute(attribute.key(), attribute.value());
    if (isSentAgain)
        networkRequest.setAttribute(QNetworkRequest::Http2AllowedAttribute, false);
    executeRequest(networkRequest);
}

QNetworkRequest NetworkTask::Private::buildRequest(Error& refusal) const
{
    const auto& common = requestTemplate(request.acceptedContentTypes, q->userAgent());
    refusal = common.refusal;
    auto networkRequest = common.request;
    networkRequest.setUrl(QUrl(request.url, QUrl::TolerantMode));
    // While an HTTP/2 server is closing a connection that is still in use (GOAWAY), Qt 6.4 forgets the
    // requests made to it: they are neither sent nor failed, and wait for the time-out. It is not used for
    // http, unless an attribute of the task leads to it.
    if (networkRequest.url().scheme() != QLatin1String("http") || !requestAttributes.isEmpty())
        networkRequest.setAttribute(QNetworkRequest::Http2AllowedAttribute, false);
    for (auto field = request.rawHeaders.cbegin(); field != request.rawHeaders.cend(); ++field)
        setField(networkRequest, field.key(), field.value(), refusal);
    addIdempotencyKey(networkRequest);
    return networkRequest;
}

// Returns whether the request may be sent; if not, the task may have left this phase.
bool NetworkTask::Private::authorize(QNetworkRequest& networkRequest)
{
    const ForeignCall call(calls);
    if (!q->doAuthenticateRequest(&networkRequest) || !call)
        return false;
    const auto refusal = checkFields(networkRequest);
    if (refusal.hasError())
        q->finish(refusal);
    return !refusal.hasError();
}

bool NetworkTask::doAuthenticateRequest(QNetworkRequest* request)
{
    if (!authenticator() || !request)
        return false;
    const ForeignCall call(d->calls);
    const auto token = authenticator()->token();
    if (!call)
        return false;
    const auto encoded = token.toLatin1();
    if (std::exchange(d->isTokenNew, false)) {
        const bool isLogged = authenticator() && authenticator()->isTokenLogged();
        qCDebug(networkLog) << "New access token:"
                            << (isLogged ? QString::fromLatin1(encoded) : QStringLiteral("******"));
    }
    if (token.isEmpty()) {
        qCInfo(networkLog) << "No token, auth required";
        d->onAuthenticationRequired();
        return false;
    }
    Error refusal;
    setField(*request, QByteArrayLiteral("Authorization"), "Bearer " + encoded, refusal);
    d->sentToken = token;
    if (refusal.hasError())
        finish(refusal);
    return !refusal.hasError();
}

void NetworkTask::Private::executeRequest(QNetworkRequest networkRequest)
{
    qCInfo(networkLog) << "Sending request:" << networkRequest.url() << methodName(request.method)
                       << "acceptedContentTypes:" << request.acceptedContentTypes << "for task" << q->name();
    if (!manager()) {
        qCWarning(networkLog) << "The network access manager is null";
        enterPhase(Phase::Deciding);
        return;
    }
    // The content stays with the reply until data() takes it, so the manager must not delete it before.
    constexpr auto autoDelete = QNetworkRequest::AutoDeleteReplyOnFinishAttribute;
    if (manager()->autoDeleteReplies() || requestAttributes.contains(autoDelete))
        networkRequest.setAttribute(autoDelete, false);
    const ForeignCall call(calls);
    auto content = createContent();
    if (!call)
        return;
    const auto refusal = addContentType(networkRequest, content.get());
    if (refusal.hasError()) {
        q->finish(refusal);
        return;
    }
    logContent(content.get());
    if (call)
        exchangeWith(manager(), networkRequest, std::move(content));
}

SslIgnorantNetworkAccessManager* NetworkTask::Private::manager() const
{
    return networkAccessManager ? networkAccessManager.data() : defaultNetworkAccessManager();
}

std::unique_ptr<QHttpMultiPart> NetworkTask::Private::createContent() const
{
    const bool mayHaveContent =
        isPostOrPut(request.method) || request.method == NetworkRequest::Method::Delete;
    return std::unique_ptr<QHttpMultiPart>(mayHaveContent ? q->createMultiPart() : nullptr);
}

// Content is always sent with its type, even an empty one. A type among the raw header fields is used if none
// is given, and multipart content has its own.
Error NetworkTask::Private::addContentType(QNetworkRequest& networkRequest,
                                           const QHttpMultiPart* content) const
{
    const auto name = QByteArrayLiteral("Content-Type");
    const bool isMultiPart = content && request.method != NetworkRequest::Method::Put;
    if (isMultiPart && !isFieldValue(content->boundary()))
        return refusalOf(name);
    Error refusal;
    const bool isGiven = !request.postDataContentType.isEmpty();
    const bool isImplied = isMultiPart || networkRequest.hasRawHeader(name);
    if (isPostOrPut(request.method) && (isGiven || !isImplied))
        setField(networkRequest, name, request.postDataContentType, refusal);
    if (request.method == NetworkRequest::Method::Post)
        completeContentType(networkRequest, request.postData);
    return refusal;
}

// The masking function is the caller's, and may delete the task.
void NetworkTask::Private::logContent(const QHttpMultiPart* content) const
{
    if (!networkLog().isInfoEnabled())
        return;
    const auto sent = request;
    if (content && sent.method != NetworkRequest::Method::Put) {
        qCInfo(networkLog) << "Using multipart message:" << content;
    } else if (!sent.postData.isEmpty() && isPostOrPut(sent.method)) {
        const auto masked = sent.maskedData().left(2000);
        qCInfo(networkLog).nospace() << "Using dataContentType " << sent.postDataContentType << " ("
                                     << sent.postData.size() << "bytes): " << masked << Qt::endl;
    }
}

void NetworkTask::Private::exchangeWith(SslIgnorantNetworkAccessManager* sender,
                                        const QNetworkRequest& networkRequest,
                                        std::unique_ptr<QHttpMultiPart> content)
{
    const ForeignCall call(calls);
    const QPointer<QHttpMultiPart> sent = content.release();
    if (sent)
        sent->setParent(q);
    const auto method = request.method;
    auto* reply = dispatch(sender, networkRequest, sent);
    if (!call) { // ended or deleted by a manager that makes replies itself
        delete reply;
        delete sent;
        return;
    }
    const auto previous = std::exchange(exchange, nullptr);
    q->setNetworkReply(reply);
    if (previous && previous->reply() == reply) // from a manager that makes replies itself
        previous->releaseReply();
    exchange->setSent(method, sent);
    q->setNetworkConnection(exchange->awaitCompletion(sender));
    QObject::connect(q, &ErrorCancelable::canceled, exchange.get(), [this] { onCanceled(); });
    enterPhase(Phase::Exchanging);
    timer.start(timeoutOfAttempt());
}

QNetworkReply* NetworkTask::Private::dispatch(SslIgnorantNetworkAccessManager* sender,
                                              const QNetworkRequest& networkRequest,
                                              QHttpMultiPart* content) const
{
    switch (request.method) {
    case NetworkRequest::Method::Head:
        return sender->head(networkRequest);
    case NetworkRequest::Method::Get:
        break;
    case NetworkRequest::Method::Post:
        if (content)
            return sender->post(networkRequest, content);
        return mustBeSentOnce(networkRequest) ? postOnce(sender, networkRequest, request.postData)
                                              : sender->post(networkRequest, request.postData);
    case NetworkRequest::Method::Put:
        return sender->put(networkRequest, request.postData);
    case NetworkRequest::Method::Delete:
        return sender->deleteResource(networkRequest, content);
    }
    return sender->get(networkRequest);
}

// Qt needs content that it can read again to answer a challenge for the user of the URL; and over HTTP/2 it
// reports requests that were not processed as if their content could not be read.
bool NetworkTask::Private::mustBeSentOnce(const QNetworkRequest& networkRequest) const
{
    return !q->unsafeRetriesEnabled() && networkRequest.url().userName().isEmpty() &&
           !networkRequest.attribute(QNetworkRequest::Http2AllowedAttribute).toBool();
}

// The setting counts in place of the task's own time-out, which is truncated to 32 bits.
int NetworkTask::Private::timeoutOfAttempt() const
{
    const auto own = static_cast<int>(timeout.count());
    const auto setting = as::value(QStringLiteral("Network/Timeout"), own);
    bool isNumber = false;
    const auto milliseconds = setting.toInt(&isNumber);
    if (isNumber)
        return milliseconds;
    qCWarning(networkLog) << "The setting Network/Timeout is not a number:" << setting;
    return own;
}

Result<NetworkRequest> NetworkTask::prepareRequest(const PrepareRequestParams& params) const
{
    if (!params.relativePath.startsWith(QLatin1Char('/'))) {
        return Error(ErrorCode::InvalidArgument, tr("relative path must start with '/'"))
            .ecatch(Q_FUNC_INFO, __FILE__, __LINE__);
    }
    const QUrl relative(fullRelativePath(params.relativePath), QUrl::TolerantMode);
    QUrl url = params.baseUrl;
    url.setPath(relative.path(QUrl::FullyDecoded), QUrl::DecodedMode);
    url.setQuery(relative.query());
    url.setFragment(relative.fragment());
    qCInfo(networkLog) << "Request URL changed to: path=" << url.path() << "query:" << url.query()
                       << "fragment:" << url.fragment();

    NetworkRequest request(url.toString(), NetworkRequest::jsonContentType, params.method);
    request.streaming = params.streaming;
    if (!params.body.isEmpty()) {
        request.postDataContentType = NetworkRequest::jsonContentType;
        request.postData = params.body;
    }
    return request;
}

Result<NetworkRequest> NetworkTask::prepareRequest(const QUrl& baseUrl, const QString& relativePath,
                                                   NetworkRequest::Method method) const
{
    return prepareRequest(PrepareRequestParams{baseUrl, relativePath, method, {}, false});
}

Result<NetworkRequest> NetworkTask::prepareRequest(const QUrl& baseUrl, const QString& relativePath,
                                                   NetworkRequest::Method method,
                                                   const QJsonObject& json) const
{
    const auto body = QJsonDocument(json).toJson(QJsonDocument::Indented);
    return prepareRequest(PrepareRequestParams{baseUrl, relativePath, method, body, false});
}

Result<NetworkRequest> NetworkTask::prepareRequest(const QUrl& baseUrl, const QString& relativePath,
                                                   NetworkRequest::Method method, bool streaming) const
{
    return prepareRequest(PrepareRequestParams{baseUrl, relativePath, method, {}, streaming});
}

QString NetworkTask::fullRelativePath(const QString& relativePath) const
{
    return relativePath;
}

QHttpMultiPart* NetworkTask::createMultiPart() const
{
    return nullptr;
}

} // namespace orv
