#include "JsonLogin.h"

#include <QJsonDocument>
#include <QJsonObject>

#include <utility>

using namespace Qt::StringLiterals;

namespace fetch {

namespace {

using orv::HttpResponseStatusCode;
using orv::NetworkRequest;

NetworkRequest loginRequest(const JsonLogin::Settings& settings)
{
    NetworkRequest request(settings.url, NetworkRequest::jsonContentType, NetworkRequest::Method::Post);
    request.postDataContentType = NetworkRequest::jsonContentType;
    request.postData = settings.credentials;
    request.setMaskingFunction([](const QByteArray&) { return QByteArray("******"); });
    return request;
}

// Whether the failure may be transient, so that another attempt may succeed.
bool isTemporary(const orv::Error& error)
{
    const auto status = orv::httpResponseStatusCode(error);
    return status == HttpResponseStatusCode::OK || status == HttpResponseStatusCode::RequestTimeout ||
           status == HttpResponseStatusCode::TooManyRequests ||
           status >= HttpResponseStatusCode::InternalServerError;
}

bool isRefusal(const orv::Error& error)
{
    const auto status = orv::httpResponseStatusCode(error);
    return status == HttpResponseStatusCode::Unauthorized || status == HttpResponseStatusCode::Forbidden;
}

QString failureText(const orv::Error& error)
{
    return u"the login failed: %1"_s.arg(error.errorMessage());
}

} // namespace

JsonLogin::JsonLogin(Settings settings, orv::SslIgnorantNetworkAccessManager* manager, QObject* parent)
    : AbstractAuthenticator(parent)
    , m_settings(std::move(settings))
    , m_manager(manager)
    , m_token(m_settings.token)
{
    m_timer.setSingleShot(true);
    connect(&m_timer, &QTimer::timeout, this, &JsonLogin::begin);
}

JsonLogin::~JsonLogin() = default;

void JsonLogin::refuse(const QString& token)
{
    if (token == m_token)
        m_token.clear();
}

bool JsonLogin::authenticate()
{
    m_timer.start(m_token.isEmpty() ? retryDelay() : std::chrono::seconds(0));
    return true;
}

void JsonLogin::begin()
{
    if (!m_token.isEmpty())
        succeed(m_token);
    else if (m_settings.url.isEmpty())
        fail(Error::InvalidCredentials, u"the server refused the token"_s);
    else if (m_lastFailure)
        fail(*m_lastFailure, authenticationError().errorMessage());
    else
        send();
}

void JsonLogin::send()
{
    m_task = std::make_unique<orv::NetworkTask>(loginRequest(m_settings), orv::NetworkTask::Priority::High);
    m_task->setName(u"login"_s);
    m_task->setNetworkAccessManager(m_manager);
    m_task->setMaxRetriesCount(0); // this class retries instead, since tasks do not retry after a 500
    if (m_settings.timeout)
        m_task->setTimeout(*m_settings.timeout);
    connect(m_task.get(), &orv::NetworkTask::finished, this, &JsonLogin::onAnswered);
    m_task->exec();
}

void JsonLogin::onAnswered()
{
    const auto error = m_task->error();
    const auto answer = m_task->data();
    m_task.release()->deleteLater();
    const auto token = QJsonDocument::fromJson(answer).object().value("token"_L1).toString();
    if (!error.hasError() && !token.isEmpty())
        succeed(token);
    else if (error.hasError() && isTemporary(error))
        retry(error);
    else if (isRefusal(error))
        failForGood(Error::InvalidCredentials, u"the server refused the credentials"_s);
    else
        failForGood(Error::Failed, error.hasError() ? failureText(error) : u"the login gave no token"_s);
}

void JsonLogin::retry(const orv::Error& error)
{
    if (!canRetry()) {
        fail(Error::TemporaryFailure, failureText(error));
        return;
    }
    incrementRetries();
    m_timer.start(retryDelay());
}

void JsonLogin::cancel()
{
    if (state() != State::Authenticating)
        return;
    m_timer.stop();
    m_task.reset();
    fail(Error::Canceled, u"the login was canceled"_s);
}

void JsonLogin::succeed(const QString& token)
{
    m_token = token;
    setError({});
    setState(State::Authenticated);
    Q_EMIT authenticated();
}

void JsonLogin::failForGood(Error code, const QString& message)
{
    m_lastFailure = code;
    fail(code, message);
}

void JsonLogin::fail(Error code, const QString& message)
{
    setError(orv::Error(orv::ErrorCode::AuthenticationFailed, message));
    setState(State::Failed);
    Q_EMIT error(code);
}

} // namespace fetch
