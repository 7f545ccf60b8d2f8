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

constexpr int LOGIN_RETRIES = 1; // few, since the user is waiting

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

// A login is requested only if there is no token or it has been refused.
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
        return tr("Certificates are not verified: this may be a different server.");
    return {};
}

// Executed outside the queue, whose slots may all be taken, and without an authenticator, since a login must
// not wait for itself.
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

// Called from slots of the dialog's signals, so the dialog must not be deleted here.
void LoginDialogAuthenticator::closeDialog()
{
    m_login.reset();
    m_dialog->disconnect(this);
    m_dialog->hide();
    m_dialog->deleteLater();
    m_dialog = nullptr;
}

} // namespace downloads
