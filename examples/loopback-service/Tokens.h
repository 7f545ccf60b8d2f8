#pragma once

#include <LoopbackReply.h>
#include <LoopbackRequest.h>

#include <QByteArray>

#include <optional>

namespace service {

/// Gives tokens to those who know the password, and knows which token is good.
///
/// Only the token given last is. The first one may be made to expire, after a number of requests.
class Tokens
{
public:
    /// How many requests the first token is good for; no limit if left out.
    void setFirstLives(int lives) { m_livesLeft = lives; }
    int loginCount() const { return m_loginCount; }

    /// The answer to a login.
    orv::LoopbackReply login(const orv::LoopbackRequest& request);
    /// Whether @p request carries a token that is good; this is one of the requests that it is good for.
    bool admits(const orv::LoopbackRequest& request);

private:
    int m_loginCount = 0;
    QByteArray m_token; // empty before the first login, and when it has expired
    std::optional<int> m_livesLeft;
};

} // namespace service
