#include "PasswordLogin.h"

#include <QJsonDocument>
#include <QJsonObject>

#include <utility>

using namespace Qt::StringLiterals;

PasswordLogin::PasswordLogin(QString url, QString name, QString password, QObject* parent)
    : AbstractAuthenticator(parent)
    , m_url(std::move(url))
    , m_name(std::move(name))
    , m_password(std::move(password))
{
    setMaxRetriesCount(3);
}

//! [authenticate]
bool PasswordLogin::authenticate()
{
    m_token.clear(); // a login is requested only if there is no token or it has been refused
    const QJsonObject credentials{{u"user"_s, m_name}, {u"password"_s, m_password}};
    orv::NetworkRequest request(m_url, orv::NetworkRequest::jsonContentType,
                                orv::NetworkRequest::Method::Post);
    request.postDataContentType = orv::NetworkRequest::jsonContentType;
    request.postData = QJsonDocument(credentials).toJson(QJsonDocument::Compact);
    request.setMaskingFunction([](const QByteArray&) { return QByteArray("******"); });

    m_task = new orv::NetworkTask(request, orv::NetworkTask::Priority::High, this);
    m_task->setRetriesEnabled(false); // the waiting tasks request another login, see fail()
    connect(m_task, &orv::NetworkTask::finished, this, &PasswordLogin::onAnswer);
    m_task->exec();
    return true;
}
//! [authenticate]

//! [answer]
void PasswordLogin::onAnswer()
{
    m_task->deleteLater();
    const orv::Error error = m_task->error();
    const QString token = QJsonDocument::fromJson(m_task->data()).object().value("token"_L1).toString();
    const int status = m_task->httpResponseStatusCodeNumber();
    if (!error.hasError() && !token.isEmpty())
        succeed(token);
    else if (m_task->isCanceled())
        fail(Error::Canceled, tr("The login was cancelled"));
    else if (status == 401 || status == 403)
        fail(Error::InvalidCredentials, tr("Name or password is wrong"));
    else if (status == 0 || status == 408 || status == 429 || status >= 500)
        fail(Error::TemporaryFailure, error.errorMessage());
    else
        fail(Error::Failed, tr("The server gave no token"));
}
//! [answer]

//! [end]
void PasswordLogin::succeed(const QString& token)
{
    m_token = token;
    setError({});
    setState(State::Authenticated);
    Q_EMIT authenticated();
}

void PasswordLogin::fail(Error code, const QString& message)
{
    setError(orv::Error(orv::ErrorCode::AuthenticationFailed, message));
    setState(State::Failed);
    Q_EMIT error(code);
}

void PasswordLogin::cancel()
{
    if (m_task)
        m_task->cancel();
}
//! [end]
