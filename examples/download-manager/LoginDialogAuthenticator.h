#pragma once

#include <AbstractAuthenticator.h>
#include <NetworkTask.h>

#include <QPointer>
#include <QUrl>

#include <memory>

class QWidget;

namespace downloads {

class LoginDialog;

/// Logs in at one origin with what a user types into a dialog, one dialog for all tasks that wait.
///
/// User name and password are posted as JSON to /login of that origin, which answers {"token": "..."}. The
/// dialog stays until a login succeeds or the user gives up; then the waiting tasks fail.
///
/// The token is for that origin alone (scheme, host and port): only tasks for its URLs may be given this
/// authenticator. Nothing is kept but the token, and that in memory.
class LoginDialogAuthenticator : public orv::AbstractAuthenticator
{
    Q_OBJECT

public:
    /// Of @p origin only scheme, host and port count. @p manager sends the logins; neither it nor
    /// @p dialogParent is owned.
    LoginDialogAuthenticator(const QUrl& origin, orv::SslIgnorantNetworkAccessManager* manager,
                             QWidget* dialogParent, QObject* parent = nullptr);
    ~LoginDialogAuthenticator() override;

    QString token() override;
    /// Makes the next task that needs a token ask for a login.
    void forgetToken();
    void cancel() override;

protected:
    bool authenticate() override;

private:
    QString warning() const;
    void sendLogin();
    void onLoginFinished();
    void closeDialog();

    const QUrl m_origin;
    const QPointer<orv::SslIgnorantNetworkAccessManager> m_manager;
    const QPointer<QWidget> m_dialogParent;
    QPointer<LoginDialog> m_dialog;
    std::unique_ptr<orv::NetworkTask> m_login;
    QString m_token;
};

} // namespace downloads
