#pragma once

#include "Session.h"

#include <QNetworkRequest>

namespace benchmark {

/// The same request as a task sends.
QNetworkRequest bareRequest(const QString& url);

// Ways of requesting the same small reply many times.

/// As a program without this library does it, with @p parallel requests at a time.
Contender bareGets(Server& server, int parallel);
/// Like bareGets(), but with Qt's transfer time-out, which monitors a request as a task does.
Contender watchedBareGets(Server& server, int parallel);
/// With what a program needs to be as sure of the outcome as a task is: see HandWrittenGet.
Contender handWrittenGets(Server& server, int parallel);

/// Whether tasks use connections as Qt makes them, or those that the library makes by default.
enum class Connections { Unbuffered, Buffered };

/// Tasks executed one after the other.
Contender directGets(Server& server, Connections connections);
/// Tasks that are all appended to a queue at the beginning.
Contender queuedGets(Server& server, int slots, Connections connections);

/// The same over TLS. Over HTTP/2, all slots share one connection.
enum class Version { Http1, Http2 };
Contender secureGets(Server& server, int slots, Version version);

// Ways of getting content of a given size in MB, once per run, so that the figures are per MB.

/// Calls readAll() when the reply is complete.
Contender bareBody(Server& server);
/// Reads data as it arrives, in steps of @p step bytes; 0 for readAll().
Contender bareStream(Server& server, int step = 0);
/// Takes data() of the finished task.
Contender directBody(Server& server, Connections connections);
/// Takes data() of a streaming task as it arrives.
Contender streamedBody(Server& server, Connections connections);
/// Calls read() of a task that does not stream, in steps of @p step bytes; 0 for all available data.
Contender readBody(Server& server, int step);
/// Calls data() and chopFirstBytes() of a streaming task, in steps of @p step bytes.
Contender choppedBody(Server& server, int step);

/// Writes data to a file as it arrives.
Contender bareFile(Server& server);
/// Runs a FileDownloadTask.
Contender downloadedFile(Server& server, Connections connections);

} // namespace benchmark
