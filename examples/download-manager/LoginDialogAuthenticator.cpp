#include "LoginDialogAuthenticator.h"

#include "LoginDialog.h"

#include <SslIgnorantNetworkAccessManager.h>

#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>

namespace downloads {

namespace {

using orv::ErrorCode;
using orv::HttpResponseStatusCode;
using orv::NetworkRequest;
using orv::NetworkTask;
using orv::SslIgnorantNetworkAccessManager;

constexpr int LOGIN_RETRIES = 1; // somebody is waiting in front of the dialog

NetworkRequest loginRequest(QUrl origin, const QString& user, const QString& password)
{
    origin.setPath(QStringLiteral("/login"));
    NetworkRequest request(origin.toString(QUrl::FullyEncoded), NetworkRequest::jsonContentType,
                           NetworkRequest::Method::Post);
    const QJsonObject credentials{{QStringLiteral("user"), user}, {QStringLiteral("password"), password}};
    request.postDataContentType = NetworkRequest::jsonContentType;
    request.postData = QJsonDocument(credentials).toJson(QJsonDocument::Compact);
    request.setMaskingFunction([](const QByteArray&) { return QByteArrayLiteral("******"); });
    return request;
}

QString tokenFrom(const QByteArray& answer)
{
    return QJsonDocument::fromJson(answer).object().value(QLatin1String("token")).toString();
}

} // namespace

LoginDialogAuthenticator::LoginDialogAuthenticator(const QUrl& origin,
                                                   SslIgnorantNetworkAccessManager* manager,
                                                   QWidget* dialogParent, QObject* parent)
    : AbstractAuthenticator(parent)
    , m_origin(origin)
    , m_manager(manager)
    , m_dialogParent(dialogParent)
{
}

LoginDialogAuthenticator::~LoginDialogAuthenticator()
{
    delete m_dialog;
}

QString LoginDialogAuthenticator::token()
{
    return m_token;
}

void LoginDialogAuthenticator::forgetToken()
{
    m_token.clear();
}

void LoginDialogAuthenticator::cancel()
{
    if (!m_dialog)
        return;
    closeDialog();
    setError(orv::Error(ErrorCode::AuthenticationFailed,
                        tr("The login at %1 was cancelled").arg(m_origin.host())));
    setState(State::Failed);
    Q_EMIT error(Error::Canceled);
}

// Being asked means that the token, if there was one, is not good any more.
bool LoginDialogAuthenticator::authenticate()
{
    m_token.clear();
    m_dialog = new LoginDialog(m_origin.authority(), warning(), m_dialogParent);
    connect(m_dialog, &LoginDialog::submitted, this, &LoginDialogAuthenticator::sendLogin);
    connect(m_dialog, &LoginDialog::rejected, this, &LoginDialogAuthenticator::cancel);
    m_dialog->open();
    return true;
}

QString LoginDialogAuthenticator::warning() const
{
    if (m_origin.scheme() != QLatin1String("https"))
        return tr("The connection is not encrypted: others may read what you type.");
    if (m_manager && m_manager->sslMode() == SslIgnorantNetworkAccessManager::SslMode::Ignore)
        return tr("Certificates are not verified: this may be somebody else.");
    return {};
}

// Sent on its own and without an authenticator: all slots of the queue may be taken, and a login must not
// wait for itself.
void LoginDialogAuthenticator::sendLogin()
{
    m_login = std::make_unique<NetworkTask>(loginRequest(m_origin, m_dialog->user(), m_dialog->password()));
    m_login->setNetworkAccessManager(m_manager);
    m_login->setMaxRetriesCount(LOGIN_RETRIES);
    connect(m_login.get(), &NetworkTask::finished, this, &LoginDialogAuthenticator::onLoginFinished);
    m_login->exec();
}

void LoginDialogAuthenticator::onLoginFinished()
{
    const auto failure = m_login->error();
    m_token = failure.hasError() ? QString() : tokenFrom(m_login->data());
    m_login.release()->deleteLater();
    if (orv::httpResponseStatusCode(failure) == HttpResponseStatusCode::Unauthorized) {
        m_dialog->showFailure(tr("The server does not accept this name and password."));
    } else if (failure.hasError()) {
        m_dialog->showFailure(failure.errorMessage());
    } else if (m_token.isEmpty()) {
        m_dialog->showFailure(tr("The server's answer holds no token."));
    } else {
        closeDialog();
        setError(orv::Error());
        setState(State::Authenticated);
        Q_EMIT authenticated();
    }
}

// The dialog may be the one that calls.
void LoginDialogAuthenticator::closeDialog()
{
    m_login.reset();
    m_dialog->disconnect(this);
    m_dialog->hide();
    m_dialog->deleteLater();
    m_dialog = nullptr;
}

} // namespace downloads
