#pragma once

#include "Session.h"

namespace benchmark {

// Other HTTP clients, with the same requests as those in Clients.h.

/// libcurl's multi interface with its own loop; one easy handle for each parallel request, which is reused.
Contender curlGets(Server& server, int parallel);
Contender curlStream(Server& server);

/// cpp-httplib, which blocks; one thread with its own client for each parallel request.
Contender httplibGets(Server& server, int parallel);
Contender httplibStream(Server& server);

} // namespace benchmark
