#pragma once

#include "LoginDialogAuthenticator.h"

#include <map>
#include <memory>

namespace downloads {

/// The logins of the window, one for each origin, so that a token is sent only to the server that issued it.
class Logins
{
public:
    /// The arguments are passed on to each LoginDialogAuthenticator.
    Logins(orv::SslIgnorantNetworkAccessManager* manager, QWidget* dialogParent);
    ~Logins();
    Logins(const Logins&) = delete;
    Logins& operator=(const Logins&) = delete;

    /// The login for the origin of @p url; owned by this object.
    LoginDialogAuthenticator* forUrl(const QUrl& url);
    /// Discards all tokens. Call it before servers are trusted that would not have been at the time of the
    /// login.
    void forgetTokens();
    void cancel();

private:
    const QPointer<orv::SslIgnorantNetworkAccessManager> m_manager;
    const QPointer<QWidget> m_dialogParent;
    std::map<QString, std::unique_ptr<LoginDialogAuthenticator>> m_logins;
};

} // namespace downloads
