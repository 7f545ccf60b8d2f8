#pragma once

#include "Session.h"

namespace benchmark {

// What else a program could use on this machine, for the same requests as those in Clients.h.

/// libcurl's multi interface with its own loop; an easy handle for each request at a time, used again.
Contender curlGets(Server& server, int parallel);
Contender curlStream(Server& server);

/// cpp-httplib, which blocks: a thread with a client of its own for each request at a time.
Contender httplibGets(Server& server, int parallel);
Contender httplibStream(Server& server);

} // namespace benchmark
