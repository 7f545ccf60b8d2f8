#pragma once

#include "orv_network_export.h"

#include <QPointer>

namespace orv {

class AbstractAuthenticator;

/// A mix-in for objects that refer to an authenticator. It never owns it, and reads null once it is
/// destroyed. Copies refer to the same authenticator.
///
/// The destructor is public and not virtual: never delete an object through an Authenticable pointer.
class ORV_NETWORK_EXPORT Authenticable
{
public:
    /// Without an authenticator.
    Authenticable();
    Authenticable(const Authenticable& other);
    Authenticable& operator=(const Authenticable& other);
    ~Authenticable(); // NOLINT(*-virtual-class-destructor)

    /// The authenticator, or null when none was set or it has been destroyed.
    AbstractAuthenticator* authenticator() const;
    /// Replaces the authenticator; null clears it.
    virtual void setAuthenticator(AbstractAuthenticator* authenticator);

private:
    QPointer<AbstractAuthenticator> m_authenticator;
};

} // namespace orv
