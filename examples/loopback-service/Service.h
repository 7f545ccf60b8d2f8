#pragma once

#include <Error.h>
#include <LoopbackServer.h>

namespace service {

/// The demonstration service: the same paths over HTTP and, with a self-signed certificate, over HTTPS.
///
///   /hello          a text
///   /json           a JSON object
///   /echo           method, content type and content of the request, in JSON
///   /stream?size=N  N bytes, the line "0123456789abcde" again and again, in chunks
///   /slow           a text, after ten seconds
///
/// Everything else is 404.
class Service
{
public:
    Service();

    /// Starts both servers on ports that the system picks.
    orv::Error listen();

    quint16 httpPort() const { return m_http.port(); }
    quint16 httpsPort() const { return m_https.port(); }

private:
    orv::LoopbackServer m_http{orv::LoopbackServer::Transport::Plain};
    orv::LoopbackServer m_https{orv::LoopbackServer::Transport::Tls};
};

} // namespace service
