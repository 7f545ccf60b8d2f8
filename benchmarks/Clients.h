#pragma once

#include "Session.h"

namespace benchmark {

// Ways of getting the same small reply again and again.

/// As a program without this library does it, with so many requests at a time.
Contender bareGets(Server& server, int parallel);
/// Tasks that are executed one after the other.
Contender directGets(Server& server);
/// Tasks that are all handed to a queue.
Contender queuedGets(Server& server, int slots);

// Ways of getting content of so many MB, once for each run, so that what is measured is for one MB.

/// readAll() when the reply is complete.
Contender bareBody(Server& server);
/// readAll() whenever there is something to read.
Contender bareStream(Server& server);
/// data() of the finished task.
Contender directBody(Server& server);
/// A streaming task; its data is taken whenever there is some.
Contender streamedBody(Server& server);
/// read() of a task that does not stream, in steps of @p step bytes; 0 for whatever there is.
Contender readBody(Server& server, int step);
/// data() and chopFirstBytes() of a streaming task, in steps of @p step bytes.
Contender choppedBody(Server& server, int step);

} // namespace benchmark
