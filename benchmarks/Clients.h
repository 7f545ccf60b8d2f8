#pragma once

#include "Session.h"

namespace benchmark {

// Ways of getting the same small reply again and again.

/// As a program without this library does it, with so many requests at a time.
Contender bareGets(Server& server, int parallel);
/// The same with Qt's transfer time-out, which watches a request as a task does.
Contender watchedBareGets(Server& server, int parallel);
/// Tasks that are executed one after the other.
Contender directGets(Server& server);
/// Tasks that are all handed to a queue.
Contender queuedGets(Server& server, int slots);

// Ways of getting content of so many MB, once for each run, so that what is measured is for one MB.

/// readAll() when the reply is complete.
Contender bareBody(Server& server);
/// Takes what there is to read whenever there is some, in steps of @p step bytes; 0 for readAll().
Contender bareStream(Server& server, int step = 0);
/// data() of the finished task.
Contender directBody(Server& server);
/// A streaming task; its data is taken whenever there is some.
Contender streamedBody(Server& server);
/// read() of a task that does not stream, in steps of @p step bytes; 0 for whatever there is.
Contender readBody(Server& server, int step);
/// data() and chopFirstBytes() of a streaming task, in steps of @p step bytes.
Contender choppedBody(Server& server, int step);

} // namespace benchmark
