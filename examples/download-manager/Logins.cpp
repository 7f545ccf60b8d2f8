#include "Logins.h"

#include <SslIgnorantNetworkAccessManager.h>

#include <QWidget>

namespace downloads {

namespace {

// Scheme, host and port (RFC 6454, section 4). The default port is made explicit, so that URLs with and
// without it have the same origin.
QUrl originOf(const QUrl& url)
{
    QUrl origin;
    origin.setScheme(url.scheme());
    origin.setHost(url.host());
    origin.setPort(url.port(url.scheme() == QLatin1String("https") ? 443 : 80));
    return origin;
}

} // namespace

Logins::Logins(orv::SslIgnorantNetworkAccessManager* manager, QWidget* dialogParent)
    : m_manager(manager)
    , m_dialogParent(dialogParent)
{
}

Logins::~Logins() = default;

LoginDialogAuthenticator* Logins::forUrl(const QUrl& url)
{
    const auto origin = originOf(url);
    auto& login = m_logins[origin.toString(QUrl::FullyEncoded)];
    if (!login)
        login = std::make_unique<LoginDialogAuthenticator>(origin, m_manager, m_dialogParent);
    return login.get();
}

void Logins::forgetTokens()
{
    for (const auto& [origin, login] : m_logins)
        login->forgetToken();
}

void Logins::cancel()
{
    for (const auto& [origin, login] : m_logins)
        login->cancel();
}

} // namespace downloads
