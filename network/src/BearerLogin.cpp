#include "BearerLogin.h"

#include "CurrentException_p.h"
#include "FieldSyntax_p.h"
#include "HttpResponseStatusCodesUtils.h"
#include "NetworkQueue.h"
#include "NetworkTask.h"
#include "SslIgnorantNetworkAccessManager.h"
#include "TimerInterval_p.h"

#include <QCryptographicHash>
#include <QDataStream>
#include <QDeadlineTimer>
#include <QJsonDocument>
#include <QJsonObject>
#include <QPointer>
#include <QTimer>
#include <QUrl>

#include <algorithm>
#include <cmath>
#include <utility>

namespace orv {

namespace {

using namespace std::chrono_literals;
using std::chrono::milliseconds;

constexpr milliseconds longestLifetime = 10 * 365 * 24h;
constexpr std::chrono::seconds longestDelay = 20 * 24h; // a timer can wait
constexpr milliseconds shortestRefreshedLifetime = 1s;

// Tasks send the token as Latin-1.
bool isSendable(const QString& token)
{
    const bool isLatin1 =
        std::all_of(token.begin(), token.end(), [](QChar c) { return c.unicode() <= 0xff; });
    return isLatin1 && isFieldValue(token.toLatin1());
}

// To recognize credentials without keeping them.
QByteArray fingerprint(const NetworkRequest& request)
{
    QByteArray bytes;
    QDataStream stream(&bytes, QIODevice::WriteOnly);
    stream << request.url << static_cast<int>(request.method) << request.rawHeaders << request.postData;
    return QCryptographicHash::hash(bytes, QCryptographicHash::Sha256);
}

// JSON has numbers, but some servers write them as strings.
std::optional<milliseconds> lifetimeFrom(const QJsonValue& value)
{
    const double seconds = value.isString() ? value.toString().toDouble() : value.toDouble();
    constexpr double longest = std::chrono::duration<double>(longestLifetime).count();
    if (std::isnan(seconds) || seconds <= 0)
        return std::nullopt;
    return milliseconds(static_cast<qint64>(std::min(seconds, longest) * 1000));
}

Error noToken()
{
    return Error(ErrorCode::AuthenticationFailed, BearerLogin::tr("The server's answer contains no token"));
}

// Calls a function of the program. It may replace itself, so it is a copy, like its arguments.
template <typename T, typename Function, typename... Arguments>
Result<T> evaluate(Function function, Arguments... arguments)
{
    try {
        return function(arguments...);
    } catch (...) {
        return errorOfCurrentException();
    }
}

} // namespace

class BearerLogin::Private
{
public:
    /// What a request for a token sends.
    enum class Grant { Credentials, RefreshToken };

    explicit Private(BearerLogin* login);

    QObject* enterStep();
    void schedule(milliseconds delay);
    void begin();
    void request(Grant grant);
    Result<NetworkRequest> makeRequest(Grant grant) const;
    void send(Grant grant, NetworkRequest request);
    void onStarted(Grant grant);
    void onFinished(Grant grant);
    void onTimeout(Grant grant);
    void judge(Grant grant, const Failure& failure);
    void read(Grant grant, const QByteArray& content);
    void succeed(Grant grant, Tokens issued);
    void fail(Grant grant, Error code, const orv::Error& error);
    void cancel();

    void store(const Tokens& issued);
    void dropToken();
    void forget();
    void startRefreshTimer();
    void onRefreshTimer();

    BearerLogin* const q;

    // Settings
    LoginRequest loginRequest;
    RefreshRequest refreshRequest;
    TokenReader reader = tokensFromJson;
    FailureClassifier classifier = classifyFailure;
    milliseconds refreshMargin = 30s;
    milliseconds timeout = 60s;
    QPointer<NetworkQueue> queue;
    QPointer<SslIgnorantNetworkAccessManager> manager;

    // What the server has issued
    QString token;
    QString refreshToken;
    QDeadlineTimer expiry{QDeadlineTimer::Forever};
    QDeadlineTimer refreshDue{QDeadlineTimer::Forever};
    QTimer* const refreshTimer;

    // The login or refresh in progress, if there is one: the context of its timers and connections, and the
    // owner of its task.
    std::unique_ptr<QObject> pending;
    NetworkTask* task = nullptr; // only while it is awaited

    QByteArray sentCredentials; // fingerprints
    QByteArray refusedCredentials;
    orv::Error refusal;
    bool hasRefreshFailed = false; // since the last success
    int retriesOfLastLogin = 0;
};

BearerLogin::Private::Private(BearerLogin* login)
    : q(login)
    , refreshTimer(new QTimer(login))
{
    refreshTimer->setSingleShot(true);
    connect(refreshTimer, &QTimer::timeout, q, [this] { onRefreshTimer(); });
}

// Whatever is pending of an earlier step ends. The new one ends with the login or with the next step, which
// a function of the program may bring about.
QObject* BearerLogin::Private::enterStep()
{
    task = nullptr;
    pending = std::make_unique<QObject>(q);
    return pending.get();
}

void BearerLogin::Private::schedule(milliseconds delay)
{
    QTimer::singleShot(timerInterval(delay), enterStep(), [this] { begin(); });
}

void BearerLogin::Private::begin()
{
    const bool canRefresh = refreshRequest && !refreshToken.isEmpty();
    const bool isRefreshing = canRefresh && !(hasRefreshFailed && loginRequest);
    request(isRefreshing ? Grant::RefreshToken : Grant::Credentials);
}

void BearerLogin::Private::request(Grant grant)
{
    const QPointer<QObject> step = enterStep();
    const auto made = makeRequest(grant);
    if (!step)
        return;
    if (made.hasError()) {
        fail(grant, Error::Failed, made.error());
        return;
    }
    if (grant == Grant::Credentials) {
        sentCredentials = fingerprint(made.value());
        if (sentCredentials == refusedCredentials) {
            fail(grant, Error::InvalidCredentials, refusal);
            return;
        }
    }
    send(grant, made.value());
}

Result<NetworkRequest> BearerLogin::Private::makeRequest(Grant grant) const
{
    if (grant == Grant::RefreshToken)
        return evaluate<NetworkRequest>(refreshRequest, refreshToken);
    if (loginRequest)
        return evaluate<NetworkRequest>(loginRequest);
    return orv::Error(ErrorCode::AuthenticationFailed,
                      BearerLogin::tr("There are no credentials to log in with"));
}

void BearerLogin::Private::send(Grant grant, NetworkRequest request)
{
    auto* const context = pending.get();
    request.setMaskingFunction([](const QByteArray&) { return QByteArrayLiteral("******"); });
    task = new NetworkTask(request, NetworkTask::Priority::High, context);
    task->setName(QStringLiteral("login"));
    task->setContentLogged(false);
    task->setUsesQueueAuthenticator(false);
    task->setRetriesEnabled(false); // the waiting tasks ask for another login
    task->setNetworkAccessManager(manager);
    if (timeout > 0ms)
        task->setTimeout(-1);
    connect(task, &NetworkTask::started, context, [this, grant] { onStarted(grant); });
    connect(task, &NetworkTask::finished, context, [this, grant] { onFinished(grant); });
    connect(task, &QObject::destroyed, context, [this](QObject* destroyed) {
        destroyed->setParent(nullptr); // or it would be deleted again, with the context
        cancel();
    });
    if (!queue) {
        task->exec();
        return;
    }
    connect(queue, &QObject::destroyed, context, [this] {
        if (!task->isRunning()) // a running task does not need it any more
            cancel();
    });
    queue->append(task);
}

void BearerLogin::Private::onStarted(Grant grant)
{
    if (timeout > 0ms)
        QTimer::singleShot(timerInterval(timeout), pending.get(), [this, grant] { onTimeout(grant); });
}

void BearerLogin::Private::onFinished(Grant grant)
{
    const auto error = task->error();
    const auto content = task->data();
    task->setParent(q); // its queue still uses it
    task->deleteLater();
    enterStep();
    const auto status = httpResponseStatusCode(error);
    if (!error.hasError())
        read(grant, content);
    else if (error.errorCode() == ErrorCode::Canceled)
        cancel();
    else
        judge(grant, {status == HttpResponseStatusCode::OK ? 0 : static_cast<int>(status), content, error});
}

void BearerLogin::Private::onTimeout(Grant grant)
{
    enterStep();
    constexpr auto status = HttpResponseStatusCode::RequestTimeout;
    const auto error = networkError(status, NetworkTask::tr("Network timeout"));
    judge(grant, {static_cast<int>(status), {}, error});
}

void BearerLogin::Private::judge(Grant grant, const Failure& failure)
{
    const QPointer<QObject> step = pending.get();
    const auto judged = evaluate<Error>(classifier, failure);
    if (!step)
        return;
    if (judged.hasError()) {
        fail(grant, Error::Failed, judged.error());
        return;
    }
    // The text of a status quotes the URL.
    const bool isTimeout = failure.status == static_cast<int>(HttpResponseStatusCode::RequestTimeout);
    const auto reason = failure.status > 0 && !isTimeout ? QStringLiteral("HTTP %1").arg(failure.status)
                                                         : failure.error.errorMessage();
    const auto text = judged.value() == Error::InvalidCredentials
                          ? BearerLogin::tr("The server refused the credentials")
                          : BearerLogin::tr("The login failed: %1").arg(reason);
    fail(grant, judged.value(),
         orv::Error(ErrorCode::AuthenticationFailed, failure.error.errorDetails(), text));
}

void BearerLogin::Private::read(Grant grant, const QByteArray& content)
{
    const QPointer<QObject> step = pending.get();
    auto issued = evaluate<Tokens>(reader, content);
    if (!step)
        return;
    if (issued.hasError())
        fail(grant, Error::Failed, issued.error());
    else if (issued.value().token.isEmpty())
        fail(grant, Error::Failed, noToken());
    else if (!isSendable(issued.value().token))
        fail(grant, Error::Failed,
             orv::Error(ErrorCode::AuthenticationFailed,
                        BearerLogin::tr("The token contains characters that cannot be sent")));
    else
        succeed(grant, std::move(issued).value());
}

void BearerLogin::Private::succeed(Grant grant, Tokens issued)
{
    if (issued.expiresIn && *issued.expiresIn <= 0ms)
        issued.expiresIn.reset();
    if (grant == Grant::RefreshToken && issued.refreshToken.isEmpty())
        issued.refreshToken = refreshToken; // it stays valid (RFC 6749, 6)
    forget();
    store(issued);
    pending.reset();
    q->setError({});
    q->setState(State::Authenticated);
    Q_EMIT q->authenticated();
}

void BearerLogin::Private::fail(Grant grant, Error code, const orv::Error& error)
{
    if (grant == Grant::RefreshToken) {
        hasRefreshFailed = true;
        if (code != Error::TemporaryFailure)
            refreshToken.clear();
    } else if (code == Error::InvalidCredentials) {
        refusedCredentials = sentCredentials;
        refusal = error;
    }
    const bool isAwaited = q->state() == State::Authenticating;
    if (isAwaited && grant == Grant::RefreshToken && loginRequest) {
        request(Grant::Credentials);
        return;
    }
    pending.reset();
    if (!isAwaited)
        return;
    q->setError(error);
    q->setState(State::Failed);
    Q_EMIT q->error(code);
}

void BearerLogin::Private::cancel()
{
    pending.reset();
    if (q->state() != State::Authenticating)
        return;
    q->setError(orv::Error(ErrorCode::Canceled, BearerLogin::tr("The login was canceled")));
    q->setState(State::Idle);
    Q_EMIT q->error(Error::Canceled);
}

void BearerLogin::Private::store(const Tokens& issued)
{
    dropToken();
    token = issued.token;
    refreshToken = issued.refreshToken;
    if (!issued.expiresIn)
        return;
    const auto lifetime = std::min(*issued.expiresIn, longestLifetime);
    expiry = QDeadlineTimer(lifetime);
    if (refreshMargin <= 0ms || lifetime < shortestRefreshedLifetime)
        return;
    refreshDue = QDeadlineTimer(std::max(lifetime - refreshMargin, lifetime / 2));
    startRefreshTimer();
}

void BearerLogin::Private::dropToken()
{
    token.clear();
    expiry = QDeadlineTimer(QDeadlineTimer::Forever);
    refreshTimer->stop();
}

// Forgets what has failed.
void BearerLogin::Private::forget()
{
    hasRefreshFailed = false;
    refusedCredentials.clear();
}

void BearerLogin::Private::startRefreshTimer()
{
    refreshTimer->start(timerInterval(milliseconds(refreshDue.remainingTime())));
}

void BearerLogin::Private::onRefreshTimer()
{
    if (!refreshDue.hasExpired()) // it is further away than a timer can wait
        startRefreshTimer();
    else if (!pending)
        begin();
}

BearerLogin::BearerLogin(QObject* parent)
    : AbstractAuthenticator(parent)
    , d(std::make_unique<Private>(this))
{
    setTokenLogged(false);
}

BearerLogin::BearerLogin(const NetworkRequest& loginRequest, QObject* parent)
    : BearerLogin(parent)
{
    setLoginRequest(loginRequest);
}

BearerLogin::~BearerLogin() = default;

NetworkRequest BearerLogin::jsonRequest(const QString& url, const QJsonObject& content)
{
    NetworkRequest request(url, NetworkRequest::jsonContentType, NetworkRequest::Method::Post);
    request.postDataContentType = NetworkRequest::jsonContentType;
    request.postData = QJsonDocument(content).toJson(QJsonDocument::Compact);
    return request;
}

NetworkRequest BearerLogin::formRequest(const QString& url, const QList<std::pair<QString, QString>>& fields)
{
    NetworkRequest request(url, NetworkRequest::jsonContentType, NetworkRequest::Method::Post);
    request.postDataContentType = QByteArrayLiteral("application/x-www-form-urlencoded");
    for (const auto& [name, value] : fields) {
        if (!request.postData.isEmpty())
            request.postData += '&';
        request.postData += QUrl::toPercentEncoding(name) + '=' + QUrl::toPercentEncoding(value);
    }
    return request;
}

void BearerLogin::setLoginRequest(const NetworkRequest& request)
{
    setLoginRequest([request] { return request; });
}

void BearerLogin::setLoginRequest(LoginRequest request)
{
    d->loginRequest = std::move(request);
    d->forget();
}

void BearerLogin::setRefreshRequest(RefreshRequest request)
{
    d->refreshRequest = std::move(request);
}

void BearerLogin::setTokenReader(TokenReader reader)
{
    d->reader = reader ? std::move(reader) : tokensFromJson;
}

Result<BearerLogin::Tokens> BearerLogin::tokensFromJson(const QByteArray& content)
{
    const auto object = QJsonDocument::fromJson(content).object();
    Tokens tokens;
    tokens.token = object.value(QLatin1String("access_token")).toString();
    if (tokens.token.isEmpty())
        tokens.token = object.value(QLatin1String("token")).toString();
    if (tokens.token.isEmpty())
        return noToken().ecatch(Q_FUNC_INFO, __FILE__, __LINE__);
    tokens.refreshToken = object.value(QLatin1String("refresh_token")).toString();
    tokens.expiresIn = lifetimeFrom(object.value(QLatin1String("expires_in")));
    return tokens;
}

void BearerLogin::setFailureClassifier(FailureClassifier classifier)
{
    d->classifier = classifier ? std::move(classifier) : classifyFailure;
}

AbstractAuthenticator::Error BearerLogin::classifyFailure(const Failure& failure)
{
    const int status = failure.status;
    if (status == 400 || status == 401 || status == 403)
        return Error::InvalidCredentials;
    const bool hasTransportFailed = status == 0 && failure.error.errorCode() == ErrorCode::Network;
    if (hasTransportFailed || status == 408 || status == 429 || status >= 500)
        return Error::TemporaryFailure;
    return Error::Failed;
}

milliseconds BearerLogin::refreshMargin() const
{
    return d->refreshMargin;
}

void BearerLogin::setRefreshMargin(milliseconds margin)
{
    d->refreshMargin = margin;
}

milliseconds BearerLogin::timeout() const
{
    return d->timeout;
}

void BearerLogin::setTimeout(milliseconds timeout)
{
    d->timeout = timeout;
}

NetworkQueue* BearerLogin::queue() const
{
    return d->queue;
}

void BearerLogin::setQueue(NetworkQueue* queue)
{
    d->queue = queue;
}

SslIgnorantNetworkAccessManager* BearerLogin::networkAccessManager() const
{
    return d->manager;
}

void BearerLogin::setNetworkAccessManager(SslIgnorantNetworkAccessManager* manager)
{
    d->manager = manager;
}

QString BearerLogin::token()
{
    if (d->expiry.hasExpired())
        d->dropToken();
    return d->token;
}

BearerLogin::Tokens BearerLogin::tokens()
{
    Tokens held{token(), d->refreshToken, std::nullopt};
    if (!d->expiry.isForever())
        held.expiresIn = milliseconds(d->expiry.remainingTime());
    return held;
}

orv::Error BearerLogin::setTokens(const Tokens& tokens)
{
    if (!isSendable(tokens.token)) {
        return orv::Error(ErrorCode::InvalidArgument, tr("The token contains characters that cannot be sent"))
            .ecatch(Q_FUNC_INFO, __FILE__, __LINE__);
    }
    const bool isExpired = tokens.expiresIn && *tokens.expiresIn <= 0ms;
    d->pending.reset();
    d->forget();
    d->store(isExpired ? Tokens{{}, tokens.refreshToken, {}} : tokens);
    if (!d->token.isEmpty()) {
        setError({});
        setState(State::Authenticated);
        Q_EMIT authenticated();
    } else if (state() == State::Authenticating) {
        d->schedule(0ms);
    } else {
        setState(State::Idle);
    }
    return {};
}

void BearerLogin::logOut()
{
    d->forget();
    d->store({});
    if (state() != State::Authenticating)
        setState(State::Idle);
    d->cancel();
}

void BearerLogin::cancel()
{
    d->cancel();
}

bool BearerLogin::authenticate()
{
    const bool isRetry = retriesCount() > d->retriesOfLastLogin;
    d->retriesOfLastLogin = retriesCount();
    d->dropToken();
    if (!d->pending) // else a refresh is under way
        d->schedule(isRetry ? std::min(retryDelay(), longestDelay) : 0s);
    return true;
}

} // namespace orv
