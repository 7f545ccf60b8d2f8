#pragma once

#include <AbstractAuthenticator.h>
#include <BearerLogin.h>

#include <QPointer>
#include <QUrl>

class QWidget;

namespace downloads {

class LoginDialog;

/// Logs in at one origin with the user's input to a dialog. One dialog serves all waiting tasks.
///
/// User name and password are posted as JSON to /login of the origin, which answers {"token": "..."}. The
/// dialog stays open until a login succeeds or the user gives up; in the latter case, the waiting tasks fail.
///
/// The token is valid only for that origin (scheme, host and port), so only tasks for its URLs may use this
/// authenticator. Only the token is stored, and only in memory.
class LoginDialogAuthenticator : public orv::AbstractAuthenticator
{
    Q_OBJECT

public:
    /// Only scheme, host and port of @p origin are used. @p manager sends the logins. Neither @p manager nor
    /// @p dialogParent is owned.
    LoginDialogAuthenticator(const QUrl& origin, orv::SslIgnorantNetworkAccessManager* manager,
                             QWidget* dialogParent, QObject* parent = nullptr);
    ~LoginDialogAuthenticator() override;

    QString token() override;
    /// Discards the token, so that the next task that needs one starts a login.
    void forgetToken();
    void cancel() override;

protected:
    bool authenticate() override;

private:
    QString warning() const;
    void sendLogin();
    void onLoggedIn();
    void onLoginFailed(Error code);
    void closeDialog();

    const QUrl m_origin;
    const QPointer<orv::SslIgnorantNetworkAccessManager> m_manager;
    const QPointer<QWidget> m_dialogParent;
    QPointer<LoginDialog> m_dialog;
    orv::BearerLogin m_login; // obtains the token for what the user has entered
};

} // namespace downloads
