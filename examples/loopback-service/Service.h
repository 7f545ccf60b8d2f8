#pragma once

#include "Tokens.h"

#include <Error.h>
#include <LoopbackServer.h>

#include <QMap>
#include <QSet>
#include <QString>

namespace service {

/// The demonstration service: the same paths over HTTP and, with a self-signed certificate, over HTTPS.
///
///   /hello          a text
///   /json           a JSON object
///   /echo           method, content type and content of the request, in JSON
///   /stream?size=N  N bytes, the line "0123456789abcde" repeated, in chunks
///   /files/NAME?size=N  N bytes (1,000,000 by default), the line NAME repeated
///   /slow           a text, after ten seconds
///   /flaky/NAME     503 the first time, then the text NAME
///   /busy/NAME      429 the first time, then the text NAME
///   /login          a token, {"token": "..."}, for a POST of {"user":"ann","password":"secret"}; else 401
///   /private/NAME   the text NAME, but 401 without the most recent token
///   /private/flaky/NAME, /private/busy/NAME
///                   like /flaky/NAME and /busy/NAME, but 401 without the most recent token
///   /log            {"logins": N, "requests": {PATH: N, ...}}: the requests so far
///
/// Everything else is 404.
class Service
{
public:
    Service();

    /// Sets after how many private requests the first token expires; never by default.
    void setTokenLives(int requests) { m_tokens.setFirstLives(requests); }

    /// Starts both servers on ports that the system picks.
    orv::Error listen();

    quint16 httpPort() const { return m_http.port(); }
    quint16 httpsPort() const { return m_https.port(); }

private:
    orv::LoopbackReply answer(const orv::LoopbackRequest& request);
    orv::LoopbackReply answerPrivate(const orv::LoopbackRequest& request);
    orv::LoopbackReply failFirst(const QString& path, int status);
    orv::LoopbackReply log() const;

    orv::LoopbackServer m_http{orv::LoopbackServer::Transport::Plain};
    orv::LoopbackServer m_https{orv::LoopbackServer::Transport::Tls};
    Tokens m_tokens;
    QSet<QString> m_failed; // paths whose first request has been answered with a failure
    QMap<QString, int> m_requestCounts;
};

} // namespace service
