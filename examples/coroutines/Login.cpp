#include "Login.h"

#include "awaitTask.h"

#include <NetworkTask.h>

#include <QJsonDocument>
#include <QJsonObject>
#include <QPointer>

#include <utility>

using namespace Qt::StringLiterals;

namespace shop {

namespace {

using orv::NetworkRequest;
using orv::NetworkTask;

NetworkRequest loginRequest(const QString& url)
{
    NetworkRequest request(url, NetworkRequest::jsonContentType, NetworkRequest::Method::Post);
    request.postDataContentType = NetworkRequest::jsonContentType;
    request.postData = R"({"user":"ann","password":"secret"})";
    request.setMaskingFunction([](const QByteArray&) { return QByteArray("******"); });
    return request;
}

} // namespace

Login::Login(QString url, QObject* parent)
    : AbstractAuthenticator(parent)
    , m_url(std::move(url))
{
}

Login::~Login() = default;

// The coroutine starts here and resumes when its task has finished, which is never before this returns.
bool Login::authenticate()
{
    logIn();
    return true;
}

QCoro::Task<> Login::logIn()
{
    const QPointer<Login> self(this);
    auto* task = new NetworkTask(loginRequest(m_url), NetworkTask::High, this);
    task->setAutoDelete(true);
    orv::Error result = co_await awaitTask(task);
    if (!self)
        co_return; // the task was destroyed together with its owner
    m_token.clear();
    if (!result.hasError()) {
        m_token = QJsonDocument::fromJson(task->data()).object().value("token"_L1).toString();
        if (m_token.isEmpty())
            result = orv::Error(orv::ErrorCode::AuthenticationFailed, "the login gave no token");
    }
    end(result);
}

void Login::end(const orv::Error& result)
{
    setError(result);
    setState(result.hasError() ? State::Failed : State::Authenticated);
    if (result.hasError())
        Q_EMIT error(Error::Failed);
    else
        Q_EMIT authenticated();
}

} // namespace shop
