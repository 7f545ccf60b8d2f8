#include "Authenticable.h"

#include "AbstractAuthenticator.h"

namespace orv {

Authenticable::Authenticable() = default;
Authenticable::Authenticable(const Authenticable& other) = default;
Authenticable& Authenticable::operator=(const Authenticable& other) = default;
Authenticable::~Authenticable() = default;

AbstractAuthenticator* Authenticable::authenticator() const
{
    return m_authenticator;
}

void Authenticable::setAuthenticator(AbstractAuthenticator* authenticator)
{
    m_authenticator = authenticator;
}

} // namespace orv
