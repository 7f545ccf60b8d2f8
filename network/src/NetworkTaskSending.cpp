#include "NetworkLog_p.h"
#include "NetworkRequest_p.h"
#include "NetworkTask_p.h"

#include <Settings.h>

#include <QDebug>
#include <QJsonDocument>
#include <QJsonObject>

#include <algorithm>
#include <limits>

namespace orv {

namespace {

// Sets a header field as a raw one, the only kind that Qt sends when it is empty. A null value would remove
// the field, and an empty User-Agent would be replaced by Qt's own; white space is an empty value too (RFC
// 9110, 5.5).
void setField(QNetworkRequest& request, const QByteArray& name, const QByteArray& value)
{
    if (!value.isEmpty())
        request.setRawHeader(name, value);
    else
        request.setRawHeader(name, name.compare("User-Agent", Qt::CaseInsensitive) == 0 ? " " : "");
}

// Content always goes with its type, be it an empty one. A type among the raw headers stands in for one that
// is not given, and multipart content brings its own.
void setContentType(QNetworkRequest& request, const QByteArray& contentType, bool isMultiPart)
{
    static const auto name = QByteArrayLiteral("Content-Type");
    if (!contentType.isEmpty() || !(isMultiPart || request.hasRawHeader(name)))
        setField(request, name, contentType);
}

// Qt writes names and values to the wire as they are, so these bytes would begin another field (RFC
// 9110, 5.5).
bool breaksFields(const QByteArray& text)
{
    return std::any_of(text.begin(), text.end(), [](char c) { return c == '\r' || c == '\n' || c == '\0'; });
}

// The name of a field that must not be sent, made printable; empty when all of them may.
QString unsafeField(const QNetworkRequest& request)
{
    const auto names = request.rawHeaderList();
    for (const auto& name : names) {
        if (breaksFields(name))
            return QString::fromLatin1(name.toPercentEncoding(" !#$%&'*+^`|~:"));
        if (breaksFields(request.rawHeader(name)))
            return QString::fromLatin1(name);
    }
    return {};
}

std::chrono::milliseconds waitingTime(std::chrono::seconds delay)
{
    using namespace std::chrono;
    constexpr auto longest = duration_cast<seconds>(milliseconds(std::numeric_limits<int>::max()));
    return std::clamp(delay, seconds(0), longest);
}

} // namespace

void NetworkTask::exec()
{
    if (isFinished()) {
        qCWarning(networkLog) << "Unable to continue, the task is finished";
        return;
    }
    const QPointer<Private> guard(d);
    setRunning();
    if (!guard || isFinished())
        return;
    setNetworkResponseError(QNetworkReply::NoError);
    setNetworkResponseErrorMessage({});
    setHttpResponseStatusCode(HttpResponseStatusCode::OK);
    const bool isLoginUnderWay = requiresAuthentication() && authenticator() &&
                                 authenticator()->state() == AbstractAuthenticator::State::Authenticating;
    if (isLoginUnderWay)
        d->awaitLogin();
    else
        d->scheduleSending();
}

// The task holds no slot of its queue while it waits for the delay.
void NetworkTask::Private::scheduleSending()
{
    const auto delay = waitingTime(q->retryDelay());
    const auto serial = enterPhase(Phase::Scheduled);
    isSentAgain = false;
    QTimer::singleShot(delay, this, [this, serial] {
        if (!isCurrent(serial))
            return;
        const QPointer<Private> guard(this);
        if (q->isPaused())
            q->resume();
        if (guard && isCurrent(serial))
            sendRequest();
    });
    if (delay > std::chrono::milliseconds(0))
        q->pause();
}

void NetworkTask::Private::sendRequest()
{
    if (q->isFinished()) {
        qCWarning(networkLog) << "Task is already finished";
        return;
    }
    QNetworkRequest networkRequest(QUrl(request.url, QUrl::TolerantMode));
    networkRequest.setAttribute(QNetworkRequest::RedirectPolicyAttribute,
                                QNetworkRequest::ManualRedirectPolicy);
    // While an HTTP/2 server is leaving a connection that is still in use (GOAWAY), Qt 6.4 forgets the
    // requests made to it: they are neither sent nor failed, and wait for the time-out.
    networkRequest.setAttribute(QNetworkRequest::Http2AllowedAttribute, false);
    if (!request.acceptedContentTypes.isEmpty())
        setField(networkRequest, QByteArrayLiteral("Accept"), request.acceptedContentTypes);
    setField(networkRequest, QByteArrayLiteral("User-Agent"), q->userAgent());
    for (auto header = request.rawHeaders.cbegin(); header != request.rawHeaders.cend(); ++header)
        setField(networkRequest, header.key(), header.value());
    if (requiresAuthentication && !q->authenticator()) {
        q->finish(Error(ErrorCode::AuthenticationFailed, NetworkTask::tr("Authentication failed")));
        return;
    }
    const QPointer<Private> guard(this);
    if (requiresAuthentication && !q->doAuthenticateRequest(&networkRequest))
        return;
    if (!guard || q->isFinished())
        return;
    for (auto attribute = requestAttributes.cbegin(); attribute != requestAttributes.cend(); ++attribute)
        networkRequest.setAttribute(attribute.key(), attribute.value());
    if (isSentAgain)
        networkRequest.setAttribute(QNetworkRequest::Http2AllowedAttribute, false);
    const auto unsafe = breaksFields(request.postDataContentType) ? QStringLiteral("Content-Type")
                                                                  : unsafeField(networkRequest);
    if (!unsafe.isEmpty()) {
        q->finish(Error(
            ErrorCode::InvalidArgument,
            NetworkTask::tr("The header field \"%1\" holds a line break or a NUL character").arg(unsafe)));
        return;
    }
    executeRequest(networkRequest);
}

bool NetworkTask::doAuthenticateRequest(QNetworkRequest* request)
{
    if (!authenticator() || !request)
        return false;
    const auto token = authenticator()->token().toLatin1();
    if (token.isEmpty()) {
        qCInfo(networkLog) << "No token, auth required";
        d->onAuthenticationRequired();
        return false;
    }
    request->setRawHeader(QByteArrayLiteral("Authorization"), "Bearer " + token);
    return true;
}

void NetworkTask::Private::executeRequest(QNetworkRequest networkRequest)
{
    qCInfo(networkLog) << "Sending request:" << networkRequest.url() << methodName(request.method)
                       << "acceptedContentTypes:" << request.acceptedContentTypes << "for task" << q->name();
    const QPointer<Private> guard(this);
    QHttpMultiPart* content = nullptr;
    if (request.method != NetworkRequest::Method::Head && request.method != NetworkRequest::Method::Get)
        content = q->createMultiPart();
    if (!guard || q->isFinished()) {
        delete content;
        return;
    }
    SslIgnorantNetworkAccessManager* manager = networkAccessManager;
    if (!manager)
        manager = defaultNetworkAccessManager();
    if (!manager) {
        qCWarning(networkLog) << "The network access manager is null";
        delete content;
        return;
    }
    if (content)
        content->setParent(q);
    QNetworkReply* newReply = dispatch(manager, networkRequest, content);
    q->setNetworkReply(newReply);
    replyContent = content;
    awaitCompletion(manager);
}

QNetworkReply* NetworkTask::Private::dispatch(SslIgnorantNetworkAccessManager* manager,
                                              QNetworkRequest& networkRequest, QHttpMultiPart* content)
{
    switch (request.method) {
    case NetworkRequest::Method::Head:
        return manager->head(networkRequest);
    case NetworkRequest::Method::Get:
        break;
    case NetworkRequest::Method::Post:
    case NetworkRequest::Method::Put:
        return dispatchContent(manager, networkRequest, content);
    case NetworkRequest::Method::Delete:
        if (content)
            qCInfo(networkLog) << "Using multipart message:" << content;
        return manager->deleteResource(networkRequest, content);
    }
    return manager->get(networkRequest);
}

QNetworkReply* NetworkTask::Private::dispatchContent(SslIgnorantNetworkAccessManager* manager,
                                                     QNetworkRequest& networkRequest, QHttpMultiPart* content)
{
    const bool isPost = request.method == NetworkRequest::Method::Post;
    if (!request.postData.isEmpty() && !(isPost && content)) {
        qCInfo(networkLog).nospace() << "Using dataContentType " << request.postDataContentType << " ("
                                     << request.postData.size()
                                     << "bytes): " << request.maskedData().left(2000) << Qt::endl;
    }
    setContentType(networkRequest, request.postDataContentType, isPost && content);
    if (!isPost)
        return manager->put(networkRequest, request.postData);
    if (!content)
        return manager->post(networkRequest, request.postData);
    qCInfo(networkLog) << "Using multipart message:" << content;
    return manager->post(networkRequest, content);
}

// The completion comes through the event loop, and one that is on its way stays so after a disconnect: it is
// only judged if it is the one that is awaited when it arrives.
void NetworkTask::Private::awaitCompletion(SslIgnorantNetworkAccessManager* manager)
{
    const auto completion = ++lastCompletion;
    q->setNetworkConnection(connect(
        reply, &QNetworkReply::finished, this, [this, completion] { onReplyFinished(completion); },
        Qt::QueuedConnection));
    managerConnection = connect(manager, &QObject::destroyed, this, &Private::onTransportLost);
    awaitedCompletion = completion;
    enterPhase(Phase::Exchange);
    connect(q, &ErrorCancelable::canceled, this, &Private::onCanceled, Qt::UniqueConnection);
    startTimer();
}

void NetworkTask::Private::startTimer()
{
    const auto milliseconds = static_cast<int>(timeout.count());
    timer->watch(as::value(QStringLiteral("Network/Timeout"), milliseconds).toInt());
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
