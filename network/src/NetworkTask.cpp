#include "NetworkTask.h"

#include "NetworkQueue.h"
#include "NetworkTask_p.h"

#include <QCoreApplication>
#include <QDebug>

#include <array>
#include <atomic>
#include <cstddef>
#include <memory>
#include <typeinfo>
#include <utility>

namespace orv {

namespace {

// clazy:excludeall=non-pod-global-static
const QSet<QNetworkReply::NetworkError> defaultRecoverableErrors{
    QNetworkReply::ProxyTimeoutError, QNetworkReply::ServiceUnavailableError,
    QNetworkReply::TemporaryNetworkFailureError, QNetworkReply::TimeoutError,
    QNetworkReply::UnknownNetworkError};

/// The manager of the process. It is deleted with the application object, its parent; a program may make
/// another application object later, and then gets another manager.
class DefaultManager : public SslIgnorantNetworkAccessManager
{
public:
    static DefaultManager* instance()
    {
        auto* manager = current.load();
        auto* application = QCoreApplication::instance();
        if (manager || (wasDeleted && !application))
            return manager;
        auto made = std::unique_ptr<DefaultManager>(new DefaultManager(application));
        // Another thread may have been faster.
        return current.compare_exchange_strong(manager, made.get()) ? made.release() : manager;
    }

    ~DefaultManager() override
    {
        auto* self = this;
        if (current.compare_exchange_strong(self, nullptr))
            wasDeleted = true;
    }

private:
    explicit DefaultManager(QObject* parent)
        : SslIgnorantNetworkAccessManager(SslMode::Verify, parent)
    {
        setConnectionBufferingEnabled(true);
    }

    static inline std::atomic<DefaultManager*> current = nullptr;
    static inline std::atomic<bool> wasDeleted = false;
};

} // namespace

NetworkTask::Private::Private(NetworkTask* task)
    : q(task)
    , recoverableNetworkErrors(defaultRecoverableErrors)
    , timer(task, [this] { onTimeout(); })
{
}

NetworkTask::Private::~Private() = default;

// docs/architecture.md shows the same as a picture.
bool NetworkTask::Private::mayFollow(Phase from, Phase to)
{
    using enum Phase;
    constexpr auto bit = [](Phase single) { return 1U << static_cast<unsigned>(single); };
    constexpr auto any = [bit](auto... phases) { return (bit(phases) | ...); };
    static constexpr std::array successors{
        /* Idle       */ any(Delayed, LoggingIn, Retrying, Ended),
        /* Delayed    */ any(Idle, Sending, LoggingIn, Retrying, Ended),
        /* LoggingIn  */ any(Idle, Sending, LoggingIn, Retrying, Ended),
        /* Sending    */ any(Idle, Exchanging, Deciding, LoggingIn, Retrying, Ended),
        /* Exchanging */ any(Idle, Deciding, LoggingIn, Retrying, Ended),
        /* Deciding   */ any(Idle, Sending, LoggingIn, Retrying, Ended),
        /* Retrying   */ any(Idle, LoggingIn, Retrying, Ended),
        /* Ended      */ 0U,
    };
    return successors.at(static_cast<std::size_t>(from)) & bit(to);
}

void NetworkTask::Private::enterPhase(Phase next)
{
    Q_ASSERT_X(mayFollow(phase, next), "NetworkTask", "unexpected transition");
    const bool keepsExchange = next == Phase::Exchanging || next == Phase::Deciding;
    phase = next;
    calls.supersede();
    pending.reset();
    isWaitOver = false;
    if (exchange && !keepsExchange)
        exchange->giveUp();
}

// A caller that has put the task back with setIdle() has given up its attempt.
bool NetworkTask::Private::isAttemptUnderWay() const
{
    return q->isRunning() && phase != Phase::Idle && phase != Phase::Deciding;
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

// The reply has to be deleted before the multipart content that it may still be reading, which is a child of
// the task.
NetworkTask::~NetworkTask()
{
    d->exchange.reset();
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
    return DefaultManager::instance();
}

bool NetworkTask::requiresAuthentication() const
{
    return d->requiresAuthentication;
}

void NetworkTask::setRequiresAuthentication(bool required)
{
    d->requiresAuthentication = required;
    NetworkQueue::reconsiderTask(this);
}

void NetworkTask::setAuthenticator(AbstractAuthenticator* authenticator)
{
    if (authenticator)
        setRequiresAuthentication(true);
    const auto* previous = this->authenticator();
    Authenticable::setAuthenticator(authenticator);
    if (previous == authenticator)
        return;
    d->wasHeldForLogin = false;
    NetworkQueue::reconsiderTask(this);
    d->onAuthenticatorReplaced();
}

int NetworkTask::maxTokenRefusals() const
{
    return d->maxTokenRefusals;
}

void NetworkTask::setMaxTokenRefusals(int refusals)
{
    d->maxTokenRefusals = refusals;
}

bool NetworkTask::usesQueueAuthenticator() const
{
    return d->usesQueueAuthenticator;
}

void NetworkTask::setUsesQueueAuthenticator(bool uses)
{
    d->usesQueueAuthenticator = uses;
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
    return d->exchange ? d->exchange->reply() : nullptr;
}

const QNetworkReply* NetworkTask::networkReply() const
{
    return d->exchange ? d->exchange->reply() : nullptr;
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
    debug.nospace() << typeid(task).name() << "(\n  request=" << task.request() << "\n  dataReceived="
                    << (task.isContentLogged() ? task.data() : QByteArrayLiteral("******"))
                    << " networkResponseError=" << task.networkResponseError()
                    << " networkResponseErrorMessage=" << task.networkResponseErrorMessage()
                    << " httpResponseStatusCode=" << task.httpResponseStatusCode()
                    << " httpResponseStatusCodeNumber=" << task.httpResponseStatusCodeNumber() << ")";
    return debug;
}

} // namespace orv
