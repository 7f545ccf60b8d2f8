#pragma once

#include "orv_network_export.h"

#include <QPointer>

namespace orv {

class AbstractAuthenticator;

QT_WARNING_PUSH
QT_WARNING_DISABLE_GCC("-Wnon-virtual-dtor") // also in the builds of programs that include this
QT_WARNING_DISABLE_CLANG("-Wnon-virtual-dtor")

/// A mix-in for objects that refer to an authenticator. It never owns it, and reads null once it is
/// destroyed. Copies refer to the same authenticator.
///
/// The destructor is public and deliberately not virtual: never delete an object through an Authenticable
/// pointer.
///
/// Used from the thread that the authenticator lives on.
class ORV_NETWORK_EXPORT Authenticable
{
public:
    /// An object without an authenticator.
    Authenticable();
    Authenticable(const Authenticable& other);
    Authenticable& operator=(const Authenticable& other);
    ~Authenticable(); // NOLINT(*-virtual-class-destructor)

    /// The authenticator, or null when none was set or it has been destroyed.
    AbstractAuthenticator* authenticator() const;
    /// Replaces the authenticator; null clears it. A subclass may do more: a NetworkTask also begins to
    /// require authentication, and a NetworkQueue calls this for every task that is added to it.
    virtual void setAuthenticator(AbstractAuthenticator* authenticator);

private:
    QPointer<AbstractAuthenticator> m_authenticator;
};

QT_WARNING_POP

} // namespace orv
