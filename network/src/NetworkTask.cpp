#include "NetworkTask.h"

#include "NetworkTask_p.h"

#include <QCoreApplication>
#include <QDebug>

#include <typeinfo>
#include <utility>

namespace orv {

namespace {

// clazy:excludeall=non-pod-global-static
const QSet<QNetworkReply::NetworkError> DEFAULT_RECOVERABLE_NETWORK_ERRORS{
    QNetworkReply::ProxyTimeoutError, QNetworkReply::ServiceUnavailableError,
    QNetworkReply::TemporaryNetworkFailureError, QNetworkReply::TimeoutError,
    QNetworkReply::UnknownNetworkError};

} // namespace

NetworkTask::Private::Private(NetworkTask* task)
    : QObject(task)
    , q(task)
    , timer(new InactivityTimer([this] { onTimeout(); }, task))
    , recoverableNetworkErrors(DEFAULT_RECOVERABLE_NETWORK_ERRORS)
{
}

NetworkTask::Private::~Private()
{
    disposeReply(reply);
    delete timer;
}

quint64 NetworkTask::Private::enterPhase(Phase newPhase)
{
    phase = newPhase;
    return ++phaseSerial;
}

NetworkTask::NetworkTask(Priority priority, QObject* parent)
    : Task(parent)
    , d(new Private(this))
{
    setPriority(priority);
}

NetworkTask::NetworkTask(const NetworkRequest& request, Priority priority, QObject* parent)
    : NetworkTask(priority, parent)
{
    setRequest(request);
}

NetworkTask::NetworkTask(const QString& url, Priority priority, QObject* parent)
    : NetworkTask(priority, parent)
{
    setRequest(url, NetworkRequest::defaultContentType, NetworkRequest::Method::Get, false);
}

// The reply must go before the multipart content that it may still be reading, which is a child of the task.
NetworkTask::~NetworkTask()
{
    delete d;
}

NetworkRequest NetworkTask::request() const
{
    return d->request;
}

void NetworkTask::setRequest(const NetworkRequest& request)
{
    d->request = request;
}

void NetworkTask::setRequest(const QString& url, const QByteArray& acceptedContentTypes,
                             NetworkRequest::Method method, bool streaming)
{
    d->request.url = url;
    d->request.acceptedContentTypes = acceptedContentTypes;
    d->request.method = method;
    d->request.streaming = streaming;
}

std::chrono::milliseconds NetworkTask::timeout() const
{
    return d->timeout;
}

void NetworkTask::setTimeout(const std::chrono::milliseconds& timeout)
{
    d->timeout = timeout;
}

void NetworkTask::setTimeout(int milliseconds)
{
    setTimeout(std::chrono::milliseconds(milliseconds));
}

QByteArray NetworkTask::userAgent() const
{
    return d->userAgent.value_or(network::DEFAULT_USER_AGENT);
}

void NetworkTask::setUserAgent(const QByteArray& userAgent)
{
    d->userAgent = userAgent;
}

bool NetworkTask::hasOverriddenUserAgent() const
{
    return d->userAgent.has_value();
}

QByteArray NetworkTask::defaultUserAgent()
{
    return network::DEFAULT_USER_AGENT;
}

QHash<QNetworkRequest::Attribute, QVariant> NetworkTask::requestAttributes() const
{
    return d->requestAttributes;
}

void NetworkTask::setRequestAttributes(const QHash<QNetworkRequest::Attribute, QVariant>& attributes)
{
    d->requestAttributes = attributes;
}

void NetworkTask::setRequestAttribute(QNetworkRequest::Attribute attribute, const QVariant& value)
{
    d->requestAttributes.insert(attribute, value);
}

SslIgnorantNetworkAccessManager* NetworkTask::networkAccessManager() const
{
    return d->networkAccessManager;
}

void NetworkTask::setNetworkAccessManager(SslIgnorantNetworkAccessManager* manager)
{
    d->networkAccessManager = manager;
}

SslIgnorantNetworkAccessManager* NetworkTask::defaultNetworkAccessManager()
{
    static const QPointer<SslIgnorantNetworkAccessManager> manager(new SslIgnorantNetworkAccessManager(
        SslIgnorantNetworkAccessManager::SslMode::Verify, QCoreApplication::instance()));
    return manager;
}

bool NetworkTask::requiresAuthentication() const
{
    return d->requiresAuthentication;
}

void NetworkTask::setRequiresAuthentication(bool required)
{
    d->requiresAuthentication = required;
}

void NetworkTask::setAuthenticator(AbstractAuthenticator* authenticator)
{
    if (authenticator)
        setRequiresAuthentication(true);
    Authenticable::setAuthenticator(authenticator);
    d->onAuthenticatorReplaced();
}

NetworkTask::ErrorPolicy NetworkTask::replyErrorPolicy() const
{
    return d->replyErrorPolicy;
}

void NetworkTask::setReplyErrorPolicy(ErrorPolicy policy)
{
    d->replyErrorPolicy = policy;
}

NetworkTask::ErrorPolicy NetworkTask::responseErrorPolicy() const
{
    return d->responseErrorPolicy;
}

void NetworkTask::setResponseErrorPolicy(ErrorPolicy policy)
{
    d->responseErrorPolicy = policy;
}

void NetworkTask::setResponseHandler(HttpResponseStatusCode code, std::function<void()> handler)
{
    d->responseHandlers[code] = std::move(handler);
}

void NetworkTask::setResponseHandler(
    const QList<HttpResponseStatusCode>& codes,
    std::function<void()> handler) // NOLINT(performance-unnecessary-value-param)
{
    for (const auto code : codes)
        setResponseHandler(code, handler);
}

void NetworkTask::registerRecoverableNetworkErrors(const QSet<QNetworkReply::NetworkError>& errors)
{
    d->recoverableNetworkErrors.unite(errors);
}

void NetworkTask::unregisterRecoverableNetworkErrors(const QSet<QNetworkReply::NetworkError>& errors)
{
    d->recoverableNetworkErrors.subtract(errors);
}

HttpResponseStatusCode NetworkTask::httpResponseStatusCode() const
{
    return d->httpResponseStatusCode;
}

void NetworkTask::setHttpResponseStatusCode(HttpResponseStatusCode code)
{
    d->httpResponseStatusCode = code;
    setHttpResponseStatusCodeNumber(static_cast<int>(code));
}

int NetworkTask::httpResponseStatusCodeNumber() const
{
    return d->httpResponseStatusCodeNumber;
}

void NetworkTask::setHttpResponseStatusCodeNumber(int number)
{
    d->httpResponseStatusCodeNumber = number;
}

QNetworkReply::NetworkError NetworkTask::networkResponseError() const
{
    return d->networkResponseError;
}

void NetworkTask::setNetworkResponseError(QNetworkReply::NetworkError error)
{
    d->networkResponseError = error;
}

QString NetworkTask::networkResponseErrorMessage() const
{
    return d->networkResponseErrorMessage;
}

void NetworkTask::setNetworkResponseErrorMessage(const QString& message)
{
    d->networkResponseErrorMessage = message;
}

QNetworkReply* NetworkTask::networkReply()
{
    return d->reply;
}

const QNetworkReply* NetworkTask::networkReply() const
{
    return d->reply;
}

std::optional<QMetaObject::Connection> NetworkTask::networkConnection()
{
    return d->networkConnection;
}

void NetworkTask::setNetworkConnection(QMetaObject::Connection connection)
{
    resetNetworkConnection();
    d->networkConnection = std::move(connection);
}

QString NetworkTask::errorMessage() const
{
    return {};
}

QDebug operator<<(QDebug debug, const NetworkTask& task)
{
    debug.nospace() << typeid(task).name() << "(\n  request=" << task.request()
                    << "\n  dataReceived=" << task.data()
                    << " networkResponseError=" << task.networkResponseError()
                    << " networkResponseErrorMessage=" << task.networkResponseErrorMessage()
                    << " httpResponseStatusCode=" << task.httpResponseStatusCode()
                    << " httpResponseStatusCodeNumber=" << task.httpResponseStatusCodeNumber() << ")";
    return debug;
}

} // namespace orv
