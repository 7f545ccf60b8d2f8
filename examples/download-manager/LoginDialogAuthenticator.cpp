#include "LoginDialogAuthenticator.h"

#include "LoginDialog.h"

#include <SslIgnorantNetworkAccessManager.h>

#include <QJsonObject>

namespace downloads {

namespace {

using orv::BearerLogin;
using orv::SslIgnorantNetworkAccessManager;

orv::NetworkRequest loginRequest(QUrl origin, const QString& user, const QString& password)
{
    origin.setPath(QStringLiteral("/login"));
    return BearerLogin::jsonRequest(origin.toString(QUrl::FullyEncoded),
                                    {{QStringLiteral("user"), user}, {QStringLiteral("password"), password}});
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
    setTokenLogged(false);
    m_login.setNetworkAccessManager(manager); // without a queue, whose slots may all be taken
    connect(&m_login, &BearerLogin::authenticated, this, &LoginDialogAuthenticator::onLoggedIn);
    connect(&m_login, &BearerLogin::error, this, &LoginDialogAuthenticator::onLoginFailed);
}

LoginDialogAuthenticator::~LoginDialogAuthenticator()
{
    delete m_dialog;
}

QString LoginDialogAuthenticator::token()
{
    return m_login.token();
}

void LoginDialogAuthenticator::forgetToken()
{
    m_login.logOut();
}

void LoginDialogAuthenticator::cancel()
{
    if (!m_dialog)
        return;
    closeDialog();
    setError(orv::Error(orv::ErrorCode::AuthenticationFailed,
                        tr("The login at %1 was cancelled").arg(m_origin.host())));
    setState(State::Failed);
    Q_EMIT error(Error::Canceled);
}

// A login is requested only if there is no token or it has been refused.
bool LoginDialogAuthenticator::authenticate()
{
    m_login.logOut();
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
        return tr("Certificates are not verified: this may be a different server.");
    return {};
}

void LoginDialogAuthenticator::sendLogin()
{
    m_login.setLoginRequest(loginRequest(m_origin, m_dialog->user(), m_dialog->password()));
    m_login.onAuthenticationRequired();
}

void LoginDialogAuthenticator::onLoggedIn()
{
    m_login.setLoginRequest(BearerLogin::LoginRequest()); // the password is not kept
    closeDialog();
    setError(orv::Error());
    setState(State::Authenticated);
    Q_EMIT authenticated();
}

void LoginDialogAuthenticator::onLoginFailed(Error code)
{
    if (m_dialog) {
        m_dialog->showFailure(code == Error::InvalidCredentials
                                  ? tr("The server does not accept this name and password.")
                                  : m_login.authenticationError().errorMessage());
    }
}

// Called from slots of the dialog's signals, so the dialog must not be deleted here.
void LoginDialogAuthenticator::closeDialog()
{
    m_dialog->disconnect(this);
    m_dialog->hide();
    m_dialog->deleteLater();
    m_dialog = nullptr;
    m_login.cancel();
}

} // namespace downloads
