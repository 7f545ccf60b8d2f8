#pragma once

#include <LoopbackReply.h>
#include <LoopbackRequest.h>

#include <QByteArray>

#include <optional>

namespace service {

/// Issues tokens in return for the password, and checks them.
///
/// Only the most recent token is valid. The first one can be made to expire after a number of requests.
class Tokens
{
public:
    /// Sets how many requests the first token is valid for; unlimited by default.
    void setFirstLives(int lives) { m_livesLeft = lives; }
    int loginCount() const { return m_loginCount; }

    /// The reply to a login request.
    orv::LoopbackReply login(const orv::LoopbackRequest& request);
    /// Whether @p request carries a valid token. Counts as one of the requests that the token is valid for.
    bool admits(const orv::LoopbackRequest& request);

private:
    int m_loginCount = 0;
    QByteArray m_token; // empty before the first login and after the token has expired
    std::optional<int> m_livesLeft;
};

} // namespace service
