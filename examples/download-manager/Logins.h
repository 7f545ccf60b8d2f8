#pragma once

#include "LoginDialogAuthenticator.h"

#include <map>
#include <memory>

namespace downloads {

/// The logins of the window, one for each origin, so that no token ever reaches another server than the one
/// that gave it.
class Logins
{
public:
    /// See LoginDialogAuthenticator.
    Logins(orv::SslIgnorantNetworkAccessManager* manager, QWidget* dialogParent);
    ~Logins();
    Logins(const Logins&) = delete;
    Logins& operator=(const Logins&) = delete;

    /// The login for the origin of @p url; owned by this object.
    LoginDialogAuthenticator* forUrl(const QUrl& url);
    /// To be called when servers are to be trusted less than at the time of the login.
    void forgetTokens();
    void cancel();

private:
    const QPointer<orv::SslIgnorantNetworkAccessManager> m_manager;
    const QPointer<QWidget> m_dialogParent;
    std::map<QString, std::unique_ptr<LoginDialogAuthenticator>> m_logins;
};

} // namespace downloads
